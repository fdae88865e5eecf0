// Many text-returning method calls in flight at once on the serving thread's connection.
//
// Every call is queued in the given order before any reply is awaited; replies are then
// matched to their calls by reply serial as they arrive. Each call keeps its own time-out
// (counted from when the batch was sent), so the whole batch waits at most as long as its
// longest single time-out. Replies that arrive after their call gave up, and anything else
// queued on the connection, are dropped afterwards.
#pragma once

#include <cstddef>

#include "dbus/dbus_types.h"
#include "base/apache_shim.h"

namespace korvex::dbus {

// Which primitive a call stands in for; decides the "No reply" log line, which is the one
// that primitive writes.
enum class TextCallShape {
    kNvramGet,       // apache_dbus_get_nvram: the argument is the nvram key
    kStringMessage,  // apache_dbus_string_message
};

struct TextCall {
    const DbusCallSpec *spec;  // destination, interface, member and time-out
    const char *argument;      // the one STRING argument
    TextCallShape shape;
    // Filled by call_text_batch, exactly as the primitive would return it: null when no
    // reply came (time-out, error reply, bus gone); the text "(null)" when the reply
    // carries no text as its first argument; otherwise a copy in the request pool.
    const char *result;
};

// Sends calls[0..count) and collects their replies. Returns false, with every result null,
// when the thread has no usable connection (logged under `caller`).
bool call_text_batch(request_rec *r, TextCall *calls, std::size_t count, const char *caller);

}  // namespace korvex::dbus
