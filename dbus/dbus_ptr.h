// Owning handles for libdbus objects, so every message, reply, pending call and error
// record is released on every path.
#pragma once

#include <dbus/dbus.h>

#include <memory>

namespace korvex::dbus {

struct MessageUnref {
    void operator()(DBusMessage *m) const { dbus_message_unref(m); }
};
using MessagePtr = std::unique_ptr<DBusMessage, MessageUnref>;

// A private connection is closed before its last reference goes (libdbus requires it).
struct ConnectionClose {
    void operator()(DBusConnection *c) const {
        dbus_connection_close(c);
        dbus_connection_unref(c);
    }
};
using ConnectionPtr = std::unique_ptr<DBusConnection, ConnectionClose>;

// A libdbus error record, initialised on construction and freed on destruction.
class Error {
public:
    Error() { dbus_error_init(&error_); }
    ~Error() { dbus_error_free(&error_); }
    Error(const Error &) = delete;
    Error &operator=(const Error &) = delete;

    DBusError *get() { return &error_; }
    bool is_set() const { return dbus_error_is_set(&error_) != 0; }
    const char *message() const { return error_.message; }
    const char *name() const { return error_.name; }
    bool has_name(const char *name) const { return dbus_error_has_name(&error_, name) != 0; }

private:
    DBusError error_;
};

}  // namespace korvex::dbus
