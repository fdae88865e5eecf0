// The command catalog and the table built from it once per process.
#include <cstring>

#include "module/log.h"
#include "registry/command_table.h"
#include "registry/handlers.h"

namespace {

struct CatalogEntry {
    const char *name;
    ApiHandler handler;
};

constexpr CatalogEntry kCatalog[] = {
#define KORVEX_COMMAND(wire_name, handler) {wire_name, handler},
#include "registry/catalog.def"
#undef KORVEX_COMMAND
};

constexpr int kCatalogSize = static_cast<int>(sizeof kCatalog / sizeof kCatalog[0]);
static_assert(korvex::registry::kBucketCount == 2 * 152 + 1, "the table is sized for the full catalog");
static_assert(kCatalogSize <= 152, "the catalog holds at most 152 commands");

}  // namespace

namespace korvex::registry {
int catalog_size() { return kCatalogSize; }
}  // namespace korvex::registry

HashBucket *hash_init(apr_pool_t *pool) {
    KLOG(KORVEX_LOG_TRACE, "enter %s\n", __func__);
    const int bucket_count = korvex::registry::kBucketCount;
    KLOG(KORVEX_LOG_TRACE, "hashItemNum: %d, hashTableSize:%d\n", kCatalogSize, bucket_count);

    auto *table = static_cast<HashBucket *>(apr_pcalloc(pool, sizeof(HashBucket) * bucket_count));
    table[0].size = bucket_count;
    for (int i = 0; i < bucket_count; ++i) INIT_LIST_HEAD(&table[i].head);

    for (const CatalogEntry &entry : kCatalog) {
        auto *item = static_cast<HashItem *>(apr_pcalloc(pool, sizeof(HashItem)));
        std::strncpy(item->name, entry.name, sizeof item->name - 1);
        item->handler = entry.handler;
        item->key = hashFunc(item->name);
        item->index = item->key % static_cast<uint32_t>(bucket_count);
        INIT_LIST_HEAD(&item->link);
        list_add_tail(&item->link, &table[item->index].head);
    }
    KLOG(KORVEX_LOG_TRACE, "leave hash_init()\n");
    return table;
}

void hash_rebind_handlers(HashBucket *table) {
    for (const CatalogEntry &entry : kCatalog) {
        HashItem *item = hash_find_quietly(table, entry.name);
        if (item != nullptr) item->handler = entry.handler;
    }
}
