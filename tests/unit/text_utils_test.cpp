// The in-place text helpers of the settings commands.
#include "commands/system/text_utils.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(StringToLowerCase, LowersAsciiLettersInPlaceAndReturnsTheSameBuffer) {
    char text[] = "Sta AP-Off_09";
    EXPECT_EQ(stringToLowerCase(text), text);
    EXPECT_STREQ(text, "sta ap-off_09");
}

TEST(StringToLowerCase, OnlyTheBytesFromAToZChange) {
    std::string all;
    for (int c = 1; c < 256; ++c) all += static_cast<char>(c);
    std::string lowered = all;
    stringToLowerCase(&lowered[0]);
    for (int c = 1; c < 256; ++c) {
        const unsigned char expected = (c >= 'A' && c <= 'Z') ? static_cast<unsigned char>(c + 32) : c;
        EXPECT_EQ(static_cast<unsigned char>(lowered[c - 1]), expected) << "byte " << c;
    }
}

TEST(StringToLowerCase, BytesAbove127AreLeftAlone) {
    char text[] = "\xC3\x84\xC3\x96 \xC9\xC0Z";  // "ÄÖ" in UTF-8, then two Latin-1 capitals
    stringToLowerCase(text);
    EXPECT_STREQ(text, "\xC3\x84\xC3\x96 \xC9\xC0z");
}

TEST(StringToLowerCase, EmptyTextStaysEmpty) {
    char text[] = "";
    EXPECT_STREQ(stringToLowerCase(text), "");
}

TEST(TrimWhiteSpace, AllSixWhiteSpaceBytesAreTrimmedOnBothSides) {
    char text[] = " \t\n\v\f\rGuest Network\r\f\v\n\t ";
    EXPECT_STREQ(trimwhitespace(text), "Guest Network");
}

TEST(TrimWhiteSpace, ReturnsAPointerIntoTheBufferAndEndsItThere) {
    char text[] = "  ab c  ";
    char *trimmed = trimwhitespace(text);
    EXPECT_EQ(trimmed, text + 2);
    EXPECT_EQ(text[6], '\0');
}

TEST(TrimWhiteSpace, InnerWhiteSpaceStays) {
    char text[] = "\tFRITZ!Box\t7590  KL\n";
    EXPECT_STREQ(trimwhitespace(text), "FRITZ!Box\t7590  KL");
}

TEST(TrimWhiteSpace, AllBlankTextGivesItsTerminatingZero) {
    char text[] = " \t\n\v\f\r";
    char *trimmed = trimwhitespace(text);
    EXPECT_EQ(trimmed, text + 6);
    EXPECT_STREQ(trimmed, "");
}

TEST(TrimWhiteSpace, OtherBytesAreNotWhiteSpace) {
    char text[] = "\x01x\xA0";  // a control byte and a Latin-1 no-break space
    EXPECT_STREQ(trimwhitespace(text), "\x01x\xA0");
}

TEST(TrimWhiteSpace, EmptyAndUntouchedTexts) {
    char empty[] = "";
    EXPECT_STREQ(trimwhitespace(empty), "");
    char plain[] = "x";
    EXPECT_EQ(trimwhitespace(plain), plain);
    EXPECT_STREQ(plain, "x");
}

}  // namespace
