// A GET on a connection of its own that also says how long the answer took: for tests that
// send several requests at once, each waiting out a time-out of its own.
#pragma once

#include <chrono>
#include <string>
#include <utility>

#include "tests/support/http_client.h"

namespace korvex::test {

struct TimedAnswer {
    HttpResponse response;
    long ms = 0;
};

inline TimedAnswer timed_get(int port, const std::string &target, long timeout_ms = 15000) {
    const auto start = std::chrono::steady_clock::now();
    HttpResponse response = get(port, target, timeout_ms);
    const auto took = std::chrono::steady_clock::now() - start;
    return {std::move(response),
            static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(took).count())};
}

}  // namespace korvex::test
