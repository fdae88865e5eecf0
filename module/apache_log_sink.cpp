// The platform log sink of a module running inside Apache: records become ap_log_error_
// calls with this module's index, against the server record of the current configuration.
#include "module/apache_log_sink.h"

#include <atomic>

#include "base/apache_shim.h"
#include "base/log.h"
#include "module/apache_log_levels.h"

extern "C" {
extern module AP_MODULE_DECLARE_DATA korvex_module;
}

namespace korvex::apache_log {
namespace {

// The main server of the configuration in force; written by the hooks before any worker
// thread exists, read by every thread that logs.
std::atomic<server_rec *> g_server{nullptr};

// Compares with the configured level itself: Apache's own level test (and its log core)
// always let NOTICE through, which would make "LogLevel korvex:error" keep notable state.
int enabled(int level) {
    const server_rec *s = g_server.load(std::memory_order_acquire);
    if (s == nullptr) return apache_level(level) <= APLOG_WARNING;
    return ap_get_server_module_loglevel(s, korvex_module.module_index) >= apache_level(level);
}

// No source file: Apache would print its own position here, not the caller's (the record
// carries the caller's function and line already).
void write(int level, const char *record, size_t) {
    ap_log_error_(nullptr, 0, korvex_module.module_index, apache_level(level), 0,
                  g_server.load(std::memory_order_acquire), "%s", record);
}

constexpr korvex_log_sink kSink = {enabled, write};

// Runs when the configuration pool goes (restart, shutdown), before Apache unloads this
// code: nothing may call into it afterwards.
apr_status_t detach(void *) {
    korvex_log_set_sink(nullptr);
    g_server.store(nullptr, std::memory_order_release);
    return APR_SUCCESS;
}

int attach_post_config(apr_pool_t *pconf, apr_pool_t *, apr_pool_t *, server_rec *s) {
    g_server.store(s, std::memory_order_release);
    korvex_log_set_sink(&kSink);
    apr_pool_cleanup_register(pconf, nullptr, detach, apr_pool_cleanup_null);
    return korvex::http::kOk;
}

void attach_child(apr_pool_t *, server_rec *s) {
    g_server.store(s, std::memory_order_release);
    korvex_log_set_sink(&kSink);
}

}  // namespace

void register_hooks() {
    ap_hook_post_config(attach_post_config, nullptr, nullptr, APR_HOOK_REALLY_FIRST);
    ap_hook_child_init(attach_child, nullptr, nullptr, APR_HOOK_REALLY_FIRST);
}

}  // namespace korvex::apache_log
