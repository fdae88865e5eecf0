#include "dbus/silent_peers.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <iterator>
#include <new>

#include "base/log.h"
#include "dbus/peer_catalog.h"

namespace korvex::dbus::silent_peers {

namespace {

constexpr std::size_t kRecordCount = std::size(peer::kAllBusNames);

struct Table {
    silence::Record records[kRecordCount];
};

// Set in the parent at configuration time, before any child exists; children inherit it.
Table *g_table = nullptr;

apr_status_t unmap_table(void *mapping) {
    if (g_table == mapping) g_table = nullptr;
    munmap(mapping, sizeof(Table));
    return APR_SUCCESS;
}

int record_of(const char *dest) {
    if (g_table == nullptr || dest == nullptr) return -1;
    for (std::size_t i = 0; i < kRecordCount; ++i) {
        if (dest == peer::kAllBusNames[i] || std::strcmp(dest, peer::kAllBusNames[i]) == 0) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

void log_transition(const char *dest, const silence::Settled &settled) {
    switch (settled.transition) {
    case silence::Transition::kDeclared:
        KLOG(KORVEX_LOG_STATE, "%s stopped answering: silent for %u ms, calls to it fail at once for %u ms\n", dest,
             settled.silent_ms, settled.window_ms);
        break;
    case silence::Transition::kGrown:
        KLOG(KORVEX_LOG_STATE, "%s still silent after %u ms: calls to it fail at once for %u ms more\n", dest,
             settled.silent_ms, settled.window_ms);
        break;
    case silence::Transition::kRecovered:
        KLOG(KORVEX_LOG_STATE, "%s answers again after %u ms of silence\n", dest, settled.silent_ms);
        break;
    case silence::Transition::kNone:
        break;
    }
}

}  // namespace

std::uint32_t now_ms() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(ts.tv_sec) * 1000u +
                                      static_cast<std::uint64_t>(ts.tv_nsec) / 1000000u);
}

bool create(apr_pool_t *pool) {
    void *mapping = mmap(nullptr, sizeof(Table), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (mapping == MAP_FAILED) {
        KLOG(KORVEX_LOG_ERROR, "mmap failed: %s\n", std::strerror(errno));
        return false;
    }
    // Fresh anonymous pages are zero: every record starts as "answering".
    g_table = new (mapping) Table{};
    apr_pool_cleanup_register(pool, mapping, unmap_table, apr_pool_cleanup_null);
    return true;
}

void forget_all() {
    if (g_table == nullptr) return;
    for (silence::Record &record : g_table->records) silence::forget(record);
}

Call admit(const char *dest, int timeout_ms, peer::Effect effect) {
    const int record = record_of(dest);
    if (record < 0) return {-1, {silence::Admission::kSend, now_ms(), 0, false}};
    return {record, silence::admit(g_table->records[record], now_ms(), timeout_ms, effect)};
}

silence::Transition settle(const Call &call, silence::Outcome outcome) {
    if (call.record < 0 || g_table == nullptr) return silence::Transition::kNone;
    const silence::Settled settled = silence::settle(g_table->records[call.record], call.ticket, outcome, now_ms());
    log_transition(peer::kAllBusNames[call.record], settled);
    return settled.transition;
}

void note_owner(const Call &call, std::uint32_t owner) {
    if (call.record < 0 || g_table == nullptr) return;
    silence::note_owner(g_table->records[call.record], owner);
}

bool settle_owner(const Call &call, std::uint32_t owner) {
    if (call.record < 0 || g_table == nullptr) return false;
    const silence::Settled settled = silence::settle_owner(g_table->records[call.record], owner, now_ms());
    if (settled.transition != silence::Transition::kRecovered) return false;
    KLOG(KORVEX_LOG_STATE, "%s has a new owner after %u ms of silence: calls go to it again\n",
         peer::kAllBusNames[call.record], settled.silent_ms);
    return true;
}

}  // namespace korvex::dbus::silent_peers
