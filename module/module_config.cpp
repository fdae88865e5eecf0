#include "module/module_config.h"

ModuleConfig *getKorvexData(request_rec *r) {
    void *config = nullptr;
    apr_pool_userdata_get(&config, kModuleConfigKey, r->server->process->pool);
    return static_cast<ModuleConfig *>(config);
}
