// Bounded waits and the reading of start-up logs of the gateway harness.
#include "sim/harness/readiness.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <string>

#include "sim/harness/log_level.h"

namespace korvex::harness {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

TEST(HarnessWaitTest, ReturnsOnceReady) {
    int polls = 0;
    EXPECT_EQ(wait_until([&] { return ++polls >= 3; }, nullptr, milliseconds(2000), milliseconds(1)), WaitResult::ready);
    EXPECT_EQ(polls, 3);
}

TEST(HarnessWaitTest, GivesUpAtOnceWhenTheProcessIsGone) {
    const auto start = Clock::now();
    EXPECT_EQ(wait_until([] { return false; }, [] { return false; }, milliseconds(5000)), WaitResult::gave_up);
    EXPECT_LT(Clock::now() - start, milliseconds(1000));
}

TEST(HarnessWaitTest, TimesOutWithinItsBound) {
    const auto start = Clock::now();
    EXPECT_EQ(wait_until([] { return false; }, [] { return true; }, milliseconds(150), milliseconds(10)),
              WaitResult::timed_out);
    const auto spent = Clock::now() - start;
    EXPECT_GE(spent, milliseconds(150));
    EXPECT_LT(spent, milliseconds(1500));
}

TEST(HarnessWaitTest, ReadyAsTheProcessEndsCountsAsReady) {
    bool done = false;
    EXPECT_EQ(wait_until([&] { return done; }, [&] { return !(done = true); }, milliseconds(1000)), WaitResult::ready);
}

TEST(AddressInUseTest, FindsApachesWordsForATakenPort) {
    EXPECT_TRUE(says_address_in_use(
        "(98)Address already in use: AH00072: make_sock: could not bind to address 127.0.0.1:8080\n"));
    EXPECT_TRUE(says_address_in_use("no listening sockets available, shutting down\nAH00015: could not bind\n"));
    EXPECT_TRUE(says_address_in_use("[core:emerg] (98)something\n"));
    EXPECT_FALSE(says_address_in_use("AH00558: apache2: Could not reliably determine the server's name\n"));
    EXPECT_FALSE(says_address_in_use("(13)Permission denied: AH00072: make_sock\n"));
    EXPECT_FALSE(says_address_in_use(""));
}

// dbus-daemon's socket file appears at bind(); only listen() makes it ready.
TEST(UnixSocketTest, ABoundSocketIsReadyOnlyOnceItListens) {
    char dir[] = "/var/tmp/korvex-harness-socket-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string path = std::string(dir) + "/socket";
    EXPECT_FALSE(unix_socket_accepts(path));
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(fd, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());
    ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
    EXPECT_FALSE(unix_socket_accepts(path));
    ASSERT_EQ(listen(fd, 4), 0);
    EXPECT_TRUE(unix_socket_accepts(path));
    close(fd);
    unlink(path.c_str());
    rmdir(dir);
}

class LogFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/var/tmp/korvex-harness-log-XXXXXX";
        const int fd = mkstemp(pattern);
        ASSERT_GE(fd, 0);
        close(fd);
        path_ = pattern;
    }
    void TearDown() override { unlink(path_.c_str()); }
    void append(const std::string &text) { std::ofstream(path_, std::ios::app) << text; }
    std::string path_;
};

TEST_F(LogFileTest, MarksTellWhatAStartUpWrote) {
    append("(98)Address already in use: an earlier start-up\n");
    const LogMarks marks({path_, path_ + ".missing"});
    EXPECT_EQ(marks.since(), "");
    EXPECT_FALSE(says_address_in_use(marks.since()));
    append("AH00489: Apache configured -- resuming normal operations\n");
    EXPECT_EQ(marks.since(), "AH00489: Apache configured -- resuming normal operations\n");
}

TEST_F(LogFileTest, TailShowsTheLastLinesUnderTheFilesName) {
    for (int i = 1; i <= 30; ++i) append("line " + std::to_string(i) + "\n");
    const std::string tail = log_tail(path_, 3);
    EXPECT_EQ(tail, "--- last lines of " + path_ + ":\nline 28\nline 29\nline 30\n");
    EXPECT_EQ(log_tail(path_ + ".missing"), "");
}

TEST(HarnessLogLevelTest, GatewayLevelsBecomeApacheNames) {
    EXPECT_EQ(apache_log_level("5"), "notice");
    EXPECT_EQ(apache_log_level("3"), "debug");
    EXPECT_EQ(apache_log_level("2"), "trace1");
    EXPECT_EQ(apache_log_level("1"), "trace2");
    EXPECT_EQ(apache_log_level("7"), "error");
    EXPECT_EQ(apache_log_level("trace4"), "trace4");
    EXPECT_EQ(apache_log_level("loud"), "");
    EXPECT_EQ(apache_log_level(""), "");
    EXPECT_EQ(platform_log_level("notice"), 5);
    EXPECT_EQ(platform_log_level("warn"), 6);
    EXPECT_EQ(platform_log_level("trace1"), 2);
    EXPECT_EQ(platform_log_level("trace3"), 1);
}

}  // namespace
}  // namespace korvex::harness
