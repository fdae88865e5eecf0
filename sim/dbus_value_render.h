// Turns the arguments of a received message into record text and JSON.
#pragma once

#include <dbus/dbus.h>

#include <string>
#include <vector>

#include "sim/json_ptr.h"

namespace korvex::sim {

// One entry per argument: "<signature>:<value>". Basic values are written as plain text
// ("s:text", "i:-1", "b:true"); containers as compact JSON ("as:[\"a\",\"b\"]").
std::vector<std::string> render_message_args(DBusMessage *message);

// The arguments as a JSON array, one element per argument; structs become arrays,
// string-keyed dictionaries objects, variants their inner value.
JsonPtr message_args_as_json(DBusMessage *message);

}  // namespace korvex::sim
