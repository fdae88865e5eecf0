// Records shared by the bus client and the command handlers.
#pragma once

struct DBusConnection;

// Describes one method call: who receives it, on which interface, which member, and how
// long the caller waits for the reply (milliseconds; -1 means libdbus's default).
struct DbusCallSpec {
    const char *dest;
    const char *ifac;
    const char *cmd;
    int timeout;
};

// A serving thread's private system-bus connection and the object path its calls carry.
// `fd` is the connection's socket (-1 without one), kept so that a process forked to run
// another program can close it without calling into libdbus.
struct DbusData {
    DBusConnection *conn;
    const char *objPath;
    int fd;
};
