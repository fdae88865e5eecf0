// The table of every command in registry/catalog.def with its handler. Built here, at the
// top, as only the module links both the table (registry/) and the handlers (commands/).
#pragma once

#include "base/apache_shim.h"
#include "registry/command_table.h"

// Builds the table from the command catalog in the given (process) pool.
HashBucket *hash_init(apr_pool_t *pool);
// Points every item's handler at this load of the module (after the server reloads the
// module between configuration passes, the code may live at another address).
void hash_rebind_handlers(HashBucket *table);
