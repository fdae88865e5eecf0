// A client of another account on the gateway's bus: dbus-send under setpriv, calling the
// platform daemon's settings getter directly, as the module would.
#pragma once

#include <string>

namespace korvex::test::package {

// What dbus-send prints for "nvram.get SSID1" sent as account:group to
// com.korvex-labs.www.platform, each line trimmed, with the parts that change from run to
// run blanked: the sender's connection name and process details become "sender=(client)",
// the destination's process details "(daemon)". output_file keeps the raw output.
std::string platform_call_as(const std::string &bus_address, const std::string &account, const std::string &group,
                             const std::string &output_file);

// The blanking of platform_call_as on a text.
std::string blank_connection_details(const std::string &dbus_send_output);

}  // namespace korvex::test::package
