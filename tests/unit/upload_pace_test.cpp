#include "module/upload_pace.h"

#include <gtest/gtest.h>

namespace korvex {
namespace {

constexpr apr_time_t kStart = apr_time_from_sec(1000);

apr_time_t at_ms(long ms) { return kStart + ms * 1000; }

TEST(UploadPaceTest, AWindowThatRunsOutIsTooSlow) {
    UploadPace pace(kStart);
    EXPECT_EQ(pace.wait_left(kStart), kPaceWindow);
    pace.took(kPaceBytes - 1, at_ms(9000));
    EXPECT_EQ(pace.wait_left(at_ms(9000)), apr_time_from_sec(1));
    EXPECT_FALSE(pace.too_slow(at_ms(9999)));
    EXPECT_TRUE(pace.too_slow(at_ms(10000)));
}

// poll() waits whole milliseconds, rounded down: a read given 999.7 ms would time out
// at 999 ms, before the window ends. Rounded up, the time-out comes at or after its end.
TEST(UploadPaceTest, TheWaitIsWholeMillisecondsThatReachTheWindowsEnd) {
    UploadPace pace(kStart);
    pace.took(kPaceBytes - 1, at_ms(9000));
    const apr_time_t now = kStart + 9000300;
    const apr_interval_time_t wait = pace.wait_left(now);
    EXPECT_EQ(wait, apr_time_from_sec(1));
    EXPECT_EQ(wait % 1000, 0);
    EXPECT_FALSE(pace.too_slow(now + wait - 1000));
    EXPECT_TRUE(pace.too_slow(now + wait));
    EXPECT_EQ(pace.wait_left(kStart + 9999300), 1000);
}

TEST(UploadPaceTest, EnoughBytesStartTheNextWindow) {
    UploadPace pace(kStart);
    pace.took(kPaceBytes - 1, at_ms(5000));
    pace.took(1, at_ms(9000));
    // The next window runs from 9 s.
    EXPECT_FALSE(pace.too_slow(at_ms(18999)));
    EXPECT_EQ(pace.wait_left(at_ms(10000)), apr_time_from_sec(9));
    EXPECT_TRUE(pace.too_slow(at_ms(19000)));
}

TEST(UploadPaceTest, ADripIsGivenUpAfterOneWindow) {
    UploadPace pace(kStart);
    long now = 0;
    while (!pace.too_slow(at_ms(now))) {
        now += 3000;
        pace.took(1, at_ms(now));
        ASSERT_LT(now, 60000);
    }
    EXPECT_EQ(now, 12000);
}

TEST(UploadPaceTest, AFastUploadNeverRunsOut) {
    UploadPace pace(kStart);
    for (long ms = 1; ms < 600000; ms += 50) {
        pace.took(8192, at_ms(ms));
        ASSERT_FALSE(pace.too_slow(at_ms(ms))) << ms;
        ASSERT_GT(pace.wait_left(at_ms(ms)), apr_time_from_sec(9));
    }
}

TEST(UploadPaceTest, EveryReadMayWaitAtLeastAMillisecond) {
    UploadPace pace(kStart);
    EXPECT_EQ(pace.wait_left(at_ms(10000)), 1000);
    EXPECT_EQ(pace.wait_left(at_ms(60000)), 1000);
}

}  // namespace
}  // namespace korvex
