#include "module/body_buffer.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/apr_pool_fixture.h"

namespace korvex {
namespace {

class BodyBufferTest : public test::AprPoolTest {};

TEST(ContentLengthTest, AcceptsDecimalDigitsOnly) {
    apr_off_t length = -7;
    EXPECT_TRUE(parse_content_length("0", &length));
    EXPECT_EQ(length, 0);
    EXPECT_TRUE(parse_content_length("0012345", &length));
    EXPECT_EQ(length, 12345);
    EXPECT_TRUE(parse_content_length("9223372036854775807", &length));
    EXPECT_EQ(length, 9223372036854775807LL);

    for (const char *bad : {"", "-1", "+5", " 5", "5 ", "12abc", "abc", "0x10",
                            "9223372036854775808", "99999999999999999999999"}) {
        length = -7;
        EXPECT_FALSE(parse_content_length(bad, &length)) << bad;
        EXPECT_EQ(length, -7) << bad;
    }
    EXPECT_FALSE(parse_content_length(nullptr, &length));
}

TEST(BodyBoundTest, DeclaredLengthBoundedByServerLimit) {
    EXPECT_EQ(body_bound(100, 0), 100);
    EXPECT_EQ(body_bound(100, 50), 50);
    EXPECT_EQ(body_bound(100, 1000), 100);
    EXPECT_EQ(body_bound(0, 1000), 0);
    // An absurd declared length never exceeds the module's own limit.
    EXPECT_EQ(body_bound(apr_off_t{1} << 60, 0), kModuleBodyLimit);
}

TEST(BodyBoundTest, UnknownLengthReadsUpToTheLimit) {
    EXPECT_EQ(body_bound(-1, 0), kModuleBodyLimit);
    EXPECT_EQ(body_bound(-1, 4096), 4096);
}

// Apache 2.4.54 and later default LimitRequestBody to 1 GiB: the module's limit still wins.
TEST(BodyBoundTest, TheSmallerOfTheServersAndTheModulesLimitWins) {
    EXPECT_EQ(kModuleBodyLimit, 1024 * 1024);
    EXPECT_EQ(body_limit(0), kModuleBodyLimit);
    EXPECT_EQ(body_limit(apr_off_t{1} << 30), kModuleBodyLimit);
    EXPECT_EQ(body_limit(kModuleBodyLimit + 1), kModuleBodyLimit);
    EXPECT_EQ(body_limit(4096), 4096);
    EXPECT_EQ(body_bound(kModuleBodyLimit + 1, apr_off_t{1} << 30), kModuleBodyLimit);
}

TEST_F(BodyBufferTest, ADeclaredLengthIsHeldInOneBlockOfItsSize) {
    BodyBuffer buffer(pool_, 100000);
    ASSERT_TRUE(buffer.expect(100000));
    EXPECT_EQ(buffer.capacity(), 100000u);
    const std::string piece(8192, 'x');
    for (int i = 0; i < 12; ++i) ASSERT_TRUE(buffer.append(piece.data(), piece.size()));
    EXPECT_EQ(buffer.capacity(), 100000u);
}

TEST_F(BodyBufferTest, EmptyBodyIsEmptyText) {
    BodyBuffer buffer(pool_, 0);
    char *text = buffer.finish();
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "");
    EXPECT_TRUE(buffer.append("", 0));
}

TEST_F(BodyBufferTest, SmallDeclaredLengthAllocatesOnlyThat) {
    BodyBuffer buffer(pool_, 5);
    EXPECT_TRUE(buffer.append("ab", 2));
    EXPECT_EQ(buffer.capacity(), 5u);
    EXPECT_TRUE(buffer.append("cde", 3));
    EXPECT_STREQ(buffer.finish(), "abcde");
    EXPECT_EQ(buffer.size(), 5u);
}

TEST_F(BodyBufferTest, GrowsByDoublingAsDataArrives) {
    BodyBuffer buffer(pool_, apr_off_t{1} << 40);  // a huge declared length allocates nothing up front
    EXPECT_EQ(buffer.capacity(), 0u);
    const std::string piece(8192, 'x');
    std::string expected;
    apr_size_t last_capacity = 0;
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(buffer.append(piece.data(), piece.size()));
        expected += piece;
        EXPECT_GE(buffer.capacity(), buffer.size());
        EXPECT_LE(buffer.capacity(), 2 * buffer.size());
        if (buffer.capacity() != last_capacity && last_capacity != 0) {
            EXPECT_EQ(buffer.capacity(), 2 * last_capacity);
        }
        last_capacity = buffer.capacity();
    }
    EXPECT_EQ(buffer.capacity(), 16u * 8192u);
    char *text = buffer.finish();
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::string(text), expected);
}

TEST_F(BodyBufferTest, GrowthStopsAtTheBound) {
    BodyBuffer buffer(pool_, 10000);
    const std::string piece(8192, 'y');
    ASSERT_TRUE(buffer.append(piece.data(), piece.size()));
    ASSERT_TRUE(buffer.append(piece.data(), 1808));
    EXPECT_EQ(buffer.capacity(), 10000u);
    EXPECT_EQ(buffer.size(), 10000u);
    EXPECT_EQ(std::string(buffer.finish()), std::string(10000, 'y'));
}

TEST_F(BodyBufferTest, BytesBeyondTheBoundFailTheBody) {
    BodyBuffer buffer(pool_, 10);
    EXPECT_TRUE(buffer.append("0123456789", 10));
    EXPECT_FALSE(buffer.append("X", 1));
    EXPECT_TRUE(buffer.failed());
    EXPECT_TRUE(buffer.over_bound());
    EXPECT_EQ(buffer.size(), 10u);
    EXPECT_FALSE(buffer.append("", 0));
    EXPECT_EQ(buffer.finish(), nullptr);
}

TEST_F(BodyBufferTest, PieceStraddlingTheBoundIsDroppedWhole) {
    BodyBuffer buffer(pool_, 10);
    EXPECT_TRUE(buffer.append("01234", 5));
    EXPECT_FALSE(buffer.append("567890", 6));
    EXPECT_EQ(buffer.size(), 5u);
    EXPECT_EQ(buffer.finish(), nullptr);
}

TEST_F(BodyBufferTest, ChunkedBodyReadsUpToTheServerLimit) {
    BodyBuffer buffer(pool_, body_bound(-1, 20000));
    const std::string piece(4000, 'c');
    for (int i = 0; i < 5; ++i) ASSERT_TRUE(buffer.append(piece.data(), piece.size()));
    EXPECT_FALSE(buffer.append("c", 1));
    EXPECT_EQ(buffer.finish(), nullptr);
}

TEST_F(BodyBufferTest, BinaryDataKeptAndTerminated) {
    const char data[] = {'a', '\0', 'b', '\r', '\n'};
    BodyBuffer buffer(pool_, sizeof data);
    ASSERT_TRUE(buffer.append(data, sizeof data));
    char *text = buffer.finish();
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::string(text, sizeof data), std::string(data, sizeof data));
    EXPECT_EQ(text[sizeof data], '\0');
}

}  // namespace
}  // namespace korvex
