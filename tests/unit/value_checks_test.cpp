// The tests settings commands apply to a value before they store it.
#include "commands/system/value_checks.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace korvex;

TEST(Ipv4Address, DottedQuadsAndInetAddrsShortFormsPass) {
    for (const char *value : {"192.168.1.57", "0.0.0.0", "10.1", "10", "0x0a.0.0.1", "012.1.1.1", "1.2.65535",
                              "255.255.255.254"}) {
        EXPECT_TRUE(check::ipv4_address(value)) << value;
    }
}

TEST(Ipv4Address, TheAllOnesAddressAndUnreadableTextFail) {
    for (const char *value : {"255.255.255.255", "", "abc", "1.2.3.4.5", "256.1.1.1", "08.1.1.1",
                              "1..2"}) {
        EXPECT_FALSE(check::ipv4_address(value)) << value;
    }
}

TEST(LeadingInteger, ReadsAsAtoiDoes) {
    EXPECT_EQ(leading_integer("abc"), 0);
    EXPECT_EQ(leading_integer("5min"), 5);
    EXPECT_EQ(leading_integer("  12"), 12);
    EXPECT_EQ(leading_integer("-3x"), -3);
    EXPECT_EQ(leading_integer("+7"), 7);
    EXPECT_EQ(leading_integer(""), 0);
}

TEST(LeadingInteger, SaturatesAtTheIntRange) {
    EXPECT_EQ(leading_integer("4294967296"), 2147483647);
    EXPECT_EQ(leading_integer("99999999999999999999"), 2147483647);
    EXPECT_EQ(leading_integer("-99999999999"), -2147483647 - 1);
}

TEST(ValueChecks, LeadingZeroOrOne) {
    for (const char *value : {"0", "1", "abc", "", "1x", "01"}) EXPECT_TRUE(check::leading_zero_or_one(value)) << value;
    for (const char *value : {"2", "-1", "10", "4294967297"}) EXPECT_FALSE(check::leading_zero_or_one(value)) << value;
}

TEST(ValueChecks, LeadingPositive) {
    for (const char *value : {"1", "5min", "86400"}) EXPECT_TRUE(check::leading_positive(value)) << value;
    for (const char *value : {"0", "", "min5", "-5"}) EXPECT_FALSE(check::leading_positive(value)) << value;
}

TEST(ValueChecks, WanConnectionModeIsExact) {
    EXPECT_TRUE(check::wan_connection_mode("DHCP"));
    EXPECT_TRUE(check::wan_connection_mode("STATIC"));
    for (const char *value : {"dhcp", "Static", "", "DHCP ", "PPPOE"}) {
        EXPECT_FALSE(check::wan_connection_mode(value)) << value;
    }
}

TEST(ValueChecks, WifiTextLengthAllowsThirtyTwoBytes) {
    EXPECT_TRUE(check::wifi_text_length(""));
    EXPECT_TRUE(check::wifi_text_length(std::string(32, 'x').c_str()));
    EXPECT_FALSE(check::wifi_text_length(std::string(33, 'x').c_str()));
}

TEST(ValueChecks, AccountTextLengthAllowsSixtyThreeBytes) {
    EXPECT_TRUE(check::account_text_length(std::string(63, 'x').c_str()));
    EXPECT_FALSE(check::account_text_length(std::string(64, 'x').c_str()));
    // Bytes, not characters: 31 two-byte letters and one byte are 63 bytes.
    std::string letters;
    for (int i = 0; i < 31; ++i) letters += "\xC3\xA9";
    EXPECT_TRUE(check::account_text_length((letters + "x").c_str()));
    EXPECT_FALSE(check::account_text_length((letters + "xy").c_str()));
}

TEST(ValueChecks, NotEmpty) {
    EXPECT_TRUE(check::not_empty(" "));
    EXPECT_FALSE(check::not_empty(""));
}

}  // namespace
