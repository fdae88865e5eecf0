#include "dbus/call.h"

#include "dbus/connection.h"
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

CallResult send_and_wait(DbusData *data, DBusMessage *message, int timeout_ms) {
    Error error;
    MessagePtr reply(dbus_connection_send_with_reply_and_block(data->conn, message, timeout_ms, error.get()));
    drain_incoming(data);
    if (!reply) return {CallStatus::kNoReply, nullptr};
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
