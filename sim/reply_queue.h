// Replies held back until their time has come, so a slow answer never holds up the
// answers to other calls.
#pragma once

#include <dbus/dbus.h>

#include <chrono>
#include <map>

namespace korvex::sim {

class ReplyQueue {
  public:
    using Clock = std::chrono::steady_clock;

    ReplyQueue() = default;
    ReplyQueue(const ReplyQueue &) = delete;
    ReplyQueue &operator=(const ReplyQueue &) = delete;
    ~ReplyQueue();

    // Takes over `reply` and sends it `delay_ms` from now.
    void schedule(DBusMessage *reply, int delay_ms);
    // Milliseconds until the next reply is due (0 if one is due), or `limit` when nothing
    // is due sooner.
    int ms_until_next(int limit) const;
    // Queues every reply that is due on `connection`; returns how many.
    int send_due(DBusConnection *connection);

  private:
    std::multimap<Clock::time_point, DBusMessage *> pending_;
};

}  // namespace korvex::sim
