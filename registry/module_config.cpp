#include "registry/module_config.h"

#include "base/process_lock.h"

ModuleConfig *getKorvexData(request_rec *r) {
    void *config = nullptr;
    // Serving threads add their connection records to the same user data meanwhile.
    std::lock_guard<std::mutex> hold(korvex::process_userdata_lock());
    apr_pool_userdata_get(&config, kModuleConfigKey, r->server->process->pool);
    return static_cast<ModuleConfig *>(config);
}
