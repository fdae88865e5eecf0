// Partner services: the Telldus 433 MHz bridge (switched on by its 10-character secret,
// which also switches the Wi-Fi radio off), the Vivotek camera proxy, the WeBeHome
// service, and a 433 MHz test transmission.
#include <cstring>

#include "base/log.h"
#include "commands/command_shapes.h"
#include "commands/system/rf433_frame.h"
#include "commands/system/value_checks.h"
#include "dbus/peer_catalog.h"
#include "dbus/primitives.h"
#include "registry/handlers.h"

namespace {

using namespace korvex::shape;
namespace peer = korvex::peer;

constexpr char kTelldusSecretKey[] = "TelldusSecret";
constexpr char kWifiModeKey[] = "WifiMode";
constexpr char kVivotekUuidKey[] = "VivotekUuid";

constexpr std::size_t kTelldusSecretLength = 10;
constexpr char kStopBridge[] = "killall Telldus";

// Stores the secret and the radio's role that goes with it, and commits.
void store_telldus_secret(request_rec *r, const char *secret, const char *wifi_mode) {
    korvex::nvram_set(r, kTelldusSecretKey, secret);
    korvex::nvram_set(r, kWifiModeKey, wifi_mode);
    korvex::nvram_commit(r);
}

}  // namespace

// 10 characters start the bridge (and switch the radio off); an empty value stops it (and
// switches the access point back on); any other length changes nothing and fails. The
// bridge starts only when the Ethernet address and the stored secret could both be read.
int setTelldusSecret(request_rec *r, char *value) {
    const std::size_t length = std::strlen(value);
    if (length == kTelldusSecretLength) {
        run_shell(r, peer::kDoSystem3s, kStopBridge);
        store_telldus_secret(r, value, "OFF");
        const char *address = korvex::string_message(r, peer::kWanInterface, peer::kNetGetMac);
        const char *secret = korvex::nvram_get(r, kTelldusSecretKey);
        print_reply(r, secret, Reply::kAlways);
        if (address != nullptr && secret != nullptr) {
            run_shell(r, peer::kDoSystem3s, "Telldus %s %s", {address, secret});
        }
        return 1;
    }
    if (length != 0) return 0;
    store_telldus_secret(r, "", "AP");
    print_reply(r, korvex::nvram_get(r, kTelldusSecretKey), Reply::kAlways);
    run_shell(r, peer::kDoSystem3s, kStopBridge);
    return 1;
}

int getTelldusSecret(request_rec *r, char *) { return print_nvram(r, kTelldusSecretKey, __func__); }

// A stored identifier starts the proxy, an empty one stops it. A read-back that brings no
// answer counts as empty.
int setVivotekUuid(request_rec *r, char *value) {
    korvex::nvram_set(r, kVivotekUuidKey, value);
    const char *stored = korvex::nvram_get(r, kVivotekUuidKey);
    print_reply(r, stored, Reply::kAlways);
    if (stored != nullptr && *stored != '\0') {
        run_shell(r, peer::kDoSystem5s, "p2pproxyserver %s &", {stored});
    } else {
        run_shell(r, peer::kDoSystem5s, "killall p2pproxyserver");
    }
    korvex::nvram_commit(r);
    return 1;
}

int getVivotekUuid(request_rec *r, char *) { return print_nvram(r, kVivotekUuidKey, __func__); }

int refreshWeBeHome(request_rec *r, char *) {
    apache_dbus_send_int_ret_int(r, peer::kWeBeHomeRefreshArgument, &peer::kWeBeHomeRefresh);
    return 1;
}

// A value whose leading integer is not 0 sends the on frame; any other the off frame.
int test433(request_rec *r, char *value) {
    const bool on = korvex::leading_integer(value) != 0;
    const std::string frame = korvex::rf433::frame(on ? korvex::rf433::kOnCode : korvex::rf433::kOffCode);
    korvex::string_message(r, frame.c_str(), peer::kTelldusTest433);
    return 1;
}
