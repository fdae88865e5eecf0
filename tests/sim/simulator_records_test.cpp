// The simulator keeps only its newest records, so that a long run has flat memory.
#include <cstdlib>
#include <fstream>
#include <string>

#include "tests/sim/simulator_fixture.h"

namespace korvex::test {
namespace {

class SimulatorRecordsTest : public SimulatorTest {
protected:
    void call_times(int count, int first = 0) {
        for (int i = first; i < first + count; ++i) {
            const CallOutcome outcome = caller_->call(peer::kSdk, peer::kIfEasyCommand, "name",
                                                      RawBusCaller::str("call " + std::to_string(i)));
            ASSERT_TRUE(outcome.reply != nullptr) << i;
        }
    }
    long simulator_rss_kb() {
        std::ifstream status("/proc/" + std::to_string(bus_->simulator_pid()) + "/status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
        }
        return -1;
    }
};

TEST_F(SimulatorRecordsTest, OnlyTheNewestRecordsAreKept) {
    sim_->set_record_limit(100);
    call_times(250);
    const std::vector<SimRecord> records = sim_->records();
    ASSERT_EQ(records.size(), 100u);
    EXPECT_EQ(records.front().args, std::vector<std::string>{"s:call 150"});
    EXPECT_EQ(records.back().args, std::vector<std::string>{"s:call 249"});
}

TEST_F(SimulatorRecordsTest, ALowerLimitDropsTheOldestAtOnce) {
    call_times(30);
    sim_->set_record_limit(10);
    const std::vector<SimRecord> records = sim_->records();
    ASSERT_EQ(records.size(), 10u);
    EXPECT_EQ(records.front().args, std::vector<std::string>{"s:call 20"});
}

TEST_F(SimulatorRecordsTest, ResetRestoresTheDefaultLimit) {
    sim_->set_record_limit(5);
    sim_->reset();
    call_times(200);
    EXPECT_EQ(sim_->records().size(), 200u);
}

TEST_F(SimulatorRecordsTest, ALimitOfZeroIsRefused) { EXPECT_THROW(sim_->set_record_limit(0), std::runtime_error); }

// Every record kept costs a few hundred bytes: 20,000 more calls without a bound would
// grow the simulator by several megabytes.
TEST_F(SimulatorRecordsTest, MemoryStaysFlatOverTwentyThousandCalls) {
    const char *sanitized = std::getenv("KORVEX_SANITIZE");
    if (sanitized != nullptr && std::string(sanitized) == "1") {
        GTEST_SKIP() << "AddressSanitizer's quarantine keeps freed memory resident";
    }
    sim_->set_record_limit(1000);
    call_times(3000);
    const long before = simulator_rss_kb();
    ASSERT_GT(before, 0);
    call_times(20000, 3000);
    const long after = simulator_rss_kb();
    EXPECT_LT(after - before, 1024) << before << " kB before, " << after << " kB after";
    EXPECT_EQ(sim_->records().size(), 1000u);
}

}  // namespace
}  // namespace korvex::test
