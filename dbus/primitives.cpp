// The nine method-call primitives. Each differs from the others only in its arguments,
// its reply handling, its failure value and its log lines.
#include "dbus/primitives.h"

#include "dbus/call.h"
#include "dbus/peer_catalog.h"
#include "base/log.h"

using korvex::dbus::append_int32;
using korvex::dbus::append_string;
using korvex::dbus::append_uint32;
using korvex::dbus::call_method;
using korvex::dbus::CallStatus;
using korvex::dbus::first_int32;
using korvex::dbus::first_string;

namespace {

// Copy of the reply's first text argument into the request pool; "(null)" when the reply
// carries no text, as the formatter writes an absent string.
char *copy_reply_text(request_rec *r, DBusMessage *reply, const char *caller) {
    const char *text = first_string(reply);
    if (text == nullptr) korvex_log_write(KORVEX_LOG_ERROR, caller, __LINE__, KORVEX_LOG_TAG,
                                          "Message has no arguments!\n");
    return apr_psprintf(r->pool, "%s", text);
}

// Shared body of the two integer-returning, descriptor-driven primitives.
template <typename Append>
int send_ret_int(request_rec *r, const char *caller, const DbusCallSpec *spec, Append &&append) {
    int ret = -1;
    KLOG_AS(KORVEX_LOG_TRACE, caller, "enter %s\n", caller);
    auto result = call_method(r, caller, spec->dest, spec->ifac, spec->cmd, spec->timeout, append);
    if (result.status < CallStatus::kNoReply) return -1;
    if (result.status == CallStatus::kNoReply) {
        if (result.report_no_reply) KLOG_AS(KORVEX_LOG_ERROR, caller, "No reply\n");
    } else {
        dbus_int32_t value = 0;
        if (first_int32(result.reply.get(), &value)) {
            ret = value;
        } else {
            KLOG_AS(KORVEX_LOG_ERROR, caller, "Message has no arguments!\n");
        }
        KLOG_AS(KORVEX_LOG_TRACE, caller, "ret: %d\n", ret);
    }
    KLOG_AS(KORVEX_LOG_TRACE, caller, "leave %s\n", caller);
    return ret;
}

// Shared body of the two text-returning, descriptor-driven primitives; they differ in
// trace level and wording.
struct TextTraces {
    int enter_level;
    const char *read_format;   // logged after a reply, with the copied text
    bool leave_with_text;      // "leave %s, retStr: %s\n" instead of "leave %s\n"
};

template <typename Append>
char *send_ret_str(request_rec *r, const char *caller, const DbusCallSpec *spec, const TextTraces &traces,
                   Append &&append) {
    char *ret = nullptr;
    KLOG_AS(traces.enter_level, caller, "enter %s\n", caller);
    auto result = call_method(r, caller, spec->dest, spec->ifac, spec->cmd, spec->timeout, append);
    if (result.status < CallStatus::kNoReply) return nullptr;
    if (result.status == CallStatus::kNoReply) {
        if (result.report_no_reply) KLOG_AS(KORVEX_LOG_ERROR, caller, "No reply\n");
    } else {
        const char *text = first_string(result.reply.get());
        if (text == nullptr) {
            KLOG_AS(KORVEX_LOG_ERROR, caller, "Message has no arguments!\n");
        } else {
            ret = apr_psprintf(r->pool, "%s", text);
        }
        KLOG_AS(KORVEX_LOG_TRACE, caller, traces.read_format, ret);
    }
    if (traces.leave_with_text) {
        KLOG_AS(traces.enter_level, caller, "leave %s, retStr: %s\n", caller, ret);
    } else {
        KLOG_AS(traces.enter_level, caller, "leave %s\n", caller);
    }
    return ret;
}

constexpr TextTraces kStrRetStrTraces{KORVEX_LOG_TRACE, "retStr: %s\n", true};
constexpr TextTraces kIntRetStrTraces{KORVEX_LOG_CHILD, "ret string: %s\n", false};

}  // namespace

int apache_dbus_send_str_ret_int(request_rec *r, const char *str, const DbusCallSpec *spec) {
    return send_ret_int(r, __func__, spec, [str](DBusMessage *m) { return append_string(m, str); });
}

char *apache_dbus_send_str_ret_str(request_rec *r, const char *str, const DbusCallSpec *spec) {
    return send_ret_str(r, __func__, spec, kStrRetStrTraces,
                        [str](DBusMessage *m) { return append_string(m, str); });
}

int apache_dbus_send_int_ret_int(request_rec *r, int value, const DbusCallSpec *spec) {
    return send_ret_int(r, __func__, spec, [value](DBusMessage *m) { return append_int32(m, value); });
}

char *apache_dbus_send_int_ret_str(request_rec *r, int value, const DbusCallSpec *spec) {
    return send_ret_str(r, __func__, spec, kIntRetStrTraces,
                        [value](DBusMessage *m) { return append_int32(m, value); });
}

