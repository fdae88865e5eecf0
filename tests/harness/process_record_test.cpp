// Records of the processes the gateway harness starts, and stopping by them.
#include "sim/harness/process_record.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include "sim/harness/launch.h"
#include "sim/harness/owner_watch.h"

namespace korvex::harness {
namespace {

using Clock = std::chrono::steady_clock;

class ProcessRecordTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/var/tmp/korvex-harness-records-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        run_dir_ = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(run_dir_); }
    std::string run_dir_;
};

TEST_F(ProcessRecordTest, ARecordMatchesItsProcessWhileItRuns) {
    const ProcessRecords records(run_dir_);
    const pid_t sleeper = launch({{"sleep", "30"}});
    records.record("sleeper", sleeper);
    EXPECT_EQ(records.live_pid("sleeper"), sleeper);
    EXPECT_EQ(records.names(), std::vector<std::string>{"sleeper"});
    EXPECT_TRUE(records.stop("sleeper", 5));
    EXPECT_EQ(records.live_pid("sleeper"), 0);
    EXPECT_TRUE(records.names().empty());
    EXPECT_EQ(reap_if_child(sleeper), 128 + SIGTERM);
}

TEST_F(ProcessRecordTest, AReusedPidDoesNotMatch) {
    const ProcessRecords records(run_dir_);
    // This very process with another start time: what a pid handed to a new process looks like.
    std::ofstream(records.dir() + "/stale") << getpid() << " 1\n";
    EXPECT_EQ(records.live_pid("stale"), 0);
    // stop() signals nothing then: this process is still here to check it.
    records.stop("stale", 1);
    EXPECT_TRUE(records.names().empty());
}

TEST_F(ProcessRecordTest, AProcessIgnoringSigtermIsKilledWithinTheBound) {
    const ProcessRecords records(run_dir_);
    const pid_t stubborn = launch({{"sh", "-c", "trap '' TERM; echo up; while :; do sleep 1; done"}, {},
                                   run_dir_ + "/stubborn.log"});
    records.record("stubborn", stubborn);
    // Wait for the trap before signalling.
    const auto started = Clock::now();
    while (std::ifstream(run_dir_ + "/stubborn.log").peek() == EOF && Clock::now() - started < std::chrono::seconds(5))
        usleep(10000);
    const auto before = Clock::now();
    EXPECT_FALSE(records.stop("stubborn", 1));
    EXPECT_LT(Clock::now() - before, std::chrono::seconds(4));
    EXPECT_FALSE(process_alive(stubborn));
}

TEST_F(ProcessRecordTest, AGroupStopEndsTheLeadersChildrenToo) {
    const ProcessRecords records(run_dir_);
    const std::string child_file = run_dir_ + "/child.pid";
    const pid_t leader =
        launch({{"sh", "-c", "sleep 60 & echo $! >" + child_file + "; wait"}});
    records.record("leader", leader);
    const auto started = Clock::now();
    while (std::ifstream(child_file).peek() == EOF && Clock::now() - started < std::chrono::seconds(5)) usleep(10000);
    pid_t child = 0;
    std::ifstream(child_file) >> child;
    ASSERT_GT(child, 0);
    EXPECT_TRUE(process_alive(child));
    records.stop("leader", 5, true);
    const auto stopped = Clock::now();
    while (process_alive(child) && Clock::now() - stopped < std::chrono::seconds(5)) usleep(10000);
    EXPECT_FALSE(process_alive(child));
}

TEST_F(ProcessRecordTest, AGoneOwnerIsNoticed) {
    const ProcessRecords records(run_dir_);
    EXPECT_FALSE(owner_gone(run_dir_));  // no owner recorded: nobody to miss
    records.record("owner", getpid());
    EXPECT_FALSE(owner_gone(run_dir_));
    const pid_t owner = launch({{"true"}});
    records.record("owner", owner);
    const auto started = Clock::now();
    while (reap_if_child(owner) == -1 && Clock::now() - started < std::chrono::seconds(5)) usleep(10000);
    EXPECT_TRUE(owner_gone(run_dir_));
}

TEST(LaunchTest, CapturesOutputAndStatus) {
    int status = -2;
    EXPECT_EQ(run_capture({"sh", "-c", "echo hello; exit 4"}, &status), "hello\n");
    EXPECT_EQ(status, 4);
    EXPECT_EQ(run_capture({"sleep", "5"}, &status, 100), "");
    EXPECT_EQ(status, -1);
}

}  // namespace
}  // namespace korvex::harness
