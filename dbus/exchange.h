// The one way a message leaves the module: a set of method calls and signals sent in
// order on the serving thread's connection, each call's reply collected under its own
// deadline (counted from when the set went out). A blocking primitive is a set of one;
// the status snapshot a set of 22.
//
// Here, and only here: finding the connection (and replacing one the bus dropped), asking
// the table of silent destinations whether and how a call may go, sending, writing out
// under the deadline, waiting, dropping messages that nobody waits for, and telling the
// table how each call ended.
#pragma once

#include <cstddef>
#include <cstdint>

#include "dbus/dbus_ptr.h"
#include "dbus/dbus_types.h"
#include "dbus/peer_catalog.h"
#include "base/apache_shim.h"

namespace korvex::dbus {

// One basic argument.
struct Arg {
    enum class Type : unsigned char { kNone, kString, kInt32, kUint32 };
    Type type = Type::kNone;
    const char *text = nullptr;
    std::uint32_t bits = 0;  // kInt32 and kUint32: the value's 32 bits

    static Arg string(const char *text) { return {Type::kString, text, 0}; }
    static Arg int32(int value) { return {Type::kInt32, nullptr, static_cast<std::uint32_t>(value)}; }
    static Arg uint32(unsigned value) { return {Type::kUint32, nullptr, value}; }
};

enum class Kind : unsigned char { kMethodCall, kSignal };

struct Call {
    Kind kind;
    const char *dest;  // method calls: null sends the call without destination
    const char *ifac;
    const char *member;
    int timeout_ms;  // reply time-out (signals: how long writing may take); -1: libdbus's default
    peer::Effect effect;
    Arg args[2];

    static Call method(const char *dest, const char *ifac, const char *member, int timeout_ms, Arg first,
                       Arg second = Arg()) {
        return {Kind::kMethodCall, dest, ifac, member, timeout_ms, peer::effect_of(ifac, member), {first, second}};
    }
    static Call method(const DbusCallSpec &spec, Arg first, Arg second = Arg()) {
        return method(spec.dest, spec.ifac, spec.cmd, spec.timeout, first, second);
    }
    static Call signal(const char *ifac, const char *member, Arg value) {
        return {Kind::kSignal, nullptr, ifac, member, peer::kTimeoutSignalWrite, peer::Effect::kWrite, {value, Arg()}};
    }
};

enum class Outcome : unsigned char {
    kNoConnection,  // no usable connection ("dbusData is NULL" logged)
    kNotBuilt,      // the message could not be made, or an argument not added (logged)
    kFailedFast,    // its destination is silent: a read was not sent, a write was sent
                    // without waiting for its reply
    kNoReply,       // time-out, error reply, or the bus went away
    kReply,         // `reply` holds the answer (signals: written out)
};

struct Result {
    Outcome outcome = Outcome::kNoConnection;
    MessagePtr reply;
    // With kNoReply: an error reply came. no_owner: it came from the bus itself, saying
    // that nobody owns the destination (the daemon is absent), so the call reached no daemon.
    bool answered_with_error = false;
    bool no_owner = false;
};

// Sends calls[0..count) and fills results[0..count). `caller` names the function in the
// log lines written here.
void exchange(request_rec *r, const char *caller, const Call *calls, Result *results, std::size_t count);

inline Result exchange_one(request_rec *r, const char *caller, const Call &call) {
    Result result;
    exchange(r, caller, &call, &result, 1);
    return result;
}

// First reply argument as a 32-bit integer (signed or unsigned, same bits). False when the
// reply has no argument or its first argument is of another type.
bool first_int32(DBusMessage *reply, dbus_int32_t *out);
// First reply argument as text (null when absent or of another type).
const char *first_string(DBusMessage *reply);

}  // namespace korvex::dbus
