// Appends values given as JSON to a message, following a D-Bus signature.
#pragma once

#include <dbus/dbus.h>

#include <string>

#include "sim/json_ptr.h"

namespace korvex::sim {

// Appends `values` (a JSON array, one element per complete type of `signature`) to
// `message`. Integer types take a JSON integer or a decimal string; "d" any number; "b"
// true/false or 0/1; "s", "o", "g" a string; arrays a JSON array (dictionaries a JSON
// object or an array of [key, value] pairs); structs a JSON array of their fields; "v" any
// JSON value, whose D-Bus type is inferred. On failure returns false with a reason in
// `error`; the message must then be discarded.
bool append_json_values(DBusMessage *message, const std::string &signature, const json_t *values,
                        std::string *error);

// Whether `values` fit `signature`, without keeping a message.
bool json_values_fit_signature(const std::string &signature, const json_t *values,
                               std::string *error);

}  // namespace korvex::sim
