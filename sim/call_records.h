// The calls and signals that reached the simulated daemons, in arrival order.
#pragma once

#include <dbus/dbus.h>

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

class CallRecords {
  public:
    void add(CallRecord record) { records_.push_back(std::move(record)); }
    void clear() { records_.clear(); }
    // JSON array of objects with the fields of CallRecord.
    std::string to_json() const;

  private:
    std::vector<CallRecord> records_;
};

}  // namespace korvex::sim
