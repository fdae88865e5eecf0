// The module's lines of the error log in a form that tests can compare exactly:
// "[korvex:3] [pid 12] findItem:27 apache: find hash item: 0x55d0, ..." becomes
// "[korvex:3] [pid N] findItem:L apache: find hash item: 0x?, ..." (pids, source lines and
// addresses vary from run to run; everything else is compared as it is).
#pragma once

#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace korvex::test {

inline std::string normalise_log_line(const std::string &line) {
    static const std::regex pid(R"(\[pid [0-9]+\])");
    static const std::regex source_line(R"(^(\[korvex:[0-9]\] \[pid N\] [^ ]*):[0-9]+ apache:)");
    static const std::regex address("0x[0-9a-f]+");
    std::string text = std::regex_replace(line, pid, "[pid N]");
    text = std::regex_replace(text, source_line, "$1:L apache:");
    return std::regex_replace(text, address, "0x?");
}

// The module's lines in text (those that start with "[korvex:"), normalised; with
// only_containing set, only the lines that contain it.
inline std::vector<std::string> module_log_lines(const std::string &text, const std::string &only_containing = "") {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("[korvex:", 0) != 0) continue;
        if (!only_containing.empty() && line.find(only_containing) == std::string::npos) continue;
        lines.push_back(normalise_log_line(line));
    }
    return lines;
}

}  // namespace korvex::test
