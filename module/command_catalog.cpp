// The command catalog and the table built from it once per process.
#include "module/command_catalog.h"

#include "base/log.h"
#include "registry/handlers.h"

namespace {

constexpr CatalogEntry kCatalog[] = {
#define KORVEX_COMMAND(wire_name, handler) {wire_name, handler},
#include "registry/catalog.def"
#undef KORVEX_COMMAND
};

constexpr int kCatalogSize = static_cast<int>(sizeof kCatalog / sizeof kCatalog[0]);
static_assert(korvex::registry::kBucketCount == 2 * 152 + 1, "the table is sized for the full catalog");
static_assert(kCatalogSize <= 152, "the catalog holds at most 152 commands");

}  // namespace

HashBucket *hash_init(apr_pool_t *pool) {
    KLOG(KORVEX_LOG_TRACE, "enter %s\n", __func__);
    KLOG(KORVEX_LOG_TRACE, "hashItemNum: %d, hashTableSize:%d\n", kCatalogSize, korvex::registry::kBucketCount);
    HashBucket *table = hash_build(pool, kCatalog, kCatalogSize);
    KLOG(KORVEX_LOG_TRACE, "leave hash_init()\n");
    return table;
}

void hash_rebind_handlers(HashBucket *table) {
    for (const CatalogEntry &entry : kCatalog) {
        HashItem *item = hash_find_quietly(table, entry.name);
        if (item != nullptr) item->handler = entry.handler;
    }
}
