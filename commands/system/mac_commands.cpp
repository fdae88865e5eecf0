// MAC addresses: programs the Ethernet and Wi-Fi addresses into the factory data ("setmac"
// through the platform daemon) and derives the device name and the access point's default
// SSID from them. "setMAC" sets both and restarts the gateway; the others change one.
#include "base/absent_text.h"
#include "base/log.h"
#include "commands/command_shapes.h"
#include "commands/system/mac_address.h"
#include "dbus/peer_catalog.h"
#include "dbus/primitives.h"
#include "registry/handlers.h"

namespace {

using korvex::shape::gateway_model;
using korvex::shape::run_shell;
namespace mac = korvex::mac;
namespace peer = korvex::peer;

constexpr char kMacTypeKey[] = "macType";
constexpr char kMacTypeKorvex[] = "Korvex";
constexpr char kDeviceNameKey[] = "DeviceName";
constexpr char kSsidKey[] = "SSID1";
constexpr char kWanMacKey[] = "WAN_MAC_ADDR";

constexpr char kSetBothLine[] = "setmac -l %s -w %s";
constexpr char kSetEthernetLine[] = "setmac -l %s";
constexpr char kSetWifiLine[] = "setmac -w %s";
constexpr char kRebootLine[] = "reboot &";

// Every shell line of these commands waits up to 30 s for the platform daemon.
const DbusCallSpec &kRun = peer::kDoSystem30s;

void print_address(request_rec *r, const char *label, const char *address_text) {
    ap_rprintf(r, "%s: %s<br>", label, address_text);
}

void store_default_ssid(request_rec *r, const char *model, const mac::Address &wifi) {
    korvex::nvram_set(r, kSsidKey, mac::default_ssid(r->pool, model, wifi));
    korvex::nvram_commit(r);
}

}  // namespace

// The Wi-Fi address is the Ethernet one plus one in its last field, without carry: an
// Ethernet address ending in ff gives a Wi-Fi address ending in "100".
int setMAC(request_rec *r, char *value) {
    mac::Address ethernet;
    mac::Address wifi;
    if (!mac::parse(value, &ethernet) || !mac::parse(value, &wifi)) {
        KLOG(KORVEX_LOG_ERROR, "setMac: ethMAC error.\n");
        return 0;
    }
    wifi = mac::next_in_block(wifi);
    const char *ethernet_text = mac::colon_text(r->pool, ethernet);
    const char *wifi_text = mac::colon_text(r->pool, wifi);
    run_shell(r, kRun, kSetBothLine, {ethernet_text, wifi_text});
    print_address(r, "eth", ethernet_text);
    print_address(r, "wifi", wifi_text);
    korvex::nvram_set(r, kMacTypeKey, kMacTypeKorvex);
    const char *model = gateway_model(r);
    korvex::nvram_set(r, kDeviceNameKey, mac::device_name(r->pool, model, ethernet_text));
    store_default_ssid(r, model, wifi);
    korvex::nvram_set(r, kWanMacKey, ethernet_text);
    korvex::nvram_commit(r);
    run_shell(r, kRun, kRebootLine);
    return 1;
}

// The device name carries the address's fields in reverse order (unlike setMAC's); no
// restart, and the WAN address and MAC type stay as they are.
int setEthMAC(request_rec *r, char *value) {
    mac::Address ethernet;
    if (!mac::parse(value, &ethernet)) {
        KLOG(KORVEX_LOG_ERROR, "setMac: eth MAC error.\n");
        return 0;
    }
    const char *ethernet_text = mac::colon_text(r->pool, ethernet);
    run_shell(r, kRun, kSetEthernetLine, {ethernet_text});
    const char *model = gateway_model(r);
    print_address(r, "eth", ethernet_text);
    korvex::nvram_set(r, kDeviceNameKey, mac::device_name(r->pool, model, mac::colon_text_reversed(r->pool, ethernet)));
    korvex::nvram_commit(r);
    return 1;
}

int setWifiMAC(request_rec *r, char *value) {
    mac::Address wifi;
    if (!mac::parse(value, &wifi)) {
        KLOG(KORVEX_LOG_ERROR, "setMac: Wifi MAC error.\n");
        return 0;
    }
    const char *wifi_text = mac::colon_text(r->pool, wifi);
    run_shell(r, kRun, kSetWifiLine, {wifi_text});
    const char *model = gateway_model(r);
    print_address(r, "wifi", wifi_text);
    store_default_ssid(r, model, wifi);
    return 1;
}

int getMAC(request_rec *r, char *) {
    print_address(r, "eth", korvex::or_absent(korvex::string_message(r, peer::kWanInterface, peer::kNetGetMac)));
    print_address(r, "wifi", korvex::or_absent(korvex::string_message(r, peer::kWifiInterface, peer::kNetGetMac)));
    return 1;
}
