// The platform daemon: settings store, shell commands, network and Wi-Fi.
#include "dbus/peer_catalog.h"
#include "sim/md5.h"
#include "sim/peer_methods.h"

namespace korvex::sim {
namespace {

using namespace korvex::peer;

constexpr char kModel[] = "QTR58";
constexpr char kWanMac[] = "00:4f:61:12:34:56";
constexpr char kWifiMac[] = "00:4f:61:12:34:57";

// The DHCP lease the WAN side holds.
constexpr char kWanAddress[] = "192.168.1.57";
constexpr char kWanNetmask[] = "255.255.255.0";
constexpr char kWanGateway[] = "192.168.1.1";
constexpr char kWanDns[] = "192.168.1.1";

// Networks the radio sees; names keep the blanks the driver reports.
const std::vector<std::string> kVisibleNetworks = {
    "Korvex-QTR58-3457", "FRITZ!Box 7590 KL", "  Vodafone Homespot  ", "TP-Link_2.4GHz_5C1E ",
    " Guest Network"};

std::string nvram_or_empty(const NvramStore &nvram, const std::string &key) {
    return nvram.get(key).value_or("");
}

// Checksum of the settings the radio applies in one role.
std::string wifi_settings_md5(const NvramStore &nvram, const std::string &role) {
    if (role == "ap")
        return md5_hex("SSID1=" + nvram_or_empty(nvram, "SSID1") + "\nWPAPSK=" +
                       nvram_or_empty(nvram, "WPAPSK") + "\n");
    if (role == "sta")
        return md5_hex("STA_SSID1=" + nvram_or_empty(nvram, "STA_SSID1") + "\nSTA_WPAPSK=" +
                       nvram_or_empty(nvram, "STA_WPAPSK") + "\n");
    return "";
}

AnswerFunction fixed_int(int value) {
    return [value](const json_t *) { return Answer::int32(value); };
}

AnswerFunction fixed_string(std::string text) {
    return [text](const json_t *) { return Answer::string(text); };
}

}  // namespace

void add_platform_methods(std::vector<PeerMethod> &methods, NvramStore &nvram) {
    NvramStore *store = &nvram;
    auto add = [&](const char *interface, const char *member, const char *args, const char *reply,
                   AnswerFunction answer) {
        methods.push_back({kPlatform, interface, member, args, reply, std::move(answer)});
    };

    add(kIfNvram, "get", "s", "s",
        [store](const json_t *args) { return Answer::string(store->get(string_arg(args, 0)).value_or("")); });
    add(kIfNvram, "set", "ss", "s", [store](const json_t *args) {
        store->set(string_arg(args, 0), string_arg(args, 1));
        return Answer::string(store->get(string_arg(args, 0)).value_or(""));
    });
    add(kIfNvram, "commit", "s", "i",
        [store](const json_t *) { return Answer::int32(store->commit() ? 0 : -1); });
    add(kIfNvram, "getList", "s", "as",
        [store](const json_t *args) { return Answer::strings(store->list(string_arg(args, 0))); });

    // Shell lines are only recorded, never run.
    add(kIfAdmin, "doSystem", "s", "i", fixed_int(0));
    add(kIfAdmin, "getModel", "s", "s", fixed_string(kModel));
    add(kIfAdmin, "restartP2P", "s", "i", fixed_int(0));
    add(kIfAdmin, "restart", "s", "i", fixed_int(0));
    add(kIfAdmin, "reboot", "i", "i", fixed_int(0));

    add(kIfNet, "getMac", "s", "s", [](const json_t *args) {
        std::string ifname = string_arg(args, 0);
        return Answer::string(ifname == kWanInterface ? kWanMac : ifname == kWifiInterface ? kWifiMac : "");
    });
    add(kIfNet, "getip", "s", "s", fixed_string(kWanAddress));
    add(kIfNet, "getnetmask", "s", "s", fixed_string(kWanNetmask));
    add(kIfNet, "getgateway", "s", "s", fixed_string(kWanGateway));
    add(kIfNet, "getdns", "s", "s", fixed_string(kWanDns));
    add(kIfNet, "initInternet", "i", "i", fixed_int(0));

    add(kIfConfig, "reset", "s", "i", fixed_int(0));
    add(kIfWifiMode, "commit", "s", "i", fixed_int(1));
    add(kIfWifiMode, "getmd5", "s", "s",
        [store](const json_t *args) { return Answer::string(wifi_settings_md5(*store, string_arg(args, 0))); });
    add(kIfWifiSta, "command", "s", "s", [store](const json_t *args) {
        return Answer::string(string_arg(args, 0) == "getSSID" ? nvram_or_empty(*store, "STA_SSID1") : "");
    });
    add(kIfWifiSsid, "refresh", "s", "as", [](const json_t *) { return Answer::strings(kVisibleNetworks); });
    add(kIfWeBeHome, "refresh", "i", "i", fixed_int(0));
}

}  // namespace korvex::sim
