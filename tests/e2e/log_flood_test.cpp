// A fault repeated by every request writes a bounded amount of log: the same failure record
// at most once a second per child, and a line later on with how many were left out. Run at
// the "info" level, where every failed call has a record of its own.
#include <chrono>
#include <cstdio>
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
    static void SetUpTestSuite() { use_log_level(KORVEX_LOG_REQUEST); }
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
    const size_t written = env().error_log_size() - from;
    std::printf("[log flood] %d requests without a bus in 10 s wrote %zu bytes of log\n", requests, written);
    EXPECT_LE(written, 4u * 1024) << env().error_log_since(from).substr(0, 3000) << "10 s of a child without a bus: at most 4 KiB (24 KiB a minute)";
}

}  // namespace
}  // namespace korvex::test
