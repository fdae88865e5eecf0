// The platform log library with a registered sink (as inside Apache) and without one (as
// in every other process), and where the module puts the six levels among Apache's.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "korvex_log.h"
#include "module/apache_log_levels.h"

namespace {

struct Written {
    int level;
    std::string record;
    size_t length;
};

int g_lowest_enabled = KORVEX_LOG_STATE;
std::vector<int> g_asked;
std::vector<Written> g_written;

int fake_enabled(int level) {
    g_asked.push_back(level);
    return level >= g_lowest_enabled;
}

void fake_write(int level, const char *record, size_t length) { g_written.push_back({level, record, length}); }

constexpr korvex_log_sink kFakeSink = {fake_enabled, fake_write};

class LogSink : public ::testing::Test {
protected:
    void SetUp() override {
        g_lowest_enabled = KORVEX_LOG_STATE;
        g_asked.clear();
        g_written.clear();
        korvex_log_set_sink(&kFakeSink);
    }
    void TearDown() override { korvex_log_set_sink(nullptr); }
};

TEST_F(LogSink, GetsTheRecordWithoutPrefixOrTrailingNewline) {
    korvex_log_write(KORVEX_LOG_ERROR, "findItem", 27, "apache", "name: %s, key: %d\n", "test", 6018388);
    ASSERT_EQ(g_written.size(), 1u);
    EXPECT_EQ(g_written[0].level, KORVEX_LOG_ERROR);
    EXPECT_EQ(g_written[0].record, "findItem:27 apache: name: test, key: 6018388");
    EXPECT_EQ(g_written[0].length, g_written[0].record.size());
}

TEST_F(LogSink, OnlyOneTrailingNewlineGoes) {
    korvex_log_write(KORVEX_LOG_ERROR, "f", 1, "apache", "two\n\n");
    korvex_log_write(KORVEX_LOG_ERROR, "f", 2, "apache", "none");
    ASSERT_EQ(g_written.size(), 2u);
    EXPECT_EQ(g_written[0].record, "f:1 apache: two\n");
    EXPECT_EQ(g_written[1].record, "f:2 apache: none");
}

TEST_F(LogSink, DisabledLevelsAreAskedAndDropped) {
    korvex_log_write(KORVEX_LOG_TRACE, "f", 1, "apache", "trace\n");
    korvex_log_write(KORVEX_LOG_REQUEST, "f", 2, "apache", "request\n");
    korvex_log_write(KORVEX_LOG_STATE, "f", 3, "apache", "state\n");
    EXPECT_EQ(g_asked, (std::vector<int>{KORVEX_LOG_TRACE, KORVEX_LOG_REQUEST, KORVEX_LOG_STATE}));
    ASSERT_EQ(g_written.size(), 1u);
    EXPECT_EQ(g_written[0].record, "f:3 apache: state");
}

TEST_F(LogSink, LongRecordsAreCut) {
    const std::string text(5000, 'x');
    korvex_log_write(KORVEX_LOG_ERROR, "f", 1, "apache", "%s\n", text.c_str());
    ASSERT_EQ(g_written.size(), 1u);
    EXPECT_EQ(g_written[0].record, "f:1 apache: " + std::string(2047 - 12, 'x'));
}

TEST_F(LogSink, ThresholdIsTheSinksLowestEnabledLevel) {
    EXPECT_EQ(korvex_log_threshold(), KORVEX_LOG_STATE);
    g_lowest_enabled = KORVEX_LOG_CHILD;
    EXPECT_EQ(korvex_log_threshold(), KORVEX_LOG_CHILD);
    g_lowest_enabled = 0;
    EXPECT_EQ(korvex_log_threshold(), 1);
    g_lowest_enabled = KORVEX_LOG_ERROR + 1;
    EXPECT_EQ(korvex_log_threshold(), KORVEX_LOG_ERROR + 1);
}

TEST_F(LogSink, WithoutASinkRecordsGoToStandardError) {
    korvex_log_set_sink(nullptr);
    testing::internal::CaptureStderr();
    korvex_log_write(KORVEX_LOG_ERROR, "findItem", 27, "apache", "gone\n");
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(g_written.empty());
    EXPECT_EQ(text, "[korvex:6] [pid " + std::to_string(getpid()) + "] findItem:27 apache: gone\n");
}

TEST(ApacheLevel, MapsTheSixLevels) {
    using korvex::apache_log::apache_level;
    EXPECT_EQ(apache_level(KORVEX_LOG_ERROR), APLOG_ERR);
    EXPECT_EQ(apache_level(KORVEX_LOG_ERROR + 1), APLOG_ERR);
    EXPECT_EQ(apache_level(KORVEX_LOG_STATE), APLOG_NOTICE);
    EXPECT_EQ(apache_level(KORVEX_LOG_REQUEST), APLOG_INFO);
    EXPECT_EQ(apache_level(KORVEX_LOG_TRACE), APLOG_DEBUG);
    EXPECT_EQ(apache_level(KORVEX_LOG_CHILD), APLOG_TRACE1);
    EXPECT_EQ(apache_level(1), APLOG_TRACE2);
    EXPECT_EQ(apache_level(0), APLOG_TRACE2);
}

}  // namespace
