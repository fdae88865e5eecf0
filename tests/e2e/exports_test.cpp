// The module's dynamic symbol table: exactly the module record, the three shared integers
// and the handler of every catalog command, unmangled; nothing else is exported.
// By default the module of this build tree, read with the host's nm; scripts/cross.sh runs
// the same checks on a module built for the board, naming it in KORVEX_EXPORTS_MODULE and
// the target's nm in KORVEX_EXPORTS_NM.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace korvex::test {
namespace {

std::string from_environment(const char *name, const std::string &fallback) {
    const char *value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : fallback;
}

const std::string kModule = from_environment("KORVEX_EXPORTS_MODULE", KORVEX_BUILD_DIR "/mod_korvex.so");
const std::string kNm = from_environment("KORVEX_EXPORTS_NM", "nm");

// The handler of every command "network.cgi" accepts, in registration order. Written out
// here, not derived from the catalog the way the build derives its export list, so that a
// mistake in that rule cannot hide itself.
const std::vector<std::string> kHandlers = {
    "testAPI", "zwaveJson", "zwaveCommand", "jsonGetTitles", "jsonGetGroup", "jsonSetAll", "jsonGetAll",
    "jsonGetUpdate", "jsonDel", "jsonRename", "jsonGetEvent", "jsonGetMacroEvent", "doScene", "doScenemode",
    "jsonSetuserdata", "jsonGetuserdata", "jsonSetcheckbox", "jsonGetcheckbox", "jsonSetcheckbox2",
    "jsonGetcheckbox2", "getdoScenemode", "removeAppConfig", "backupAppConfig", "restoreAppConfig",
    "restoreAppConfig2", "backupKorvexData", "p2pReconnect", "getp2pReconnect", "getdst", "setdst",
    "getSavingTime", "setSavingTime", "enableastclock", "getenableastclock", "enableswitchall", "enabletimer",
    "enablelock", "getenablelock", "wifiScan", "getSSIDList", "setWifiMode", "getWifiMode", "setAPSSID",
    "getAPSSID", "set_STA_SSID", "get_STA_SSID", "setAPPassword", "getAPPassword", "setSTAPassword",
    "getSTAPassword", "linkStatusToAP", "set_wifi_country_region", "get_wifi_country_region", "wifiCommit",
    "wifiCarrier", "getWifiApMd5", "getWifiStaMd5", "listNVRAM", "getNVRAM", "resetConfig",
    "getWanConnectMode", "getWanIp", "getWanGateway", "getWanNetmask", "getDnsServer", "setWanConnectMode",
    "setWanStaticIP", "setWanGateway", "setWanNetmask", "setWanDNS", "setWanDNS2nd", "setDnsServer",
    "wanCommit", "disableNTPClient", "setNTPServerHostName", "getNTPServerHostName", "setNTPSyncTime",
    "getNTPSyncTime", "setTimeZone", "getTimeZone", "getTime", "NTPCommit", "setastclock_lon",
    "getastclock_lon", "setastclock_lat", "getastclock_lat", "getUpdateStatus", "checkUpdateFromServer",
    "updateFromServer", "checkuImageFromServer", "updateuImageFromServer", "setMAC", "setEthMAC", "setWifiMAC",
    "getMAC", "updateUboot", "setTutkUuid", "getTutkUuid", "setOrbwebUuid", "getOrbwebUuid", "getP2Pusername",
    "setP2Pusername", "getP2Ppwd", "setP2Ppwd", "getSUpwd", "setSUpwd", "p2pAccountCommit", "pppoeEnable",
    "setPPPoEUserName", "setPPPoEPassWord", "getPPPoEEnable", "getPPPoEUserName", "getPPPoEPassWord",
    "pppoeCommit", "setCustomerName", "getCustomerName", "setTelldusSecret", "getTelldusSecret",
    "refreshWeBeHome", "setVivotekUuid", "getVivotekUuid", "listOOM", "listAllocated", "enableTelnetd",
    "memory_debug", "memUsage", "enableFtpd", "setSocketAddr", "setSocketPort", "getSocketAddr",
    "getSocketPort", "setSocketSec", "getSocketSec", "get_authcode", "get_proctable", "get_sysinfo",
    "disconnect_icloud", "socketCommit", "settestmode", "gettestmode", "setZwaveModule", "getZwaveModule",
    "test433", "reFlash", "systemReboot", "uptime", "getPlatform", "setHostName", "getHostName",
    "set_language", "get_language", "getSWVersion"
};

std::set<std::string> catalog_handlers() { return std::set<std::string>(kHandlers.begin(), kHandlers.end()); }

struct Symbol {
    std::string type;
    std::string name;
    bool operator<(const Symbol &o) const { return name < o.name; }
};

// Defined dynamic symbols of the module as nm lists them ("address type name").
std::set<Symbol> exported_symbols() {
    std::set<Symbol> symbols;
    FILE *nm = popen(("'" + kNm + "' -D --defined-only '" + kModule + "'").c_str(), "r");
    if (nm == nullptr) return symbols;
    char buffer[1024];
    const std::regex line_form(R"(^[0-9a-f]+ ([A-Za-z]) (\S+)\s*$)");
    while (fgets(buffer, sizeof buffer, nm) != nullptr) {
        std::smatch match;
        const std::string line = buffer;
        if (std::regex_match(line, match, line_form)) {
            symbols.insert({match[1], match[2]});
        } else {
            symbols.insert({"?", line});
        }
    }
    EXPECT_EQ(pclose(nm), 0) << kNm << " failed on " << kModule;
    return symbols;
}

TEST(ExportsTest, OneHundredFiftyTwoDistinctHandlers) {
    EXPECT_EQ(kHandlers.size(), 152u);
    EXPECT_EQ(catalog_handlers().size(), 152u);
}

TEST(ExportsTest, ExactlyTheRecordTheIntegersAndTheHandlersAreExported) {
    std::set<std::string> expected = catalog_handlers();
    expected.insert({"korvex_module", "jsonsetall_number", "jsongetuserdata_number", "checkupdateflag"});
    std::set<std::string> exported;
    for (const Symbol &symbol : exported_symbols()) exported.insert(symbol.name);
    EXPECT_EQ(exported, expected);
}

TEST(ExportsTest, HandlersAreFunctionsAndTheOthersData) {
    const std::set<std::string> handlers = catalog_handlers();
    for (const Symbol &symbol : exported_symbols()) {
        if (handlers.count(symbol.name) != 0) {
            EXPECT_EQ(symbol.type, "T") << symbol.name;
        } else {
            EXPECT_TRUE(symbol.type == "D" || symbol.type == "B") << symbol.name << " has type " << symbol.type;
        }
    }
}

}  // namespace
}  // namespace korvex::test
