#include "sim/bus_names.h"

#include "dbus/peer_catalog.h"
#include "sim/control_names.h"

namespace korvex::sim {

bool is_gateway_name(const std::string &name) {
    for (const char *known : korvex::peer::kAllBusNames)
        if (name == known)
            return true;
    return false;
}

bool BusNames::acquire(const std::string &name, std::string *error) {
    DBusError dbus_error;
    dbus_error_init(&dbus_error);
    int result = dbus_bus_request_name(connection_, name.c_str(), DBUS_NAME_FLAG_DO_NOT_QUEUE, &dbus_error);
    if (dbus_error_is_set(&dbus_error)) {
        *error = "cannot request " + name + ": " + dbus_error.message;
        dbus_error_free(&dbus_error);
        return false;
    }
    if (result != DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER && result != DBUS_REQUEST_NAME_REPLY_ALREADY_OWNER) {
        *error = name + " is owned by another connection";
        return false;
    }
    return true;
}

bool BusNames::acquire_all(std::string *error) {
    for (const char *name : korvex::peer::kAllBusNames)
        if (!acquire(name, error))
            return false;
    return acquire(control::kBusName, error);
}

bool BusNames::set_absent(const std::string &name, bool absent, std::string *error) {
    if (!is_gateway_name(name)) {
        *error = "\"" + name + "\" is not a gateway daemon";
        return false;
    }
    if (!absent) {
        if (absent_.count(name) == 0)
            return true;
        if (!acquire(name, error))
            return false;
        absent_.erase(name);
        return true;
    }
    if (absent_.count(name) != 0)
        return true;
    DBusError dbus_error;
    dbus_error_init(&dbus_error);
    dbus_bus_release_name(connection_, name.c_str(), &dbus_error);
    if (dbus_error_is_set(&dbus_error)) {
        *error = "cannot release " + name + ": " + dbus_error.message;
        dbus_error_free(&dbus_error);
        return false;
    }
    absent_.insert(name);
    return true;
}

bool BusNames::restore_all(std::string *error) {
    while (!absent_.empty()) {
        const std::string name = *absent_.begin();
        if (!set_absent(name, false, error))
            return false;
    }
    return true;
}

}  // namespace korvex::sim
