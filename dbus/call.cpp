#include "dbus/call.h"

#include "dbus/connection.h"
#include "dbus/silent_peers.h"
#include "base/log.h"

namespace korvex::dbus {

bool append_string(DBusMessage *message, const char *text) {
    if (text == nullptr || !dbus_validate_utf8(text, nullptr)) return false;
    return dbus_message_append_args(message, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID) != 0;
}

bool append_int32(DBusMessage *message, dbus_int32_t value) {
    return dbus_message_append_args(message, DBUS_TYPE_INT32, &value, DBUS_TYPE_INVALID) != 0;
}

bool append_uint32(DBusMessage *message, dbus_uint32_t value) {
    return dbus_message_append_args(message, DBUS_TYPE_UINT32, &value, DBUS_TYPE_INVALID) != 0;
}

MessagePtr new_method_call(const DbusData *data, const char *caller, const char *dest, const char *ifac,
                           const char *member) {
    MessagePtr message(dbus_message_new_method_call(dest, data->objPath, ifac, member));
    if (!message) korvex_log_write(KORVEX_LOG_ERROR, caller, __LINE__, KORVEX_LOG_TAG,
                                   "Could not allocate D-BUS message\n");
    return message;
}

namespace {

// How a call without reply ended: libdbus reports its own time-out as "NoReply" once the
// whole time-out went by (the bus uses the same name when the peer left without replying,
// which comes early); a lost connection of ours says nothing about the destination; any
// other error is an answer from the destination or from the bus about it.
silence::Outcome outcome_without_reply(const Error &error, std::uint32_t waited_ms, int timeout_ms) {
    if (!error.is_set() || error.has_name(DBUS_ERROR_DISCONNECTED)) {
        return silence::Outcome::kNotSent;
    }
    if (!error.has_name(DBUS_ERROR_NO_REPLY)) {
        return silence::Outcome::kAnswered;
    }
    const std::uint32_t full = silence::timeout_or_default(timeout_ms);
    // libdbus counts on a coarser clock than ours: a few per cent early still is the time-out.
    return waited_ms + full / 20 >= full ? silence::Outcome::kTimedOut : silence::Outcome::kAnswered;
}

}  // namespace

CallResult send_and_wait(DbusData *data, DBusMessage *message, int timeout_ms) {
    const silent_peers::Call admitted = silent_peers::admit(dbus_message_get_destination(message), timeout_ms);
    if (silent_peers::fails_fast(admitted)) {
        return {CallStatus::kNoReply, nullptr, silent_peers::report_fast_failure(admitted)};
    }
    Error error;
    MessagePtr reply(dbus_connection_send_with_reply_and_block(data->conn, message, timeout_ms, error.get()));
    const std::uint32_t waited_ms = silent_peers::now_ms() - admitted.ticket.sent_at;
    drain_incoming(data);
    if (!reply) {
        silent_peers::settle(admitted, outcome_without_reply(error, waited_ms, timeout_ms));
        return {CallStatus::kNoReply, nullptr};
    }
    silent_peers::settle(admitted, silence::Outcome::kAnswered);
    return {CallStatus::kReply, std::move(reply)};
}

bool first_int32(DBusMessage *reply, dbus_int32_t *out) {
    DBusMessageIter iter;
    if (!dbus_message_iter_init(reply, &iter)) return false;
    const int type = dbus_message_iter_get_arg_type(&iter);
    if (type != DBUS_TYPE_INT32 && type != DBUS_TYPE_UINT32) return false;
    dbus_message_iter_get_basic(&iter, out);
    return true;
}

const char *first_string(DBusMessage *reply) {
    DBusMessageIter iter;
    if (!dbus_message_iter_init(reply, &iter)) return nullptr;
    if (dbus_message_iter_get_arg_type(&iter) != DBUS_TYPE_STRING) return nullptr;
    const char *text = nullptr;
    dbus_message_iter_get_basic(&iter, &text);
    return text;
}

}  // namespace korvex::dbus
