#include "commands/app/timezone_mapping.h"

#include <gtest/gtest.h>

#include <cctype>
#include <set>
#include <string>

#include "korvex_utils.h"

namespace {

using korvex::TimeZoneTable;
using korvex::timezone_number;

// A table whose third name is itself a number text, to show that the walk goes on after a
// match and compares the number text with the remaining names.
const char *const kChainNames[] = {"AAA", "BBB", "1", "CCC", "4"};
int chain_count() { return 5; }
const char *chain_name(int i) { return i >= 0 && i < 5 ? kChainNames[i] : nullptr; }
const TimeZoneTable kChain{chain_count, chain_name};

// The size is asked anew before each step: a table that grows while it is walked.
int g_growing_calls = 0;
int growing_count() { return ++g_growing_calls < 3 ? 2 : 3; }
const char *growing_name(int i) { return i == 2 ? "late" : "early"; }

TEST(TimeZoneMapping, ThirdPlatformZoneIsThree) {
    ASSERT_GE(sdk_tz_count(), 3);
    EXPECT_EQ(timezone_number(sdk_tz_get(2)), 3);
}

// Zones that share a string (Mountain Time and Arizona) map to the first of them.
TEST(TimeZoneMapping, EveryPlatformZoneMapsToTheFirstPositionOfItsString) {
    for (int i = 0; i < sdk_tz_count(); ++i) {
        int first = i;
        for (int j = 0; j < i; ++j) {
            if (std::string(sdk_tz_get(j)) == sdk_tz_get(i)) {
                first = j;
                break;
            }
        }
        EXPECT_EQ(timezone_number(sdk_tz_get(i)), first + 1) << sdk_tz_get(i);
    }
}

TEST(TimeZoneMapping, PlatformTableHasTwoZonesSharingOneString) {
    std::set<std::string> seen;
    int shared = 0;
    for (int i = 0; i < sdk_tz_count(); ++i) {
        if (!seen.insert(sdk_tz_get(i)).second) ++shared;
    }
    EXPECT_EQ(shared, 1);
}

TEST(TimeZoneMapping, UnknownNameIsZero) {
    EXPECT_EQ(timezone_number("Mars/Olympus_Mons"), 0);
    EXPECT_EQ(timezone_number(""), 0);
}

TEST(TimeZoneMapping, ComparisonIsExactAndCaseSensitive) {
    const char *first = sdk_tz_get(0);
    ASSERT_NE(first, nullptr);
    std::string lower(first);
    for (char &c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    ASSERT_NE(lower, first);
    EXPECT_EQ(timezone_number(lower.c_str()), 0);
    EXPECT_EQ(timezone_number((std::string(first) + " ").c_str()), 0);
}

TEST(TimeZoneMapping, NumberTextIsItsNumber) {
    EXPECT_EQ(timezone_number("5"), 5);
    EXPECT_EQ(timezone_number("12abc"), 12);
    EXPECT_EQ(timezone_number("-3"), -3);
}

TEST(TimeZoneMapping, NullTextIsZero) { EXPECT_EQ(timezone_number(nullptr), 0); }

TEST(TimeZoneMapping, WalkContinuesAfterAMatch) {
    // "AAA" matches zone 0 and becomes "1"; "1" matches zone 2 and becomes "3".
    EXPECT_EQ(timezone_number("AAA", kChain), 3);
    // "CCC" becomes "4", which zone 4 then turns into "5".
    EXPECT_EQ(timezone_number("CCC", kChain), 5);
    // A number text that names a later zone is mapped as well.
    EXPECT_EQ(timezone_number("1", kChain), 3);
    // "BBB" becomes "2", which no later zone names.
    EXPECT_EQ(timezone_number("BBB", kChain), 2);
}

TEST(TimeZoneMapping, SizeIsAskedBeforeEachStep) {
    g_growing_calls = 0;
    EXPECT_EQ(timezone_number("late", TimeZoneTable{growing_count, growing_name}), 3);
}

}  // namespace
