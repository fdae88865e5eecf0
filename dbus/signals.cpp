// Broadcast signals on the serving thread's connection; nothing waits for an answer.
#include "dbus/signals.h"

#include "dbus/exchange.h"
#include "dbus/peer_catalog.h"
#include "base/log.h"

namespace {

using korvex::dbus::Arg;
using korvex::dbus::Call;

// -1 when there is no connection; 0 otherwise, whether or not the signal could be sent
// (that is logged).
int send_update_signal(request_rec *r, const char *caller, const char *member, Arg value) {
    const auto result = korvex::dbus::exchange_one(r, caller, Call::signal(korvex::peer::kIfSignalUpdate, member, value));
    return result.outcome == korvex::dbus::Outcome::kNoConnection ? -1 : 0;
}

}  // namespace

int dbus_signal_update_alive(request_rec *r, int value) {
    return send_update_signal(r, __func__, korvex::peer::kSignalAlive, Arg::int32(value));
}

int dbus_signal_rewrite_entire_flash(request_rec *r, const char *value) {
    KLOG(KORVEX_LOG_REQUEST, "@@@ enter %s\n", __func__);
    return send_update_signal(r, __func__, korvex::peer::kSignalRewriteEntire, Arg::string(value));
}
