// The nine call primitives as rows: how to call each with fixed arguments, what it returns
// before anything is sent, without a reply and for a reply without a usable argument, and
// its "No reply" record. Shared by the tests with and without a bus.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "dbus/peer_catalog.h"
#include "dbus/primitives.h"

namespace korvex::test {

struct PrimitiveRow {
    const char *name;  // the primitive, as its log lines name it
    std::string (*call)(request_rec *r);
    const char *before_sending;
    const char *without_reply;
    const char *empty_reply;
    const char *destination;  // where the call goes, for the simulator's rules
    const char *member;
    const char *no_reply_text;  // the message of its "No reply" record
};

inline void PrintTo(const PrimitiveRow &row, std::ostream *os) { *os << row.name; }

inline std::string shown(int value) { return std::to_string(value); }
inline std::string shown(const char *text) { return text != nullptr ? text : "null"; }

inline const std::vector<PrimitiveRow> &primitive_rows() {
    namespace peer = korvex::peer;
    static const std::vector<PrimitiveRow> rows = {
        {"apache_dbus_send_str_ret_int",
         [](request_rec *r) { return shown(apache_dbus_send_str_ret_int(r, "true", &peer::kDoSystem3s)); }, "-1", "-1",
         "-1", peer::kDoSystem3s.dest, "doSystem", "No reply"},
        {"apache_dbus_send_str_ret_str",
         [](request_rec *r) { return shown(apache_dbus_send_str_ret_str(r, "ap", &peer::kWifiModeGetMd5)); }, "null",
         "null", "null", peer::kWifiModeGetMd5.dest, "getmd5", "No reply"},
        {"apache_dbus_send_int_ret_int",
         [](request_rec *r) { return shown(apache_dbus_send_int_ret_int(r, 1, &peer::kAppResetConfig)); }, "-1", "-1",
         "-1", peer::kAppResetConfig.dest, "resetConfig", "No reply"},
        {"apache_dbus_send_int_ret_str",
         [](request_rec *r) { return shown(apache_dbus_send_int_ret_str(r, 1, &peer::kCheckUpdateStatus)); }, "null",
         "null", "null", peer::kCheckUpdateStatus.dest, "getupdatestatus", "No reply"},
        {"apache_dbus_string_message",
         [](request_rec *r) { return shown(korvex::string_message(r, "{}", peer::kSdkJsonCommand)); }, "null", "null",
         "(null)", peer::kSdkJsonCommand.dest, "command",
         "No reply, str: {}, dest: com.korvex-labs.www.sdk, ifac: com.KorvexLabs.json.command, command: command"},
        {"apache_dbus_get_nvram",
         [](request_rec *r) { return shown(apache_dbus_get_nvram(r, "SSID1", peer::kPlatform, peer::kIfNvram)); },
         "null", "null", "(null)", peer::kPlatform, "get",
         "No reply, key: SSID1, dest: com.korvex-labs.www.platform, ifac: com.KorvexLabs.platform.nvram, cmd: get"},
        {"apache_dbus_set_nvram",
         [](request_rec *r) {
             return shown(apache_dbus_set_nvram(r, "SSID1", "Rows", peer::kPlatform, peer::kIfNvram));
         },
         "null", "null", "(null)", peer::kPlatform, "set",
         "No reply, key: SSID1, dest: com.korvex-labs.www.platform, ifac: com.KorvexLabs.platform.nvram, cmd: set"},
        {"apache_dbus_commit_nvram",
         [](request_rec *r) { return shown(apache_dbus_commit_nvram(r, peer::kPlatform, peer::kIfNvram)); }, "-1", "0",
         "0", peer::kPlatform, "commit",
         "No reply, dest: com.korvex-labs.www.platform, ifac: com.KorvexLabs.platform.nvram, cmd: commit"},
        {"dbus_control_LED",
         [](request_rec *r) { return shown(dbus_control_LED(r, "power", 1, peer::kSdkLed.dest, peer::kSdkLed.ifac)); },
         "0", "0", "0", peer::kSdkLed.dest, "command",
         "No reply, led: power, dest: com.korvex-labs.www.sdk, ifac: com.KorvexLabs.control.LED, cmd: command"},
    };
    return rows;
}

}  // namespace korvex::test
