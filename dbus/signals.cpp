// Broadcast signals on the serving thread's connection; nothing waits for an answer.
#include "dbus/signals.h"

#include "dbus/call.h"
#include "dbus/connection.h"
#include "dbus/peer_catalog.h"
#include "base/log.h"

namespace {

template <typename Append>
int send_update_signal(request_rec *r, const char *caller, const char *member, Append &&append) {
    DbusData *data = korvex::dbus::lookup(r, caller);
    if (data == nullptr) return -1;
    korvex::dbus::MessagePtr signal(
        dbus_message_new_signal(data->objPath, korvex::peer::kIfSignalUpdate, member));
    if (!signal) {
        KLOG_AS(KORVEX_LOG_ERROR, caller, "Message Null\n");
    } else if (!append(signal.get())) {
        KLOG_AS(KORVEX_LOG_ERROR, caller, "dbus_message_append_args fail.\n");
    } else if (!dbus_connection_send(data->conn, signal.get(), nullptr)) {
        KLOG_AS(KORVEX_LOG_ERROR, caller, "Out Of Memory!\n");
    }
    return 0;
}

}  // namespace

int dbus_signal_update_alive(request_rec *r, int value) {
    return send_update_signal(r, __func__, korvex::peer::kSignalAlive,
                              [value](DBusMessage *m) { return korvex::dbus::append_int32(m, value); });
}

int dbus_signal_rewrite_entire_flash(request_rec *r, const char *value) {
    KLOG(KORVEX_LOG_REQUEST, "@@@ enter %s\n", __func__);
    return send_update_signal(r, __func__, korvex::peer::kSignalRewriteEntire,
                              [value](DBusMessage *m) { return korvex::dbus::append_string(m, value); });
}
