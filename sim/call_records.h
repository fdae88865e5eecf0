// The calls and signals that reached the simulated daemons, in arrival order.
#pragma once

#include <dbus/dbus.h>

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

namespace korvex::sim {

struct CallRecord {
    std::string type;  // "method_call" or "signal"
    std::string destination;
    std::string interface;
    std::string member;
    std::string path;
    std::string sender;
    std::vector<std::string> args;  // "<signature>:<value>", see dbus_value_render.h
};

CallRecord make_call_record(DBusMessage *message);

// The newest records only, so that a simulator serving a long run keeps flat memory: at
// the default limit (about 450 bytes a record) the records take some 20 MB at most.
inline constexpr std::size_t kDefaultRecordLimit = 50000;

class CallRecords {
  public:
    // Adds a record; when the limit is reached the oldest one goes.
    void add(CallRecord record);
    void clear() { records_.clear(); }
    // Keeps at most `limit` (at least 1) of the newest records from now on.
    void set_limit(std::size_t limit);
    std::size_t limit() const { return limit_; }
    std::size_t size() const { return records_.size(); }
    // JSON array of objects with the fields of CallRecord, oldest first.
    std::string to_json() const;

  private:
    std::deque<CallRecord> records_;
    std::size_t limit_ = kDefaultRecordLimit;
};

}  // namespace korvex::sim
