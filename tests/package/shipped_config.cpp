#include "tests/package/shipped_config.h"

#include <sstream>
#include <stdexcept>

#include "tests/package/extracted_packages.h"

namespace korvex::test::package {
namespace {

// The names the simulator owns in place of the gateway's daemons.
const char *const kDaemonNames[] = {"platform", "sdk", "app", "socket", "debuger", "checkupdate", "update", "Telldus"};

bool has_line(const std::string &text, const std::string &line) {
    std::istringstream lines(text);
    for (std::string each; std::getline(lines, each);)
        if (each == line) return true;
    return false;
}

}  // namespace

std::string moved_copy(const std::string &shipped_text, const std::string &expected_line, const std::string &from,
                       const std::string &to) {
    if (!has_line(shipped_text, expected_line))
        throw std::runtime_error("the shipped file lacks the line: " + expected_line);
    std::string text = shipped_text;
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

std::string server_config(const ServerFiles &files, int port) {
    const std::string &run = files.run_dir;
    const std::string modules = kApacheModules;
    std::string conf = "# Debian's server with the packaged module; written by the package test.\n";
    conf += "ServerRoot \"" + run + "\"\n";
    conf += "DefaultRuntimeDir \"" + run + "/run\"\n";
    conf += "PidFile \"" + run + "/run/httpd.pid\"\n";
    conf += "Listen 127.0.0.1:" + std::to_string(port) + "\n";
    conf += "ServerName 127.0.0.1\nTimeout 20\n";
    for (const char *module : {"mpm_event", "authz_core", "authz_user", "authn_core", "authn_file", "auth_basic",
                               "mime", "dir", "reqtimeout"})
        conf += std::string("LoadModule ") + module + "_module " + modules + "/mod_" + module + ".so\n";
    conf += "# As Debian enables it (mods-available/reqtimeout.conf).\n"
            "RequestReadTimeout header=20-40,minrate=500\n"
            "RequestReadTimeout body=10,minrate=500\n";
    conf += "ErrorLog \"" + run + "/logs/error.log\"\nLogLevel warn\n";
    conf += "CustomLog \"" + run + "/logs/access.log\" \"%h %t \\\"%r\\\" %>s %b\"\n";
    conf += "TypesConfig /etc/mime.types\n";
    conf += "DocumentRoot \"" + run + "/htdocs\"\nDirectoryIndex index.html\n";
    conf += "<IfModule mpm_event_module>\n"
            "    StartServers 1\n    ServerLimit 2\n    ThreadLimit 4\n    ThreadsPerChild 4\n"
            "    MinSpareThreads 1\n    MaxSpareThreads 8\n    MaxRequestWorkers 8\n"
            "</IfModule>\n";
    conf += "Include \"" + files.load_file + "\"\n";
    conf += "Include \"" + files.module_conf + "\"\n";
    if (!files.auth_conf.empty()) conf += "Include \"" + files.auth_conf + "\"\n";
    return conf;
}

std::string bus_config(const std::string &run_dir, const std::string &module_policy) {
    std::string simulator_owns;
    for (const char *name : kDaemonNames)
        simulator_owns += std::string("    <allow own=\"com.korvex-labs.www.") + name + "\"/>\n";
    return R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<!-- A system bus that denies by default; written by the package test. -->
<busconfig>
  <type>system</type>
  <listen>unix:path=)" + run_dir + R"(/bus/socket</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <deny send_type="signal"/>
    <deny receive_type="method_call"/>
    <deny receive_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus.Introspectable"/>
    <!-- Stricter than Debian's system bus: replies only from the bus itself, unless a
         policy below allows more. -->
    <allow receive_sender="org.freedesktop.DBus"/>
  </policy>
  <include>)" + module_policy + R"(</include>
  <!-- Test only: the simulator (root) stands in for the daemons and is driven by the test. -->
  <policy user="root">
)" + simulator_owns + R"(    <allow own="com.korvex-labs.sim"/>
    <allow send_destination="com.korvex-labs.sim"/>
    <allow receive_sender="com.korvex-labs.sim"/>
    <allow receive_type="method_call"/>
    <allow receive_type="signal"/>
  </policy>
</busconfig>
)";
}

std::string narrowed_policy(const std::string &policy_text, const std::string &send_interface) {
    const std::string interface_rule = "send_interface=\"" + send_interface + "\"";
    std::istringstream lines(policy_text);
    std::string narrowed;
    for (std::string line; std::getline(lines, line);) {
        if (line.find(interface_rule) != std::string::npos) continue;
        if (line.find("send_member=\"rewriteEntire\"") != std::string::npos) continue;
        narrowed += line + "\n";
    }
    return narrowed;
}

int count_lines_with(const std::string &text, const std::string &needle) {
    std::istringstream lines(text);
    int count = 0;
    for (std::string line; std::getline(lines, line);)
        if (line.find(needle) != std::string::npos) ++count;
    return count;
}

}  // namespace korvex::test::package
