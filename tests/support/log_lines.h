// The module's lines of the error log in a form that tests can compare exactly. Apache
// writes them as
//   "[Mon Nov 23 16:07:07.123456 2026] [korvex:debug] [pid 12:tid 12] findItem:27 apache: find hash item: 0x55d0, ..."
// which becomes
//   "[korvex:debug] [pid N] findItem:L apache: find hash item: 0x?, ..."
// (time stamps, pids, thread ids, source lines and addresses vary from run to run;
// everything else, the Apache level included, is compared as it is). Records written to
// standard error before the module reaches Apache's log ("[korvex:3] [pid 12] ...") are
// module lines too and are normalised the same way.
#pragma once

#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace korvex::test {

// A module line without its time stamp and thread id ("[korvex:debug] [pid 12] findItem:27
// apache: ..."); "" for any other line.
inline std::string module_log_record(const std::string &line) {
    static const std::regex record(R"(^(?:\[[^\]]*\] )?(\[korvex:[a-z0-9]+\] \[pid [0-9]+)(?::tid [0-9]+)?(\] .*)$)");
    std::smatch match;
    if (!std::regex_match(line, match, record)) return "";
    return match.str(1) + match.str(2);
}

// A module record (as module_log_record gives it) in the stable form.
inline std::string normalise_log_line(const std::string &record) {
    static const std::regex pid(R"(^(\[korvex:[a-z0-9]+\]) \[pid [0-9]+\])");
    static const std::regex source_line(R"(^(\[korvex:[a-z0-9]+\] \[pid N\] [^ ]*):[0-9]+ apache:)");
    static const std::regex address("0x[0-9a-f]+");
    std::string text = std::regex_replace(record, pid, "$1 [pid N]");
    text = std::regex_replace(text, source_line, "$1:L apache:");
    return std::regex_replace(text, address, "0x?");
}

// The module's lines in text, normalised; with only_containing set, only the lines whose
// record (time stamp and thread id removed, pid kept: "[pid 12] findItem:") contains it.
inline std::vector<std::string> module_log_lines(const std::string &text, const std::string &only_containing = "") {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        const std::string record = module_log_record(line);
        if (record.empty()) continue;
        if (!only_containing.empty() && record.find(only_containing) == std::string::npos) continue;
        lines.push_back(normalise_log_line(record));
    }
    return lines;
}

}  // namespace korvex::test
