// The process-wide record built at the first configuration pass of a server process.
#pragma once

#include "base/apache_shim.h"
#include "registry/command_table.h"

struct ModuleConfig {
    apr_global_mutex_t *mutex;  // created on the lock file; nothing takes it
    HashBucket *table;
    apr_pool_t *pool;
};

inline constexpr char kModuleConfigKey[] = "korvex_post_config";

// The record kept on the process pool of the request's server, or null before post-configuration.
ModuleConfig *getKorvexData(request_rec *r);
