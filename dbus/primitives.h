// The nine method-call primitives through which every command reaches a gateway daemon.
// Each sends one call on the serving thread's private connection, blocks for the reply
// and returns its first argument (texts are copied into the request pool).
#pragma once

#include "dbus/dbus_types.h"
#include "base/apache_shim.h"

// Integer in / out and text in / out, described by a call descriptor. Failure: -1 or null.
int apache_dbus_send_str_ret_int(request_rec *r, const char *str, const DbusCallSpec *spec);
char *apache_dbus_send_str_ret_str(request_rec *r, const char *str, const DbusCallSpec *spec);
int apache_dbus_send_int_ret_int(request_rec *r, int value, const DbusCallSpec *spec);
char *apache_dbus_send_int_ret_str(request_rec *r, int value, const DbusCallSpec *spec);

// Fixed-shape calls. Text results are null without a reply and "(null)" for a reply that
// carries no (or no text) argument.
char *apache_dbus_string_message(request_rec *r, const char *str, const char *dest, const char *ifac,
                                 const char *command);
char *apache_dbus_get_nvram(request_rec *r, const char *key, const char *dest, const char *ifac);
char *apache_dbus_set_nvram(request_rec *r, const char *key, const char *value, const char *dest,
                            const char *ifac);
// -1 before sending (no connection, no message); 0 without reply; else the reply integer.
int apache_dbus_commit_nvram(request_rec *r, const char *dest, const char *ifac);
// 0 on every failure; else the reply integer.
int dbus_control_LED(request_rec *r, const char *led, unsigned value, const char *dest, const char *ifac);

namespace korvex::dbus {

struct Call;
struct Result;

// apache_dbus_get_nvram and apache_dbus_string_message as members of a set of calls sent
// together (the status snapshot): the call each would make, and what each returns once
// the set is through, with the primitive's own log lines.
enum class TextPrimitive { kGetNvram, kStringMessage };
Call text_call(TextPrimitive primitive, const DbusCallSpec &spec, const char *argument);
const char *text_outcome(request_rec *r, TextPrimitive primitive, const Call &call, const Result &result);

}  // namespace korvex::dbus

namespace korvex {

// How far a call got.
enum class Delivery {
    kNotSent,     // it reached no daemon: no connection, no message, a read to a destination
                  // that stopped answering, or the bus said nobody owns the destination
    kUnanswered,  // sent, but no answer came in time: the daemon may still act on it
    kAnswered,    // the daemon replied, or answered with an error
};

// apache_dbus_send_str_ret_int (same result, same log records) that also says how far the
// call got.
int send_str_ret_int(request_rec *r, const char *str, const DbusCallSpec &spec, Delivery *delivery);

// Shorthands naming a peer-table row instead of three texts.
inline char *string_message(request_rec *r, const char *str, const DbusCallSpec &spec) {
    return apache_dbus_string_message(r, str, spec.dest, spec.ifac, spec.cmd);
}
char *nvram_get(request_rec *r, const char *key);
char *nvram_set(request_rec *r, const char *key, const char *value);
int nvram_commit(request_rec *r);

}  // namespace korvex
