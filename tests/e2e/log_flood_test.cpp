// A fault repeated by every request writes a bounded amount of log: the same failure record
// at most once a second per child, and a line later on with how many were left out. Run at
// the "info" level, where every failed call has a record of its own.
#include <chrono>
#include <algorithm>
#include <cstdio>
#include <map>
#include <sstream>
#include <string>
#include <thread>

#include "tests/support/command_test.h"
#include "tests/support/http_client.h"

namespace korvex::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr char kSdk[] = "com.korvex-labs.www.sdk";

class LogFloodTest : public CommandTest {
protected:
    static void SetUpTestSuite() {
        GatewayEnv::Options options;
        options.log_level = KORVEX_LOG_REQUEST;
        options.thin_log_records = true;
        use_env(options);
    }
};

TEST_F(LogFloodTest, ThreeHundredCallsToAnAbsentDaemonWriteAtMostSixteenKiB) {
    sim().set_absent(kSdk, true);
    const size_t from = env().error_log_size();
    const auto start = Clock::now();
    for (int i = 0; i < 300; ++i) ASSERT_EQ(get(port(), "/sdk.cgi?json=x").status, 200);
    const long took_ms =
        static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
    const size_t written = env().error_log_size() - from;
    std::printf("[log flood] 300 requests to an absent daemon in %ld ms wrote %zu bytes of log\n", took_ms, written);
    EXPECT_LE(written, 16u * 1024) << env().error_log_since(from).substr(0, 3000);
    // The failure itself is still on record.
    EXPECT_GE(env().count_log_lines("No reply, str: x, dest: com.korvex-labs.www.sdk", from), 1u) << env().error_log_since(from);
    sim().set_absent(kSdk, false);
}

// What was left out is counted: a later record of the same failure says how many.
TEST_F(LogFloodTest, ALaterRecordSaysHowManyWereLeftOut) {
    sim().set_absent(kSdk, true);
    const size_t from = env().error_log_size();
    for (int i = 0; i < 20; ++i) ASSERT_EQ(get(port(), "/sdk.cgi?json=x").status, 200);
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    ASSERT_EQ(get(port(), "/sdk.cgi?json=x").status, 200);
    EXPECT_GE(env().count_log_lines("more like this left out: ", from), 1u) << env().error_log_since(from);
    sim().set_absent(kSdk, false);
}

class NoBusLogFloodTest : public GatewayTest {
protected:
    static void SetUpTestSuite() {
        GatewayEnv::Options options;
        options.with_bus = false;
        options.log_level = KORVEX_LOG_REQUEST;
        options.thin_log_records = true;
        use_env(options);
    }
};

// Requests as fast as one client sends them for 10 s, with no bus to connect to.
TEST_F(NoBusLogFloodTest, AChildWithoutABusWritesAFewKiBAMinute) {
    const size_t from = env().error_log_size();
    const auto until = Clock::now() + std::chrono::seconds(10);
    int requests = 0;
    while (Clock::now() < until) {
        get(port(), "/network.cgi?getntpserver=");
        ++requests;
    }
    const std::string log = env().error_log_since(from);
    // Bytes per child: each keeps its own count of what it held back.
    std::map<std::string, size_t> per_child;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        const size_t at = line.find("[pid ");
        if (at != std::string::npos) per_child[line.substr(at, line.find(':', at) - at)] += line.size() + 1;
    }
    size_t most = 0;
    for (const auto &[pid, bytes] : per_child) most = std::max(most, bytes);
    std::printf("[log flood] %d requests without a bus in 10 s wrote %zu bytes of log, at most %zu in one of %zu "
                "children\n",
                requests, log.size(), most, per_child.size());
    EXPECT_LE(most, 4u * 1024) << log.substr(0, 3000) << "10 s of a child without a bus: at most 4 KiB";
}

}  // namespace
}  // namespace korvex::test
