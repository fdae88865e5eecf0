#include "sim/control_interface.h"

#include <cstdarg>
#include <stdexcept>
#include <string>

#include "sim/peer_methods.h"

namespace korvex::sim {
namespace {

// Reads the call's arguments; an InvalidArgs reply comes back when they do not fit.
template <typename... Args>
bool read_args(DBusMessage *call, DBusMessage **error_reply, Args... args) {
    DBusError error;
    dbus_error_init(&error);
    if (dbus_message_get_args(call, &error, args..., DBUS_TYPE_INVALID))
        return true;
    *error_reply = dbus_message_new_error(call, kErrorInvalidArgs, error.message);
    dbus_error_free(&error);
    return false;
}

DBusMessage *invalid_args(DBusMessage *call, const std::string &reason) {
    return dbus_message_new_error(call, kErrorInvalidArgs, reason.c_str());
}

DBusMessage *return_with(DBusMessage *call, int first_type, ...) {
    DBusMessage *reply = dbus_message_new_method_return(call);
    va_list args;
    va_start(args, first_type);
    if (reply != nullptr && first_type != DBUS_TYPE_INVALID)
        dbus_message_append_args_valist(reply, first_type, args);
    va_end(args);
    return reply;
}

DBusMessage *presence_and_value(DBusMessage *call, const std::optional<std::string> &value) {
    dbus_bool_t present = value.has_value();
    const char *text = value ? value->c_str() : "";
    return return_with(call, DBUS_TYPE_BOOLEAN, &present, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
}

DBusMessage *reset(DBusMessage *call, SimulatorState &state) {
    state.records.clear();
    state.records.set_limit(kDefaultRecordLimit);
    state.rules.clear();
    state.busy.clear();
    std::string error;
    if (!state.names.restore_all(&error))
        return dbus_message_new_error(call, DBUS_ERROR_FAILED, error.c_str());
    try {
        state.nvram.reset_to_defaults();
    } catch (const std::runtime_error &failure) {
        return dbus_message_new_error(call, DBUS_ERROR_FAILED, failure.what());
    }
    return return_with(call, DBUS_TYPE_INVALID);
}

}  // namespace

DBusMessage *answer_control_call(DBusMessage *call, SimulatorState &state) {
    const std::string member = dbus_message_get_member(call);
    DBusMessage *error_reply = nullptr;
    const char *text = nullptr;
    const char *value = nullptr;
    dbus_bool_t flag = FALSE;

    if (member == "Ping") {
        const char *pong = "pong";
        return return_with(call, DBUS_TYPE_STRING, &pong, DBUS_TYPE_INVALID);
    }
    if (member == "Reset")
        return reset(call, state);
    if (member == "Records") {
        std::string json = state.records.to_json();
        const char *json_text = json.c_str();
        return return_with(call, DBUS_TYPE_STRING, &json_text, DBUS_TYPE_INVALID);
    }
    if (member == "ClearRecords") {
        state.records.clear();
        return return_with(call, DBUS_TYPE_INVALID);
    }
    if (member == "SetRecordLimit") {
        dbus_uint32_t limit = 0;
        if (!read_args(call, &error_reply, DBUS_TYPE_UINT32, &limit))
            return error_reply;
        if (limit == 0)
            return invalid_args(call, "the record limit must be at least 1");
        state.records.set_limit(limit);
        return return_with(call, DBUS_TYPE_INVALID);
    }
    if (member == "SetRule") {
        if (!read_args(call, &error_reply, DBUS_TYPE_STRING, &text))
            return error_reply;
        try {
            state.rules.set(parse_behaviour_rule(text));
        } catch (const std::invalid_argument &bad_rule) {
            return invalid_args(call, bad_rule.what());
        }
        return return_with(call, DBUS_TYPE_INVALID);
    }
    if (member == "SetAbsent") {
        if (!read_args(call, &error_reply, DBUS_TYPE_STRING, &text, DBUS_TYPE_BOOLEAN, &flag))
            return error_reply;
        std::string error;
        if (!state.names.set_absent(text, flag, &error))
            return invalid_args(call, error);
        return return_with(call, DBUS_TYPE_INVALID);
    }
    if (member == "NvramGet") {
        if (!read_args(call, &error_reply, DBUS_TYPE_STRING, &text))
            return error_reply;
        return presence_and_value(call, state.nvram.get(text));
    }
    if (member == "NvramGetCommitted") {
        if (!read_args(call, &error_reply, DBUS_TYPE_STRING, &text))
            return error_reply;
        try {
            return presence_and_value(call, state.nvram.committed_value(text));
        } catch (const std::runtime_error &failure) {
            return dbus_message_new_error(call, DBUS_ERROR_FAILED, failure.what());
        }
    }
    if (member == "NvramPut") {
        if (!read_args(call, &error_reply, DBUS_TYPE_STRING, &text, DBUS_TYPE_STRING, &value,
                       DBUS_TYPE_BOOLEAN, &flag))
            return error_reply;
        state.nvram.set(text, value);
        try {
            if (flag)
                state.nvram.put_committed(text, value);
        } catch (const std::runtime_error &failure) {
            return dbus_message_new_error(call, DBUS_ERROR_FAILED, failure.what());
        }
        return return_with(call, DBUS_TYPE_INVALID);
    }
    return dbus_message_new_error(call, kErrorUnknownMethod, ("No control method \"" + member + "\"").c_str());
}

}  // namespace korvex::sim
