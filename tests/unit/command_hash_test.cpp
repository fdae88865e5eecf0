// The command hash and the bucket layout it gives the full command catalog.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "registry/command_table.h"
#include "tests/support/full_catalog.h"

namespace {

TEST(CommandHash, KnownKeys) {
    EXPECT_EQ(hashFunc("test"), 6018388u);
    EXPECT_EQ(hashFunc("test") % 305u, 128u);
    EXPECT_EQ(hashFunc("json") % 305u, 0u);
    EXPECT_EQ(hashFunc("setMAC"), 3874861653u);
    EXPECT_EQ(hashFunc("setMAC") % 305u, 133u);
    EXPECT_EQ(hashFunc(""), 0u);
}

TEST(CommandHash, BytesAbove127SubtractAsSignedChars) {
    // 0xC3 counts as -61, 0xA9 as -87.
    const uint32_t expected = static_cast<uint32_t>(-61) * 37u + static_cast<uint32_t>(-87);
    EXPECT_EQ(hashFunc("\xC3\xA9"), expected);
}

TEST(CommandHash, WrapsModulo2To32) {
    std::string long_name(1500, 'z');
    uint32_t h = 0;
    for (char c : long_name) h = h * 37u + static_cast<uint32_t>(c);
    EXPECT_EQ(hashFunc(long_name.c_str()), h);
}

TEST(CommandHash, FullCatalogBucketFacts) {
    ASSERT_EQ(korvex::test::kFullCatalog.size(), 152u);
    EXPECT_EQ(std::set<std::string>(korvex::test::kFullCatalog.begin(), korvex::test::kFullCatalog.end()).size(), 152u);
    std::map<uint32_t, int> per_bucket;
    for (const auto &name : korvex::test::kFullCatalog) ++per_bucket[hashFunc(name.c_str()) % 305u];
    int shared_by_two = 0, shared_by_three = 0, longest = 0;
    for (const auto &bucket : per_bucket) {
        if (bucket.second == 2) ++shared_by_two;
        if (bucket.second == 3) ++shared_by_three;
        longest = std::max(longest, bucket.second);
    }
    EXPECT_EQ(per_bucket.size(), 123u);
    EXPECT_EQ(shared_by_two, 27);
    EXPECT_EQ(shared_by_three, 1);
    EXPECT_EQ(longest, 3);
}

TEST(CommandHash, NamesAreCaseSensitive) {
    EXPECT_NE(hashFunc("setMAC"), hashFunc("setmac"));
}

}  // namespace
