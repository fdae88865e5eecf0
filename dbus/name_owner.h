// Who owns a daemon's well-known name, asked of the bus itself: a daemon that went silent
// is reached again at once when its watchdog has started a new one under the same name.
#pragma once

#include <cstddef>
#include <cstdint>

#include <dbus/dbus.h>

namespace korvex::dbus {

// The owner of `name` now, as a digest of its unique name; 0 when nobody owns it or the bus
// did not say. Waits at most the bus query's time-out, however full the connection's
// outgoing queue is. After the bus left a query unanswered, this thread asks nothing for a
// second: a bus that does not read costs one query's time-out, not one per call.
std::uint32_t ask_owner(DBusConnection *conn, const char *name);

// The owners asked about within one set of calls, so that each name is asked about once.
class OwnerCache {
public:
    explicit OwnerCache(DBusConnection *conn) : conn_(conn) {}
    std::uint32_t owner_of(const char *name);

private:
    static constexpr std::size_t kNames = 8;  // the gateway's daemons
    DBusConnection *conn_;
    const char *names_[kNames] = {};
    std::uint32_t owners_[kNames] = {};
    std::size_t count_ = 0;
};

}  // namespace korvex::dbus
