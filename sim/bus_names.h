// Ownership of the gateway daemons' bus names and of the control name.
#pragma once

#include <dbus/dbus.h>

#include <set>
#include <string>

namespace korvex::sim {

bool is_gateway_name(const std::string &name);

class BusNames {
  public:
    explicit BusNames(DBusConnection *connection) : connection_(connection) {}

    // Requests every gateway name and the control name; false with a reason when one of
    // them cannot be owned.
    bool acquire_all(std::string *error);
    // Releases a gateway name so that calls to it fail at the bus, or takes it back.
    bool set_absent(const std::string &name, bool absent, std::string *error);
    // Takes back every released name.
    bool restore_all(std::string *error);

  private:
    bool acquire(const std::string &name, std::string *error);

    DBusConnection *connection_;
    std::set<std::string> absent_;
};

}  // namespace korvex::sim
