// The command table: a chained hash table of command names, built once per process and
// read-only afterwards.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/apache_shim.h"
#include "base/list_link.h"

// A command handler: prints its own output, returns 1 for success, anything else for failure.
typedef int (*ApiHandler)(request_rec *r, char *value);

inline constexpr int kCommandNameSize = 1024;

struct HashItem {
    char name[kCommandNameSize];
    uint32_t key;
    uint32_t index;
    ApiHandler handler;
    ListLink link;
};

struct HashBucket {
    ListLink head;
    int32_t size;  // bucket 0 only: number of buckets
};

// The string hash: h = h * 37 + byte (as a signed char), modulo 2^32.
uint32_t hashFunc(const char *name);

// One command: its wire name and its handler.
struct CatalogEntry {
    const char *name;
    ApiHandler handler;
};

// Builds a table of korvex::registry::kBucketCount buckets holding `entries` in the given
// order, so that items sharing a bucket lie in their ring in that order.
HashBucket *hash_build(apr_pool_t *pool, const CatalogEntry *entries, int count);

HashItem *findItem(HashBucket *table, const char *name);
// The same lookup without trace lines.
HashItem *hash_find_quietly(HashBucket *table, const char *name);
int execAPI(request_rec *r, const char *name, char *value);
int runQuery(void *rec, const char *name, const char *value);
void checkTable(HashBucket *table);

namespace korvex::registry {

// The fixed bucket count of the table.
inline constexpr int kBucketCount = 305;

}  // namespace korvex::registry