char *apache_dbus_string_message(request_rec *r, const char *str, const char *dest, const char *ifac,
                                 const char *command) {
    auto result = call_method(r, __func__, dest, ifac, command, korvex::peer::kTimeoutStringMessage,
                              [str](DBusMessage *m) { return append_string(m, str); });
    if (result.status == CallStatus::kNoReply && result.report_no_reply) {
        KLOG(KORVEX_LOG_ERROR, "No reply, str: %s, dest: %s, ifac: %s, command: %s\n", str, dest, ifac, command);
    }
    if (result.status != CallStatus::kReply) return nullptr;
    return copy_reply_text(r, result.reply.get(), __func__);
}

char *apache_dbus_get_nvram(request_rec *r, const char *key, const char *dest, const char *ifac) {
    const char *member = korvex::peer::kNvramGet.cmd;
    auto result = call_method(r, __func__, dest, ifac, member, korvex::peer::kNvramGet.timeout,
                              [key](DBusMessage *m) { return append_string(m, key); });
    if (result.status == CallStatus::kNoReply && result.report_no_reply) {
        KLOG(KORVEX_LOG_ERROR, "No reply, key: %s, dest: %s, ifac: %s, cmd: %s\n", key, dest, ifac, member);
    }
    if (result.status != CallStatus::kReply) return nullptr;
    return copy_reply_text(r, result.reply.get(), __func__);
}

char *apache_dbus_set_nvram(request_rec *r, const char *key, const char *value, const char *dest,
                            const char *ifac) {
    const char *member = korvex::peer::kNvramSet.cmd;
    auto result = call_method(r, __func__, dest, ifac, member, korvex::peer::kNvramSet.timeout,
                              [key, value](DBusMessage *m) {
                                  return append_string(m, key) && append_string(m, value);
                              });
    if (result.status == CallStatus::kNoReply && result.report_no_reply) {
        KLOG(KORVEX_LOG_ERROR, "No reply, key: %s, dest: %s, ifac: %s, cmd: %s\n", key, dest, ifac, member);
    }
    if (result.status != CallStatus::kReply) return nullptr;
    return copy_reply_text(r, result.reply.get(), __func__);
}

int apache_dbus_commit_nvram(request_rec *r, const char *dest, const char *ifac) {
    const char *member = korvex::peer::kNvramCommit.cmd;
    auto result = call_method(r, __func__, dest, ifac, member, korvex::peer::kNvramCommit.timeout,
                              [](DBusMessage *m) { return append_string(m, korvex::peer::kNvramCommitArgument); });
    if (result.status < CallStatus::kNoReply) return -1;
    if (result.status == CallStatus::kNoReply) {
        if (result.report_no_reply) {
            KLOG(KORVEX_LOG_ERROR, "No reply, dest: %s, ifac: %s, cmd: %s\n", dest, ifac, member);
        }
        return 0;
    }
    dbus_int32_t value = 0;
    if (!first_int32(result.reply.get(), &value)) {
        KLOG(KORVEX_LOG_ERROR, "Message has no arguments!\n");
        return 0;
    }
    return value;
}

int dbus_control_LED(request_rec *r, const char *led, unsigned value, const char *dest, const char *ifac) {
    const char *member = korvex::peer::kSdkLed.cmd;
    int ret = 0;
    KLOG(KORVEX_LOG_TRACE, "enter %s\n", __func__);
    auto result = call_method(r, __func__, dest, ifac, member, korvex::peer::kSdkLed.timeout,
                              [led, value](DBusMessage *m) {
                                  return append_string(m, led) && append_uint32(m, value);
                              });
    if (result.status < CallStatus::kNoReply) return 0;
    if (result.status == CallStatus::kNoReply) {
        if (result.report_no_reply) {
            KLOG(KORVEX_LOG_ERROR, "No reply, led: %s, dest: %s, ifac: %s, cmd: %s\n", led, dest, ifac, member);
        }
    } else {
        dbus_int32_t reply_value = 0;
        if (first_int32(result.reply.get(), &reply_value)) {
            ret = reply_value;
        } else {
            KLOG(KORVEX_LOG_ERROR, "Message has no arguments!\n");
        }
    }
    KLOG(KORVEX_LOG_TRACE, "leave %s\n", __func__);
    return ret;
}

namespace korvex {

char *nvram_get(request_rec *r, const char *key) {
    return apache_dbus_get_nvram(r, key, peer::kNvramGet.dest, peer::kNvramGet.ifac);
}

char *nvram_set(request_rec *r, const char *key, const char *value) {
    return apache_dbus_set_nvram(r, key, value, peer::kNvramSet.dest, peer::kNvramSet.ifac);
}

int nvram_commit(request_rec *r) {
    return apache_dbus_commit_nvram(r, peer::kNvramCommit.dest, peer::kNvramCommit.ifac);
}

}  // namespace korvex
