// The module record, its hooks, and the process-wide record built at configuration time.
#include <sys/syscall.h>
#include <unistd.h>

#include "dbus/connection.h"
#include "dbus/silent_peers.h"
#include "base/guard.h"
#include "base/log.h"
#include "registry/module_config.h"
#include "module/access_log_masking.h"
#include "module/apache_log_sink.h"
#include "module/command_catalog.h"
#include "module/cross_site_config.h"
#include "module/request_handler.h"
#include "module/server_directives.h"
#include "registry/handlers.h"

namespace {

constexpr char kLockFile[] = "/tmp/lockHttpd";
// A lock on the file itself (the platform default on Linux needs no file at all), so that
// the lock really is on "/tmp/lockHttpd" and a path that cannot be created is noticed.
constexpr apr_lockmech_e kLockMechanism = APR_LOCK_FCNTL;

unsigned address_word(const void *p) { return static_cast<unsigned>(reinterpret_cast<uintptr_t>(p)); }

// The hook bodies run inside lambdas (see guarded()), where __func__ would be "operator()":
// their log lines name the hook explicitly.
int shm_counter_post_config(apr_pool_t *pconf, apr_pool_t *, apr_pool_t *, server_rec *s) {
    static constexpr char kFunc[] = "shm_counter_post_config";
    return korvex::guarded(kFunc, korvex::http::kOk, [pconf, s] {
        apr_pool_t *pool = s->process->pool;
        KLOG_AS(KORVEX_LOG_TRACE, kFunc, "enter %s, s->process->pool addr: 0x%x\n", kFunc, address_word(pool));
        void *existing = nullptr;
        apr_pool_userdata_get(&existing, kModuleConfigKey, pool);
        if (existing != nullptr) {
            // The server reloads the module between configuration passes; the table is kept
            // but its handlers must point into this load of the code.
            hash_rebind_handlers(static_cast<ModuleConfig *>(existing)->table);
        } else {
            auto *config = static_cast<ModuleConfig *>(apr_pcalloc(pool, sizeof(ModuleConfig)));
            config->table = hash_init(pool);
            config->pool = pool;
            apr_status_t rv = apr_global_mutex_create(&config->mutex, kLockFile, kLockMechanism, pool);
            if (rv != APR_SUCCESS) {
                char reason[128];
                apr_strerror(rv, reason, sizeof reason);
                KLOG_AS(KORVEX_LOG_ERROR, kFunc, "apr_global_mutex_create failed: %s\n", reason);
            }
            apr_pool_userdata_set(config, kModuleConfigKey, apr_pool_cleanup_null, pool);
        }
        // Which daemons stopped answering, shared by every child and thread; made anew for
        // each generation of children.
        korvex::dbus::silent_peers::create(pconf);
        korvex::cross_site::prepare(pconf, s);
        KLOG_AS(KORVEX_LOG_TRACE, kFunc, "leave %s\n", kFunc);
        return korvex::http::kOk;
    });
}

void initialize_child(apr_pool_t *child_pool, server_rec *s) {
    static constexpr char kFunc[] = "initialize_child";
    korvex::guarded(kFunc, 0, [child_pool, s] {
        KLOG_AS(KORVEX_LOG_CHILD, kFunc, "enter %s, pool addr: 0x%x, s->process->pool: 0x%x, tid: %d\n", kFunc,
                address_word(child_pool), address_word(s->process->pool), static_cast<int>(syscall(SYS_gettid)));
        korvex::dbus::child_init(child_pool, s);
        // The upload lock, reopened for this child as the lock mechanism may need.
        void *existing = nullptr;
        apr_pool_userdata_get(&existing, kModuleConfigKey, s->process->pool);
        auto *config = static_cast<ModuleConfig *>(existing);
        if (config != nullptr && config->mutex != nullptr) {
            apr_global_mutex_child_init(&config->mutex, kLockFile, child_pool);
        }
        KLOG_AS(KORVEX_LOG_CHILD, kFunc, "leave %s\n", kFunc);
        return 0;
    });
}

void register_hooks(apr_pool_t *) {
    korvex::apache_log::register_hooks();
    korvex::access_log::register_hooks();
    ap_hook_child_init(initialize_child, nullptr, nullptr, APR_HOOK_MIDDLE);
    ap_hook_pre_config(korvex::directives::reset_server_wide, nullptr, nullptr, APR_HOOK_MIDDLE);
    ap_hook_post_config(shm_counter_post_config, nullptr, nullptr, APR_HOOK_MIDDLE);
    ap_hook_handler(korvex_handler, nullptr, nullptr, APR_HOOK_MIDDLE);
}

}  // namespace

extern "C" {
KORVEX_EXPORT module AP_MODULE_DECLARE_DATA korvex_module = {
    MODULE_MAGIC_NUMBER_MAJOR,  // 20120211
    41,                         // minor version the module was written against
    -1,
    "mod_korvex",
    nullptr,
    nullptr,
    MODULE_MAGIC_COOKIE,
    nullptr,  // rewrite_args
    nullptr,  // no per-directory configuration
    nullptr,
    korvex::cross_site::create_server_config,
    korvex::cross_site::merge_server_config,
    korvex::directives::kTable,
    register_hooks,
    0,
};
}
