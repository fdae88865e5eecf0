#include "base/record_thinner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace korvex {
namespace {

using Clock = RecordThinner::Clock;
using std::chrono::milliseconds;

struct Lines : RecordThinner::Output {
    std::vector<std::string> lines;
    void record(int level, const char *text, std::size_t length) override {
        lines.push_back(std::to_string(level) + " " + std::string(text, length));
    }
    void left_out(int level, unsigned count, const char *sample) override {
        lines.push_back(std::to_string(level) + " left out " + std::to_string(count) + ": " + sample);
    }
};

class RecordThinnerTest : public ::testing::Test {
protected:
    void submit(std::uint64_t key, const std::string &text, long at_ms, int level = 6) {
        thinner.submit(key, level, text.data(), text.size(), start + milliseconds(at_ms), out);
    }
    RecordThinner thinner;
    Lines out;
    const Clock::time_point start = Clock::now();
};

TEST_F(RecordThinnerTest, DifferentKeysAreWrittenEachTime) {
    submit(1, "a", 0);
    submit(2, "b", 0);
    submit(3, "c", 1);
    EXPECT_EQ(out.lines, (std::vector<std::string>{"6 a", "6 b", "6 c"}));
}

TEST_F(RecordThinnerTest, OneRecordPerSecondAndACountOfTheRest) {
    for (int i = 0; i < 50; ++i) submit(7, "no reply " + std::to_string(i), i * 10);
    EXPECT_EQ(out.lines, (std::vector<std::string>{"6 no reply 0"}));
    submit(7, "no reply again", 1000);
    EXPECT_EQ(out.lines,
              (std::vector<std::string>{"6 no reply 0", "6 left out 49: no reply 0", "6 no reply again"}));
}

TEST_F(RecordThinnerTest, ALastingFaultWaitsLongerEachTimeUpToAMinute) {
    // A record every 100 ms for ten minutes.
    for (long at = 0; at < 600000; at += 100) submit(7, "down", at);
    size_t records = 0;
    for (const std::string &line : out.lines) records += line == "6 down";
    // 0, 1, 3, 7, 15, 31, 63 s, then every 60 s: 7 + 8 records in ten minutes.
    EXPECT_EQ(records, 15u);
    EXPECT_LE(out.lines.size(), 2 * records);
}

TEST_F(RecordThinnerTest, AQuietIntervalStartsAgainAtOneSecond) {
    for (long at = 0; at < 4000; at += 100) submit(7, "down", at);  // writes at 0, 1 and 3 s
    submit(7, "down", 4100);                                         // held: the interval is 4 s now
    submit(7, "down", 20000);                                        // reported and written
    submit(7, "down", 30000);                                        // nothing held since: 1 s again
    submit(7, "down", 30500);
    submit(7, "down", 31600);
    EXPECT_EQ(out.lines, (std::vector<std::string>{"6 down", "6 left out 9: down", "6 down", "6 left out 19: down",
                                                   "6 down", "6 left out 10: down", "6 down", "6 down",
                                                   "6 left out 1: down", "6 down"}));
}

TEST_F(RecordThinnerTest, HeldBackCountsOfOtherKeysAreReportedOnceTheirIntervalIsOver) {
    submit(1, "first", 0);
    submit(1, "first", 100);
    submit(1, "first", 200);
    submit(2, "other", 1500);
    EXPECT_EQ(out.lines, (std::vector<std::string>{"6 first", "6 other", "6 left out 2: first"}));
}

TEST_F(RecordThinnerTest, ARecordKeepsItsLevelInItsCount) {
    submit(1, "notice", 0, 5);
    submit(1, "notice", 10, 5);
    submit(1, "notice", 1010, 5);
    EXPECT_EQ(out.lines, (std::vector<std::string>{"5 notice", "5 left out 1: notice", "5 notice"}));
}

TEST_F(RecordThinnerTest, ManyKeysReuseTheSlotWrittenLongestAgoAfterReportingIt) {
    submit(100, "old", 0);
    submit(100, "old", 1);
    for (std::uint64_t key = 0; key < RecordThinner::kKeys; ++key) submit(key, "k" + std::to_string(key), 2 + key);
    EXPECT_EQ(out.lines[1], "6 k0");
    EXPECT_NE(std::find(out.lines.begin(), out.lines.end(), "6 left out 1: old"), out.lines.end());
    EXPECT_EQ(out.lines.size(), 1 + RecordThinner::kKeys + 1);
}

TEST_F(RecordThinnerTest, TheSampleIsCutToItsSize) {
    const std::string long_text(1000, 'x');
    submit(1, long_text, 0);
    submit(1, long_text, 1);
    submit(1, long_text, 1001);
    EXPECT_EQ(out.lines[0], "6 " + long_text);
    EXPECT_EQ(out.lines[1], "6 left out 1: " + std::string(RecordThinner::kSampleBytes - 1, 'x'));
}

}  // namespace
}  // namespace korvex
