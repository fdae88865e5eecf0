#include "sim/harness/log_level.h"

#include <regex>

namespace korvex::harness {

std::string apache_log_level(const std::string &text) {
    static const std::regex name("emerg|alert|crit|error|warn|notice|info|debug|trace[1-8]");
    static const std::regex number("[0-9]{1,2}");
    if (std::regex_match(text, name)) return text;
    if (!std::regex_match(text, number)) return "";
    const int level = std::stoi(text);
    if (level >= 6) return "error";
    if (level == 5) return "notice";
    if (level == 4) return "info";
    if (level == 3) return "debug";
    if (level == 2) return "trace1";
    return "trace2";
}

int platform_log_level(const std::string &apache_level) {
    if (apache_level == "emerg" || apache_level == "alert" || apache_level == "crit" || apache_level == "error" ||
        apache_level == "warn")
        return 6;
    if (apache_level == "notice") return 5;
    if (apache_level == "info") return 4;
    if (apache_level == "debug") return 3;
    if (apache_level == "trace1") return 2;
    return 1;
}

}  // namespace korvex::harness
