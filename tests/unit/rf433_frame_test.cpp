// The two 433 MHz test frames: their length, their fixed parts and the one bit that
// tells on from off.
#include "commands/system/rf433_frame.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

using korvex::rf433::frame;
using korvex::rf433::kOffCode;
using korvex::rf433::kOnCode;

std::vector<std::string> bytes_of(const std::string &text) {
    std::vector<std::string> bytes;
    std::istringstream in(text);
    for (std::string byte; std::getline(in, byte, ',');) bytes.push_back(byte);
    return bytes;
}

TEST(Rf433Frame, BothFramesHave134BytesIn401Characters) {
    for (uint32_t code : {kOnCode, kOffCode}) {
        const std::string text = frame(code);
        EXPECT_EQ(text.size(), 401u);
        const std::vector<std::string> bytes = bytes_of(text);
        ASSERT_EQ(bytes.size(), 134u);
        for (const std::string &byte : bytes) {
            ASSERT_EQ(byte.size(), 2u) << byte;
            EXPECT_EQ(byte.find_first_not_of("0123456789abcdef"), std::string::npos) << byte;
        }
    }
}

TEST(Rf433Frame, HeaderStartAndBitsMostSignificantFirst) {
    const std::vector<std::string> bytes = bytes_of(frame(kOnCode));
    EXPECT_EQ(std::vector<std::string>(bytes.begin(), bytes.begin() + 6),
              (std::vector<std::string>{"01", "00", "14", "18", "ff", "18"}));
    for (int bit = 0; bit < 32; ++bit) {
        const bool one = ((kOnCode >> (31 - bit)) & 1u) != 0;
        const std::vector<std::string> symbol(bytes.begin() + 6 + 4 * bit, bytes.begin() + 10 + 4 * bit);
        EXPECT_EQ(symbol, one ? (std::vector<std::string>{"7f", "18", "18", "18"})
                              : (std::vector<std::string>{"18", "18", "7f", "18"}))
            << "bit " << bit;
    }
}

TEST(Rf433Frame, TheFramesOfOnAndOffDifferOnlyInBitFour) {
    EXPECT_EQ(kOnCode ^ kOffCode, 0x10u);
    const std::vector<std::string> on = bytes_of(frame(kOnCode));
    const std::vector<std::string> off = bytes_of(frame(kOffCode));
    ASSERT_EQ(on.size(), off.size());
    // Bit 4 is the 28th bit sent (most significant first): bytes 6 + 4 * 27 to 6 + 4 * 27 + 3.
    const size_t first = 6 + 4 * 27;
    for (size_t i = 0; i < on.size(); ++i) {
        if (i < first || i >= first + 4) {
            EXPECT_EQ(on[i], off[i]) << "byte " << i;
        }
    }
    EXPECT_EQ(std::vector<std::string>(on.begin() + first, on.begin() + first + 4),
              (std::vector<std::string>{"7f", "18", "18", "18"}));
    EXPECT_EQ(std::vector<std::string>(off.begin() + first, off.begin() + first + 4),
              (std::vector<std::string>{"18", "18", "7f", "18"}));
}

TEST(Rf433Frame, ExactOnFrameText) {
    // 0xBAD7D511 = 1011 1010 1101 0111 1101 0101 0001 0001
    const char *bits = "10111010110101111101010100010001";
    std::string expected = "01,00,14,18,ff,18";
    for (const char *b = bits; *b != '\0'; ++b) expected += *b == '1' ? ",7f,18,18,18" : ",18,18,7f,18";
    EXPECT_EQ(frame(kOnCode), expected);
}

}  // namespace
