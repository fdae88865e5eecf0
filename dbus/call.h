// One blocking method call on the serving thread's connection: the common part of every
// primitive and list fetcher. Each caller adds its own log lines and failure values.
#pragma once

#include <dbus/dbus.h>

#include "dbus/connection.h"
#include "dbus/dbus_ptr.h"
#include "dbus/dbus_types.h"
#include "base/apache_shim.h"
#include "base/log.h"

namespace korvex::dbus {

enum class CallStatus {
    kNoConnection,   // no usable connection ("dbusData is NULL" already logged)
    kNoMessage,      // the method call could not be created (logged)
    kAppendFailed,   // an argument could not be appended (logged)
    kNoReply,        // time-out, error reply, lost bus or a silent destination (caller
                     // logs its own text when report_no_reply is set)
    kReply,
};

struct CallResult {
    CallStatus status;
    MessagePtr reply;
    // False for a call to a silent destination that failed at once and whose "No reply"
    // record is held back by the rate limit.
    bool report_no_reply = true;
};

// Appends one STRING argument; false for a null or non-UTF-8 text, which the bus would refuse.
bool append_string(DBusMessage *message, const char *text);
bool append_int32(DBusMessage *message, dbus_int32_t value);
bool append_uint32(DBusMessage *message, dbus_uint32_t value);

// Creates the call (dest may be null: no destination), lets `append` add the arguments,
// sends it and waits up to timeout_ms. Drops whatever else arrived meanwhile. A call to a
// destination that stopped answering fails at once (kNoReply) while its back-off lasts.
template <typename Append>
CallResult call_method(request_rec *r, const char *caller, const char *dest, const char *ifac,
                       const char *member, int timeout_ms, Append &&append);

// First reply argument as a 32-bit integer (signed or unsigned, same bits). False when the
// reply has no argument or its first argument is of another type.
bool first_int32(DBusMessage *reply, dbus_int32_t *out);
// First reply argument as text (null when absent or of another type).
const char *first_string(DBusMessage *reply);

// ---- implementation of the template ----
MessagePtr new_method_call(const DbusData *data, const char *caller, const char *dest, const char *ifac,
                           const char *member);
CallResult send_and_wait(DbusData *data, DBusMessage *message, int timeout_ms);

template <typename Append>
CallResult call_method(request_rec *r, const char *caller, const char *dest, const char *ifac,
                       const char *member, int timeout_ms, Append &&append) {
    DbusData *data = lookup(r, caller);
    if (data == nullptr) return {CallStatus::kNoConnection, nullptr};
    MessagePtr message = new_method_call(data, caller, dest, ifac, member);
    if (!message) return {CallStatus::kNoMessage, nullptr};
    if (!append(message.get())) {
        korvex_log_write(KORVEX_LOG_ERROR, caller, __LINE__, KORVEX_LOG_TAG, "dbus_message_append_args fail\n");
        return {CallStatus::kAppendFailed, nullptr};
    }
    return send_and_wait(data, message.get(), timeout_ms);
}

}  // namespace korvex::dbus
