#include "module/fault_hooks.h"

#include <cstring>
#include <stdexcept>

#include "base/log.h"
#include "dbus/silent_peers.h"

namespace korvex::fault {

#ifdef KORVEX_FAULT_HOOKS
namespace {

// The fault the request asks for, or null.
const char *asked_fault(request_rec *r) { return apr_table_get(r->headers_in, kHeader); }

void log_every_level() {
    for (int level = KORVEX_LOG_CHILD - 1; level <= KORVEX_LOG_ERROR; ++level) {
        KLOG(level, "record at level %d\n", level);
    }
    KLOG(KORVEX_LOG_ERROR, "record with a backslash \\, a tab \t and a byte \xe9\n");
}

}  // namespace

void before_serve(request_rec *r) {
    const char *asked = asked_fault(r);
    if (asked != nullptr && std::strcmp(asked, kForgetSilentPeers) == 0) dbus::silent_peers::forget_all();
}

apr_interval_time_t purge_pause(request_rec *r, apr_interval_time_t normal) {
    const char *asked = asked_fault(r);
    return asked != nullptr && std::strcmp(asked, kNoPurgePause) == 0 ? 0 : normal;
}

void after_serve(request_rec *r) {
    const char *asked = asked_fault(r);
    if (asked == nullptr) return;
    if (std::strcmp(asked, kThrowAfterServe) == 0) throw std::runtime_error("injected fault");
    if (std::strcmp(asked, kLogEveryLevel) == 0) log_every_level();
}
#else
void before_serve(request_rec *) {}
apr_interval_time_t purge_pause(request_rec *, apr_interval_time_t normal) { return normal; }
void after_serve(request_rec *) {}
#endif

}  // namespace korvex::fault
