// MAC addresses: parsing as sscanf reads "%02x:..." and the names derived from them.
#include "commands/system/mac_address.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/apr_pool_fixture.h"

namespace {

using korvex::mac::Address;

class MacAddress : public korvex::test::AprPoolTest {
protected:
    std::string text(const char *value) {
        Address address{};
        if (!korvex::mac::parse(value, &address)) return "<refused>";
        return korvex::mac::colon_text(pool_, address);
    }
    Address parsed(const char *value) {
        Address address{};
        EXPECT_TRUE(korvex::mac::parse(value, &address)) << value;
        return address;
    }
};

TEST_F(MacAddress, SixFieldsInEitherCasePrintInLowerCase) {
    EXPECT_EQ(text("00:4F:61:aB:cd:EF"), "00:4f:61:ab:cd:ef");
}

TEST_F(MacAddress, SingleDigitFieldsPrintWithTwoDigits) { EXPECT_EQ(text("0:1:2:3:a:F"), "00:01:02:03:0a:0f"); }

TEST_F(MacAddress, FewerThanSixFieldsAreRefused) {
    for (const char *value : {"", "00:11:22", "00:11:22:33:44", "zz:11:22:33:44:55", "00-11-22-33-44-55",
                              "00:11:22:33:44:"}) {
        EXPECT_EQ(text(value), "<refused>") << value;
    }
}

TEST_F(MacAddress, AFieldTakesAtMostTwoDigits) {
    // "123" is read as "12", and the "3" where a colon belongs ends the parse.
    EXPECT_EQ(text("123:45:67:89:ab:cd"), "<refused>");
    // What follows the sixth field is not looked at.
    EXPECT_EQ(text("00:11:22:33:44:556"), "00:11:22:33:44:55");
}

TEST_F(MacAddress, FieldsAreReducedModulo256) {
    // sscanf's %x takes a sign: "-1" is the full-width value that 256 reduces to ff.
    EXPECT_EQ(text("-1:00:00:00:00:00"), "ff:00:00:00:00:00");
}

TEST_F(MacAddress, TheNextAddressHasNoCarry) {
    EXPECT_EQ(std::string(korvex::mac::colon_text(pool_, korvex::mac::next_in_block(parsed("00:4f:61:12:34:56")))),
              "00:4f:61:12:34:57");
    EXPECT_EQ(std::string(korvex::mac::colon_text(pool_, korvex::mac::next_in_block(parsed("00:11:22:33:44:ff")))),
              "00:11:22:33:44:100");
}

TEST_F(MacAddress, ReversedText) {
    EXPECT_STREQ(korvex::mac::colon_text_reversed(pool_, parsed("00:11:22:33:44:55")), "55:44:33:22:11:00");
}

TEST_F(MacAddress, TheSkylaneBlockGetsTheDashedSsid) {
    EXPECT_EQ(std::string(korvex::mac::default_ssid(pool_, "QTR58", parsed("00:4f:61:12:34:57"))),
              "skylane-00-4f-61-12-34-57");
    EXPECT_EQ(std::string(korvex::mac::default_ssid(pool_, "QTR58", parsed("00:4F:61:00:00:00"))),
              "skylane-00-4f-61-00-00-00");
}

TEST_F(MacAddress, OtherBlocksGetTheModelAndTheAddress) {
    EXPECT_EQ(std::string(korvex::mac::default_ssid(pool_, "QTR58", parsed("00:4f:62:12:34:57"))),
              "QTR58-00:4f:62:12:34:57");
    EXPECT_EQ(std::string(korvex::mac::default_ssid(pool_, nullptr, parsed("01:4f:61:12:34:57"))),
              "(null)-01:4f:61:12:34:57");
}

}  // namespace
