// The platform log sink of a module running inside Apache: records become ap_log_error_
// calls with this module's index, against the server record of the current configuration.
#include "module/apache_log_sink.h"

#include <atomic>
#include <cstring>

#include "base/apache_shim.h"
#include "base/log.h"
#include "base/record_thinner.h"
#include "dbus/peer_catalog.h"
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
struct ApacheOutput : RecordThinner::Output {
    void record(int level, const char *text, std::size_t) override {
        ap_log_error_(nullptr, 0, korvex_module.module_index, apache_level(level), 0,
                      g_server.load(std::memory_order_acquire), "%s", text);
    }
    void left_out(int level, unsigned count, const char *sample) override {
        ap_log_error_(nullptr, 0, korvex_module.module_index, apache_level(level), 0,
                      g_server.load(std::memory_order_acquire), "%u more like this left out: %s", count, sample);
    }
};

// Records at the levels a production server keeps are thinned, per child; trace records
// are for debugging, where every one counts.
RecordThinner g_thinner;
std::atomic<bool> g_thinning{true};

std::uint64_t fnv1a(const char *text, std::size_t length, std::uint64_t hash = 14695981039346656037ull) {
    for (std::size_t i = 0; i < length; ++i) hash = (hash ^ static_cast<unsigned char>(text[i])) * 1099511628211ull;
    return hash;
}

// What makes two records the same failure: where they were written ("function:line") and
// the daemon they are about, whatever values they quote.
std::uint64_t failure_key(const char *record, std::size_t length) {
    const char *space = static_cast<const char *>(std::memchr(record, ' ', length));
    std::uint64_t key = fnv1a(record, space != nullptr ? static_cast<std::size_t>(space - record) : length);
    for (const char *name : peer::kAllBusNames) {
        if (std::strstr(record, name) != nullptr) return fnv1a(name, std::strlen(name), key);
    }
    return key;
}

void write(int level, const char *record, size_t length) {
    ApacheOutput out;
    if (level < KORVEX_LOG_REQUEST || !g_thinning.load(std::memory_order_relaxed)) {
        out.record(level, record, length);
        return;
    }
    g_thinner.submit(failure_key(record, length), level, record, length, RecordThinner::Clock::now(), out);
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

void set_thinning(bool on) { g_thinning.store(on, std::memory_order_relaxed); }

void register_hooks() {
    ap_hook_post_config(attach_post_config, nullptr, nullptr, APR_HOOK_REALLY_FIRST);
    ap_hook_child_init(attach_child, nullptr, nullptr, APR_HOOK_REALLY_FIRST);
}

}  // namespace korvex::apache_log
