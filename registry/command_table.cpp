// Lookup and execution of one command per request argument.
#include "registry/command_table.h"

#include <cstring>

#include "module/log.h"
#include "module/module_config.h"

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

int execAPI(request_rec *r, const char *name, char *value) {
    ModuleConfig *config = getKorvexData(r);
    HashItem *item = (config != nullptr && config->table != nullptr) ? findItem(config->table, name) : nullptr;
    if (item == nullptr) {
        // The name comes straight from the client: escape it before echoing it into HTML.
        ap_rprintf(r, "%s doesn't exist", ap_escape_html2(r->pool, name, 0));
        return -1;
    }
    const int ret = item->handler(r, value);
    ap_rprintf(r, ret == 1 ? "%s done" : "%s failed", name);
    return ret;
}

int runQuery(void *rec, const char *name, const char *value) {
    auto *r = static_cast<request_rec *>(rec);
    const char *text = value;
    if (r->method_number == M_GET) {
        // A malformed escape leaves the value as it stands rather than losing it.
        const char *unescaped = apr_punescape_url(r->pool, value, nullptr, nullptr, 0);
        if (unescaped != nullptr) text = unescaped;
    }
    // Handlers may edit their value in place; give them a copy of their own.
    execAPI(r, name, apr_pstrdup(r->pool, text));
    return 1;
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
