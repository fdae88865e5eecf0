#include "dbus/name_owner.h"

#include <chrono>
#include <cstring>

#include "dbus/connection.h"
#include "dbus/dbus_ptr.h"
#include "dbus/exchange.h"
#include "dbus/peer_catalog.h"
#include "dbus/silence_state.h"

namespace korvex::dbus {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kQueryPause = std::chrono::seconds(1);
thread_local Clock::time_point t_queries_paused_until{};

// The reply to `serial`, or null when none came by `deadline` (or the bus went away).
// Anything else that arrives meanwhile is a late reply to an earlier call: dropped, as the
// exchange drops it.
MessagePtr await_reply(DBusConnection *conn, dbus_uint32_t serial, Clock::time_point deadline) {
    for (;;) {
        while (DBusMessage *raw = dbus_connection_pop_message(conn)) {
            MessagePtr message(raw);
            if (dbus_message_get_reply_serial(message.get()) == serial) return message;
            count_dropped_message();
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0 || !dbus_connection_read_write(conn, static_cast<int>(left))) return nullptr;
    }
}

}  // namespace

std::uint32_t ask_owner(DBusConnection *conn, const char *name) {
    const Clock::time_point now = Clock::now();
    if (now < t_queries_paused_until) return 0;
    MessagePtr query(dbus_message_new_method_call(peer::kBusDaemon, peer::kBusPath, peer::kBusDaemon,
                                                  peer::kBusGetNameOwner));
    if (!query || !dbus_message_append_args(query.get(), DBUS_TYPE_STRING, &name, DBUS_TYPE_INVALID)) return 0;
    // Not dbus_connection_send_with_reply_and_block: it first writes out everything queued
    // on the connection, with no time limit, and a bus that stopped reading never lets it.
    dbus_uint32_t serial = 0;
    if (!dbus_connection_send(conn, query.get(), &serial)) return 0;
    MessagePtr reply = await_reply(conn, serial, now + std::chrono::milliseconds(peer::kTimeoutBusQuery));
    if (!reply) {
        t_queries_paused_until = Clock::now() + kQueryPause;
        return 0;
    }
    if (dbus_message_get_type(reply.get()) != DBUS_MESSAGE_TYPE_METHOD_RETURN) return 0;  // nobody owns it
    return silence::owner_digest(first_string(reply.get()));
}

std::uint32_t OwnerCache::owner_of(const char *name) {
    for (std::size_t i = 0; i < count_; ++i) {
        if (std::strcmp(names_[i], name) == 0) return owners_[i];
    }
    const std::uint32_t owner = ask_owner(conn_, name);
    if (count_ < kNames) {
        names_[count_] = name;
        owners_[count_++] = owner;
    }
    return owner;
}

}  // namespace korvex::dbus
