// JSON pass-through: the command's value goes unchanged to the Z-Wave SDK daemon, the
// application daemon or the socket daemon, and whatever comes back is printed. The
// commands that change the application's data stamp the change time.
#include "commands/app/change_stamp.h"
#include "commands/command_shapes.h"
#include "dbus/peer_catalog.h"
#include "dbus/primitives.h"
#include "base/log.h"
#include "registry/handlers.h"

namespace {

using korvex::shape::relay;
using korvex::shape::Reply;
namespace peer = korvex::peer;

// Whether the change is stamped a second time once the application has answered.
enum class Restamp { kNo, kAfterCall };

// Stamp; hand the value to the application; stamp again when asked. Prints nothing. Only
// an answer of exactly 0 is a failure (a failed call, -1, counts as success).
int change_application_data(request_rec *r, const char *value, const DbusCallSpec &spec, Restamp restamp,
                            const char *func) {
    KLOG_AS(KORVEX_LOG_TRACE, func, "enter %s\n", func);
    korvex::stamp_application_change(r);
    int answer = apache_dbus_send_str_ret_int(r, value, &spec);
    if (restamp == Restamp::kAfterCall) {
        korvex::stamp_application_change(r);
    }
    KLOG_AS(KORVEX_LOG_TRACE, func, "leave %s, ret: %d\n", func, answer);
    return answer == 0 ? 0 : 1;
}

}  // namespace

// ---- Z-Wave SDK daemon: "json" succeeds even without a reply, "easycmd" does not ----
int zwaveJson(request_rec *r, char *value) {
    return relay(r, value, peer::kSdkJsonCommand, Reply::kIfPresent, __func__);
}
int zwaveCommand(request_rec *r, char *value) {
    return relay(r, value, peer::kSdkEasyCommand, Reply::kRequired, __func__);
}

// ---- Application daemon queries ----
int jsonGetTitles(request_rec *r, char *value) {
    return relay(r, value, peer::kAppJsonGetTitles, Reply::kRequired, __func__);
}
int jsonGetGroup(request_rec *r, char *value) {
    return relay(r, value, peer::kAppJsonGetGroup, Reply::kRequired, __func__);
}
int jsonGetAll(request_rec *r, char *value) {
    return relay(r, value, peer::kAppJsonGetAll, Reply::kRequired, __func__);
}
int jsonGetEvent(request_rec *r, char *value) {
    return relay(r, value, peer::kAppJsonGetEventBySeq, Reply::kRequired, __func__);
}
int jsonGetMacroEvent(request_rec *r, char *value) {
    return relay(r, value, peer::kAppJsonGetMacroEventBySeq, Reply::kRequired, __func__);
}
int doScene(request_rec *r, char *value) { return relay(r, value, peer::kAppDoScene, Reply::kRequired, __func__); }

// ---- Socket daemon: fixed requests, the command's value is not sent ----
int get_authcode(request_rec *r, char *) {
    return relay(r, "authcode", peer::kSocketCommand, Reply::kRequired, __func__);
}
int get_proctable(request_rec *r, char *) {
    return relay(r, "proctable", peer::kSocketCommand, Reply::kRequired, __func__);
}
int get_sysinfo(request_rec *r, char *) {
    return relay(r, "sysinfo", peer::kSocketCommand, Reply::kRequired, __func__);
}
int disconnect_icloud(request_rec *r, char *) {
    return relay(r, "disconnect_icloud", peer::kSocketCommand, Reply::kRequired, __func__);
}

// ---- Application data changes: "jsondel" stamps only before the call ----
int jsonSetAll(request_rec *r, char *value) {
    return change_application_data(r, value, peer::kAppJsonSetAll, Restamp::kAfterCall, __func__);
}
int jsonDel(request_rec *r, char *value) {
    return change_application_data(r, value, peer::kAppJsonDel, Restamp::kNo, __func__);
}
int jsonRename(request_rec *r, char *value) {
    return change_application_data(r, value, peer::kAppJsonRename, Restamp::kAfterCall, __func__);
}
