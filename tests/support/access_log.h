// The server's access log: one line per request, ending in "pid=N" with the id of the
// child that served it as the server sees it (its namespace pid under isolation).
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/gateway_env.h"

namespace korvex::test {

inline size_t access_log_size(const GatewayEnv &env) {
    struct stat st{};
    return stat(env.env_value("ACCESS_LOG").c_str(), &st) == 0 ? static_cast<size_t>(st.st_size) : 0;
}

// Complete lines written after byte offset since; waits up to timeout for at least count
// of them (the server writes a line only after it has answered).
inline std::vector<std::string> wait_for_access_lines(const GatewayEnv &env, size_t since, size_t count,
                                                      std::chrono::milliseconds timeout =
                                                          std::chrono::seconds(5)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        std::ifstream in(env.env_value("ACCESS_LOG"), std::ios::binary);
        in.seekg(static_cast<std::streamoff>(since));
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);) {
            if (!in.eof()) lines.push_back(line);
        }
        if (lines.size() >= count || std::chrono::steady_clock::now() > deadline) return lines;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

// The serving child's pid of an access-log line, -1 when the line has none.
inline long served_pid(const std::string &line) {
    const size_t at = line.rfind(" pid=");
    return at == std::string::npos ? -1 : std::atol(line.c_str() + at + 5);
}

}  // namespace korvex::test
