// A daemon that hung is usually killed and restarted by the watchdog: the new process owns
// the bus name at once, and the very next request reaches it instead of failing fast for the
// rest of the old one's silent window. A daemon that merely resumes, or whose name is gone,
// is treated as before.
#include <chrono>
#include <future>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/mpm_fixture.h"
#include "tests/support/call_texts.h"
#include "tests/support/command_test.h"
#include "tests/support/http_client.h"
#include "tests/support/log_lines.h"

namespace korvex::test {
namespace {

const std::string kPlatform = "com.korvex-labs.www.platform";

class DaemonRestartTest : public CommandTest {
  protected:
    // The platform's settings store stops answering its 1 s reads; waits until the server says
    // so. The failed answer.
    std::string make_platform_silent() {
        nvram_rule("get", R"("mode":"silent")");
        const size_t since = env().error_log_size();
        const std::string failed = run("getdoscenemode=");
        EXPECT_GE(elapsed_ms(), 900);
        EXPECT_TRUE(env().wait_for_log("stopped answering", std::chrono::seconds(10), since));
        return failed;
    }

    // The platform's settings store stops answering its 1 s reads, and two unanswered probes
    // grow its window to 4 s: room enough to restart the simulated daemons inside it.
    std::string make_platform_silent_for_four_seconds() {
        nvram_rule("get", R"("mode":"silent")");
        const size_t since = env().error_log_size();
        const std::string failed = run("getdoscenemode=");
        for (int probe = 0; probe < 2; ++probe) {
            std::this_thread::sleep_for(std::chrono::milliseconds(probe == 0 ? 1100 : 2100));
            EXPECT_EQ(run("getdoscenemode="), failed);
            EXPECT_GE(elapsed_ms(), 900) << "probe " << probe;
        }
        EXPECT_TRUE(env().wait_for_log("fail at once for 4000 ms more", std::chrono::seconds(5), since));
        return failed;
    }

    void restarted_daemon_is_reached_by_the_next_request() {
        const std::string healthy = run("getdoscenemode=");
        const std::string failed = make_platform_silent_for_four_seconds();
        ASSERT_NE(failed, healthy);
        EXPECT_EQ(run("getdoscenemode="), failed) << "inside the window";
        EXPECT_LT(elapsed_ms(), 500);

        const size_t since = env().error_log_size();
        env().sim_stop();
        env().sim_start();
        EXPECT_EQ(run("getdoscenemode="), healthy);
        EXPECT_LT(elapsed_ms(), 500);
        EXPECT_EQ(calls(), Calls{get_call("doscenemode")});
        const std::vector<std::string> lines = module_log_lines(env().error_log_since(since), "new owner");
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_TRUE(std::regex_match(lines[0], std::regex(R"(^\[korvex:notice\] \[pid N\] [a-z_]+:L apache: )"
                                                          R"(com\.korvex-labs\.www\.platform has a new owner after )"
                                                          R"([0-9]+ ms of silence: calls go to it again$)")))
            << lines[0];

        // The window is over for every child, not just the one that asked the bus.
        std::vector<std::future<HttpResponse>> answers;
        for (int i = 0; i < 6; ++i)
            answers.push_back(std::async(std::launch::async, [] { return get(port(), "/network.cgi?getdoscenemode="); }));
        for (auto &answer : answers) {
            const HttpResponse response = answer.get();
            EXPECT_EQ(response.status, 200);
            EXPECT_EQ(response.body, healthy);
        }
    }
};

TEST_F(DaemonRestartTest, RestartedDaemonIsReachedByTheNextRequestUnderPrefork) {
    restarted_daemon_is_reached_by_the_next_request();
}

// A daemon that only resumed (same owner) lets the window run its course until a probe ends
// it: SilentDaemonTest.OneTimeOutThenReadsFailAtOnceWritesAreSentAndAnAnswerEndsTheWindow.

TEST_F(DaemonRestartTest, NameWithoutOwnerDuringTheWindowStillFailsAtOnce) {
    const std::string failed = make_platform_silent();
    sim().reset();
    sim().set_absent(kPlatform, true);
    const size_t since = env().error_log_size();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(run("getdoscenemode="), failed);
        EXPECT_LT(elapsed_ms(), 500);
    }
    EXPECT_EQ(calls(), Calls{});
    EXPECT_EQ(env().count_log_lines("new owner", since), 0u) << "a name without owner is no new owner";
}

using DaemonRestartEventTest = OnMpm<DaemonRestartTest, kEventMpm>;

TEST_F(DaemonRestartEventTest, RestartedDaemonIsReachedByTheNextRequestUnderEvent) {
    restarted_daemon_is_reached_by_the_next_request();
}

}  // namespace
}  // namespace korvex::test
