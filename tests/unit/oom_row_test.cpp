#include "commands/oom_row.h"

#include <gtest/gtest.h>

#include "tests/support/apr_pool_fixture.h"

namespace {

using OomRow = korvex::test::AprPoolTest;

TEST_F(OomRow, ScoreAndPidRightAlignedInFourColumns) {
    EXPECT_STREQ(korvex::format_oom_row(pool_, "15", 812, "korvex-sdk"), "  15  812 korvex-sdk<br>");
}

TEST_F(OomRow, WideFieldsAreNotCut) {
    EXPECT_STREQ(korvex::format_oom_row(pool_, "-1000", 123456, "app"), "-1000 123456 app<br>");
}

TEST_F(OomRow, PidIsUnsigned) {
    EXPECT_STREQ(korvex::format_oom_row(pool_, "0", 0xFFFFFFFFu, "x"), "   0 4294967295 x<br>");
}

TEST_F(OomRow, MissingFieldsAreWrittenAsNullMarker) {
    EXPECT_STREQ(korvex::format_oom_row(pool_, nullptr, 7, nullptr), "(null)    7 (null)<br>");
}

TEST_F(OomRow, EmptyTexts) { EXPECT_STREQ(korvex::format_oom_row(pool_, "", 1, ""), "        1 <br>"); }

}  // namespace
