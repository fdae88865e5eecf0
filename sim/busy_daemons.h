// Daemons kept busy by a "busy" rule: a gateway daemon runs one call at a time, so calls
// that reach it while it works wait in its socket and run, in order, once it is free.
#pragma once

#include <dbus/dbus.h>

#include <chrono>
#include <deque>
#include <map>
#include <string>

namespace korvex::sim {

// Most calls held for one daemon; past it the bus itself would stop taking them.
constexpr std::size_t kMaxHeldCalls = 10000;

class BusyDaemons {
  public:
    using Clock = std::chrono::steady_clock;

    BusyDaemons() = default;
    BusyDaemons(const BusyDaemons &) = delete;
    BusyDaemons &operator=(const BusyDaemons &) = delete;
    ~BusyDaemons();

    // Keeps `destination` working for `busy_ms` from now.
    void occupy(const std::string &destination, int busy_ms);
    // True while `destination` works or has calls waiting.
    bool is_busy(const std::string &destination) const;
    // Holds `call` (a new reference is taken) until `destination` is free; false when the
    // backlog is full and the call was not taken.
    bool hold(const std::string &destination, DBusMessage *call);
    // The oldest held call of a daemon that is free now (the caller owns the reference),
    // or null when none is.
    DBusMessage *next_ready();
    // Milliseconds until a busy daemon with waiting calls becomes free (0 if one is), or
    // `limit` when none does sooner.
    int ms_until_next(int limit) const;
    // Forgets every busy period and drops the held calls.
    void clear();

  private:
    struct Daemon {
        Clock::time_point busy_until;
        std::deque<DBusMessage *> held;
    };
    std::map<std::string, Daemon> daemons_;
};

}  // namespace korvex::sim
