// Test-side client of the gateway simulator's control interface.
#pragma once

#include <dbus/dbus.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace korvex::test {

// One call or signal that reached the simulated daemons.
struct SimRecord {
    std::string type;  // "method_call" or "signal"
    std::string destination;  // "" for calls sent without destination
    std::string interface;
    std::string member;
    std::string path;
    std::string sender;
    std::vector<std::string> args;  // "<signature>:<value>", e.g. "s:text", "i:-1", "as:[\"a\"]"
};

// Steers a running simulator. Every method throws std::runtime_error when the control
// call fails or is refused.
class SimClient {
  public:
    // Connects to the bus at `bus_address` on a private connection of its own.
    explicit SimClient(const std::string &bus_address);
    ~SimClient();
    SimClient(const SimClient &) = delete;
    SimClient &operator=(const SimClient &) = delete;

    // Back to the start: no records, no rules, every daemon present, settings as in the
    // defaults file (working and committed copies).
    void reset();
    std::vector<SimRecord> records();
    void clear_records();
    // Keeps only the newest `limit` records from now on (Reset restores the default).
    void set_record_limit(uint32_t limit);
    // Adds or replaces a behaviour rule, e.g.
    // {"destination":"com.korvex-labs.www.sdk","member":"version","mode":"silent"}.
    void set_rule(const std::string &rule_json);
    // Takes a daemon's bus name off the bus (calls to it fail at once) or puts it back.
    void set_absent(const std::string &bus_name, bool absent);
    // Working value of a setting, nullopt when unset.
    std::optional<std::string> nvram(const std::string &key);
    // Committed value of a setting (what survives a reboot), nullopt when unset.
    std::optional<std::string> nvram_committed(const std::string &key);
    // Sets a setting without a record; with `commit` it is also stored as committed.
    void nvram_put(const std::string &key, const std::string &value, bool commit);
    // The records once at least `count` exist, or whatever exists after `timeout_ms`.
    std::vector<SimRecord> wait_for_records(std::size_t count, int timeout_ms);
    // "pong" when the simulator answers.
    std::string ping();

  private:
    // Sends one control call; `first_arg_type` and what follows as for
    // dbus_message_append_args. Returns the reply, which the caller releases.
    DBusMessage *call(const char *member, int first_arg_type, ...);

    DBusConnection *connection_ = nullptr;
};

}  // namespace korvex::test
