// The texts CommandTest::calls() gives for the calls most commands make: nvram reads,
// writes and commits, and shell lines run by the platform daemon.
#pragma once

#include <string>

namespace korvex::test {

inline const std::string kNvramCalls = "com.korvex-labs.www.platform com.KorvexLabs.platform.nvram ";
inline const std::string kCommit = kNvramCalls + "commit(s:commit)";

inline std::string get_call(const std::string &key) { return kNvramCalls + "get(s:" + key + ")"; }
inline std::string set_call(const std::string &key, const std::string &value) {
    return kNvramCalls + "set(s:" + key + ", s:" + value + ")";
}
inline std::string shell_call(const std::string &line) {
    return "com.korvex-labs.www.platform com.KorvexLabs.platform.admin doSystem(s:" + line + ")";
}

}  // namespace korvex::test
