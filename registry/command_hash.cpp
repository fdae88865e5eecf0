// The command table itself: hash, construction, lookup and the debug dump. Needs no
// running server.
#include "registry/command_table.h"

#include <cstring>

#include "base/log.h"

uint32_t hashFunc(const char *name) {
    uint32_t h = 0;
    // Bytes are taken as signed chars, so bytes above 127 subtract; the sum wraps mod 2^32.
    for (const char *p = name; *p != '\0'; ++p) h = h * 37u + static_cast<uint32_t>(static_cast<signed char>(*p));
    return h;
}

HashBucket *hash_build(apr_pool_t *pool, const CatalogEntry *entries, int count) {
    const int bucket_count = korvex::registry::kBucketCount;
    auto *table = static_cast<HashBucket *>(apr_pcalloc(pool, sizeof(HashBucket) * bucket_count));
    table[0].size = bucket_count;
    for (int i = 0; i < bucket_count; ++i) INIT_LIST_HEAD(&table[i].head);

    for (int i = 0; i < count; ++i) {
        auto *item = static_cast<HashItem *>(apr_pcalloc(pool, sizeof(HashItem)));
        std::strncpy(item->name, entries[i].name, sizeof item->name - 1);
        item->handler = entries[i].handler;
        item->key = hashFunc(item->name);
        item->index = item->key % static_cast<uint32_t>(bucket_count);
        INIT_LIST_HEAD(&item->link);
        list_add_tail(&item->link, &table[item->index].head);
    }
    return table;
}

HashItem *hash_find_quietly(HashBucket *table, const char *name) {
    const uint32_t key = hashFunc(name);
    HashBucket &bucket = table[key % static_cast<uint32_t>(table[0].size)];
    for (ListLink *link = bucket.head.next; link != &bucket.head; link = link->next) {
        HashItem *item = KORVEX_CONTAINER_OF(link, HashItem, link);
        // The full key is compared first, so strcmp runs only on a true hash match.
        if (item->key == key && std::strcmp(item->name, name) == 0) return item;
    }
    return nullptr;
}

HashItem *findItem(HashBucket *table, const char *name) {
    if (name == nullptr) {
        KLOG(KORVEX_LOG_ERROR, "name is NULL\n");
        return nullptr;
    }
    HashItem *item = hash_find_quietly(table, name);
    if (item != nullptr) {
        KLOG(KORVEX_LOG_TRACE, "find hash item: 0x%x, name: %s,  key: %u, index: %u, prev: 0x%x, next: 0x%x\n",
             static_cast<unsigned>(reinterpret_cast<uintptr_t>(item)), item->name, item->key, item->index,
             static_cast<unsigned>(reinterpret_cast<uintptr_t>(item->link.prev)),
             static_cast<unsigned>(reinterpret_cast<uintptr_t>(item->link.next)));
        KLOG(KORVEX_LOG_TRACE, "leave %s\n", __func__);
    }
    return item;
}

void checkTable(HashBucket *table) {
    KLOG(KORVEX_LOG_TRACE, "enter %s\n", __func__);
    for (int i = 0; i < table[0].size; ++i) {
        ListLink *head = &table[i].head;
        KLOG(KORVEX_LOG_TRACE, "hashTable[%d] addr: 0x%x, prev: 0x%x, next: 0x%x, is_empty: %d\n", i,
             static_cast<unsigned>(reinterpret_cast<uintptr_t>(&table[i])),
             static_cast<unsigned>(reinterpret_cast<uintptr_t>(head->prev)),
             static_cast<unsigned>(reinterpret_cast<uintptr_t>(head->next)), list_empty(head) ? 1 : 0);
        for (ListLink *link = head->next; link != head; link = link->next) {
            HashItem *item = KORVEX_CONTAINER_OF(link, HashItem, link);
            KLOG(KORVEX_LOG_TRACE, "hashTable[%d].next: 0x%x, name: %s, key: %u, index: %u, prev: 0x%x, next: 0x%x\n",
                 i, static_cast<unsigned>(reinterpret_cast<uintptr_t>(item)), item->name, item->key, item->index,
                 static_cast<unsigned>(reinterpret_cast<uintptr_t>(link->prev)),
                 static_cast<unsigned>(reinterpret_cast<uintptr_t>(link->next)));
        }
    }
    KLOG(KORVEX_LOG_TRACE, "leave %s\n", __func__);
}
