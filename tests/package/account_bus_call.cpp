#include "tests/package/account_bus_call.h"

#include <regex>
#include <sstream>

#include "tests/support/process_runner.h"

namespace korvex::test::package {

std::string blank_connection_details(const std::string &dbus_send_output) {
    static const std::regex sender(R"re(sender=":[0-9.]*" \([^)]*\))re");
    static const std::regex destination_process(R"re(" \([^)]*\)$)re");
    std::istringstream lines(dbus_send_output);
    std::string text;
    for (std::string line; std::getline(lines, line);) {
        line = std::regex_replace(line, sender, "sender=(client)");
        line = std::regex_replace(line, destination_process, "\" (daemon)");
        const size_t first = line.find_first_not_of(' ');
        const size_t last = line.find_last_not_of(' ');
        text += (text.empty() ? "" : "\n") + (first == std::string::npos ? "" : line.substr(first, last - first + 1));
    }
    return text;
}

std::string platform_call_as(const std::string &bus_address, const std::string &account, const std::string &group,
                             const std::string &output_file) {
    const CommandResult call = run_command(
        {"setpriv", "--reuid=" + account, "--regid=" + group, "--clear-groups", "env",
         "DBUS_SYSTEM_BUS_ADDRESS=" + bus_address, "dbus-send", "--system", "--print-reply=literal",
         "--dest=com.korvex-labs.www.platform", "/com/KorvexLabs/Apache/1", "com.KorvexLabs.platform.nvram.get",
         "string:SSID1"},
        output_file, 30000);
    return blank_connection_details(call.output);
}

}  // namespace korvex::test::package
