// The "No reply" records of the bus primitives and list fetchers: each text spelled once.
#pragma once

#include "dbus/exchange.h"

namespace korvex::dbus {

enum class NoReplyText {
    kPlain,    // "No reply"
    kStr,      // with the text sent, the destination, interface and member ("command")
    kKey,      // with the nvram key, the destination, interface and member ("cmd")
    kLed,      // with the LED name, the destination, interface and member
    kCommit,   // with the destination, interface and member
    kProcess,  // memory lists: destination, the memory interface, member and process name
};

// Writes the record under `func` for a call that got no reply (the server's log sink thins
// out repeats).
void log_no_reply(const char *func, NoReplyText text, const Call &call);

}  // namespace korvex::dbus
