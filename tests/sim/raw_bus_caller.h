// Plain libdbus calls to the simulated daemons, as the module makes them, for tests that
// look at the answers themselves.
#pragma once

#include <dbus/dbus.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace korvex::test {

// What came back for one call.
struct CallOutcome {
    std::string error_name;  // empty for a method return
    std::string signature;   // of the method return
    DBusMessage *reply = nullptr;
    long elapsed_ms = 0;

    CallOutcome() = default;
    CallOutcome(const CallOutcome &) = delete;
    CallOutcome &operator=(const CallOutcome &) = delete;
    CallOutcome(CallOutcome &&other) noexcept { *this = std::move(other); }
    CallOutcome &operator=(CallOutcome &&other) noexcept {
        std::swap(error_name, other.error_name);
        std::swap(signature, other.signature);
        std::swap(reply, other.reply);
        elapsed_ms = other.elapsed_ms;
        return *this;
    }
    ~CallOutcome() {
        if (reply != nullptr)
            dbus_message_unref(reply);
    }

    // First reply argument of that type; throws when the reply has no such argument.
    std::string string_arg() const { return basic_arg<const char *>(DBUS_TYPE_STRING); }
    int32_t int_arg() const { return basic_arg<dbus_int32_t>(DBUS_TYPE_INT32); }
    uint32_t uint_arg() const { return basic_arg<dbus_uint32_t>(DBUS_TYPE_UINT32); }
    std::vector<std::string> strings_arg() const {
        DBusMessageIter iter, elements;
        if (reply == nullptr || !dbus_message_iter_init(reply, &iter) ||
            dbus_message_iter_get_arg_type(&iter) != DBUS_TYPE_ARRAY ||
            dbus_message_iter_get_element_type(&iter) != DBUS_TYPE_STRING)
            throw std::runtime_error("reply has no string array but \"" + signature + "\"");
        std::vector<std::string> strings;
        dbus_message_iter_recurse(&iter, &elements);
        while (dbus_message_iter_get_arg_type(&elements) == DBUS_TYPE_STRING) {
            const char *text = nullptr;
            dbus_message_iter_get_basic(&elements, &text);
            strings.push_back(text);
            dbus_message_iter_next(&elements);
        }
        return strings;
    }

  private:
    template <typename T>
    T basic_arg(int type) const {
        DBusMessageIter iter;
        if (reply == nullptr || !dbus_message_iter_init(reply, &iter) ||
            dbus_message_iter_get_arg_type(&iter) != type)
            throw std::runtime_error("reply starts with \"" + signature + "\", not '" + char(type) + "'");
        T value{};
        dbus_message_iter_get_basic(&iter, &value);
        return value;
    }
};

class RawBusCaller {
  public:
    using Appender = std::function<void(DBusMessage *)>;

    explicit RawBusCaller(const std::string &bus_address) {
        DBusError error;
        dbus_error_init(&error);
        connection_ = dbus_connection_open_private(bus_address.c_str(), &error);
        if (connection_ == nullptr || !dbus_bus_register(connection_, &error)) {
            std::string reason = error.message ? error.message : "cannot connect";
            dbus_error_free(&error);
            throw std::runtime_error(reason);
        }
        dbus_connection_set_exit_on_disconnect(connection_, FALSE);
    }
    ~RawBusCaller() {
        dbus_connection_close(connection_);
        dbus_connection_unref(connection_);
    }
    RawBusCaller(const RawBusCaller &) = delete;
    RawBusCaller &operator=(const RawBusCaller &) = delete;

    std::string unique_name() const { return dbus_bus_get_unique_name(connection_); }
    DBusConnection *connection() const { return connection_; }

    // A method call; `destination` null sends it without destination.
    static DBusMessage *new_call(const char *destination, const char *interface, const char *member,
                                 const char *path = "/com/KorvexLabs/Apache/1234") {
        return dbus_message_new_method_call(destination, path, interface, member);
    }

    // Appenders for the usual single arguments.
    static Appender str(const std::string &text) {
        return [text](DBusMessage *message) {
            const char *value = text.c_str();
            dbus_message_append_args(message, DBUS_TYPE_STRING, &value, DBUS_TYPE_INVALID);
        };
    }
    static Appender int32(dbus_int32_t number) {
        return [number](DBusMessage *message) {
            dbus_message_append_args(message, DBUS_TYPE_INT32, &number, DBUS_TYPE_INVALID);
        };
    }

    // Sends `message` (taken over) and waits for the answer.
    CallOutcome send(DBusMessage *message, int timeout_ms) {
        CallOutcome outcome;
        DBusError error;
        dbus_error_init(&error);
        const auto start = std::chrono::steady_clock::now();
        outcome.reply = dbus_connection_send_with_reply_and_block(connection_, message, timeout_ms, &error);
        outcome.elapsed_ms = long(std::chrono::duration_cast<std::chrono::milliseconds>(
                                      std::chrono::steady_clock::now() - start)
                                      .count());
        dbus_message_unref(message);
        if (outcome.reply == nullptr) {
            outcome.error_name = error.name ? error.name : "";
            dbus_error_free(&error);
        } else {
            outcome.signature = dbus_message_get_signature(outcome.reply);
        }
        return outcome;
    }

    CallOutcome call(const char *destination, const char *interface, const char *member,
                     const Appender &append_args, int timeout_ms = 2000) {
        DBusMessage *message = new_call(destination, interface, member);
        if (append_args)
            append_args(message);
        return send(message, timeout_ms);
    }

  private:
    DBusConnection *connection_ = nullptr;
};

}  // namespace korvex::test
