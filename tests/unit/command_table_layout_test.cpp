// The table built from the full command vocabulary: every name found in its bucket, and
// items sharing a bucket lying in their ring in registration order.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "registry/command_table.h"
#include "tests/support/apr_pool_fixture.h"
#include "tests/support/full_catalog.h"

namespace {

using korvex::test::kFullCatalog;

int succeed(request_rec *, char *) { return 1; }

class CommandTableLayout : public korvex::test::AprPoolTest {
protected:
    void SetUp() override {
        AprPoolTest::SetUp();
        for (const std::string &name : kFullCatalog) entries_.push_back(CatalogEntry{name.c_str(), succeed});
        table_ = hash_build(pool_, entries_.data(), static_cast<int>(entries_.size()));
    }
    std::vector<CatalogEntry> entries_;
    HashBucket *table_ = nullptr;
};

TEST_F(CommandTableLayout, HasTheFixedBucketCount) {
    EXPECT_EQ(table_[0].size, 305);
    for (int i = 1; i < 305; ++i) EXPECT_EQ(table_[i].size, 0) << i;
}

TEST_F(CommandTableLayout, EveryNameIsFoundInItsBucket) {
    for (const std::string &name : kFullCatalog) {
        HashItem *item = findItem(table_, name.c_str());
        ASSERT_NE(item, nullptr) << name;
        EXPECT_STREQ(item->name, name.c_str());
        EXPECT_EQ(item->key, hashFunc(name.c_str()));
        EXPECT_EQ(item->index, item->key % 305u);
        EXPECT_EQ(item->handler, &succeed);
    }
    EXPECT_EQ(findItem(table_, "setmac"), nullptr);
    EXPECT_EQ(findItem(table_, ""), nullptr);
    EXPECT_EQ(findItem(table_, nullptr), nullptr);
}

TEST_F(CommandTableLayout, SharedBucketsKeepRegistrationOrder) {
    std::map<std::string, size_t> position;
    for (size_t i = 0; i < kFullCatalog.size(); ++i) position[kFullCatalog[i]] = i;
    int longest = 0;
    for (int bucket = 0; bucket < 305; ++bucket) {
        ListLink *head = &table_[bucket].head;
        int length = 0;
        size_t previous = 0;
        for (ListLink *link = head->next; link != head; link = link->next) {
            EXPECT_EQ(link->next->prev, link) << "ring broken in bucket " << bucket;
            const HashItem *item = KORVEX_CONTAINER_OF(link, HashItem, link);
            EXPECT_EQ(item->index, static_cast<uint32_t>(bucket));
            const size_t here = position.at(item->name);
            if (length > 0) {
                EXPECT_GT(here, previous) << item->name << " in bucket " << bucket;
            }
            previous = here;
            ++length;
        }
        if (length == 0) {
            EXPECT_TRUE(list_empty(head));
        }
        longest = std::max(longest, length);
    }
    EXPECT_EQ(longest, 3);
}

}  // namespace
