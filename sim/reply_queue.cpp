#include "sim/reply_queue.h"

#include <algorithm>

namespace korvex::sim {

ReplyQueue::~ReplyQueue() {
    for (auto &[due, reply] : pending_)
        dbus_message_unref(reply);
}

void ReplyQueue::schedule(DBusMessage *reply, int delay_ms) {
    pending_.emplace(Clock::now() + std::chrono::milliseconds(delay_ms), reply);
}

int ReplyQueue::ms_until_next(int limit) const {
    if (pending_.empty())
        return limit;
    auto wait = std::chrono::ceil<std::chrono::milliseconds>(pending_.begin()->first - Clock::now());
    return int(std::clamp<long long>(wait.count(), 0, limit));
}

int ReplyQueue::send_due(DBusConnection *connection) {
    int sent = 0;
    const auto now = Clock::now();
    while (!pending_.empty() && pending_.begin()->first <= now) {
        DBusMessage *reply = pending_.begin()->second;
        pending_.erase(pending_.begin());
        dbus_connection_send(connection, reply, nullptr);
        dbus_message_unref(reply);
        ++sent;
    }
    return sent;
}

}  // namespace korvex::sim
