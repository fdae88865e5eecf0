// The table of every bus destination, interface, member and time-out the module calls:
// its rows are exactly the gateway's peer catalog, and every row has a caller.
#include "dbus/peer_catalog.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <tuple>

namespace {

using Row = std::tuple<std::string, std::string, std::string, int>;

const std::string kPlatform = "com.korvex-labs.www.platform";
const std::string kSdk = "com.korvex-labs.www.sdk";
const std::string kApp = "com.korvex-labs.www.app";

// The gateway's peer catalog: destination, interface, member, time-out (ms).
const std::set<Row> kExpected = {
    {kPlatform, "com.KorvexLabs.platform.nvram", "get", 1000},
    {kPlatform, "com.KorvexLabs.platform.nvram", "set", 1000},
    {kPlatform, "com.KorvexLabs.platform.nvram", "commit", 3000},
    {kPlatform, "com.KorvexLabs.platform.nvram", "getList", 5000},
    {kPlatform, "com.KorvexLabs.platform.admin", "doSystem", 3000},
    {kPlatform, "com.KorvexLabs.platform.admin", "doSystem", 5000},
    {kPlatform, "com.KorvexLabs.platform.admin", "doSystem", 20000},
    {kPlatform, "com.KorvexLabs.platform.admin", "doSystem", 30000},
    {kPlatform, "com.KorvexLabs.platform.admin", "doSystem", 120000},
    {kPlatform, "com.KorvexLabs.platform.admin", "getModel", 5000},
    {kPlatform, "com.KorvexLabs.platform.admin", "restartP2P", 3000},
    {kPlatform, "com.KorvexLabs.platform.admin", "restart", 3000},
    {kPlatform, "com.KorvexLabs.platform.admin", "reboot", 3000},
    {kPlatform, "com.KorvexLabs.platform.net", "getMac", 5000},
    {kPlatform, "com.KorvexLabs.platform.net", "getip", 5000},
    {kPlatform, "com.KorvexLabs.platform.net", "getnetmask", 5000},
    {kPlatform, "com.KorvexLabs.platform.net", "getgateway", 5000},
    {kPlatform, "com.KorvexLabs.platform.net", "getdns", 5000},
    {kPlatform, "com.KorvexLabs.platform.net", "initInternet", 150000},
    {kPlatform, "com.KorvexLabs.platform.config", "reset", 150000},
    {kPlatform, "com.KorvexLabs.platform.wifi.mode", "commit", 150000},
    {kPlatform, "com.KorvexLabs.platform.wifi.mode", "getmd5", 1000},
    {kPlatform, "com.KorvexLabs.platform.wifi.STA", "command", 5000},
    {kPlatform, "com.KorvexLabs.platform.wifi.ssid", "refresh", 500},
    {kPlatform, "com.KorvexLabs.platform.webehome", "refresh", 300000},
    {kSdk, "com.KorvexLabs.json.command", "command", 5000},
    {kSdk, "com.KorvexLabs.easy.command", "name", 5000},
    {kSdk, "com.KorvexLabs.firmware", "version", 5000},
    {kSdk, "com.KorvexLabs.firmware", "date", 5000},
    {kSdk, "com.KorvexLabs.memory", "getAllocated", 5000},
    {kSdk, "com.KorvexLabs.control.LED", "command", 1000},
    {kApp, "com.KorvexLabs.app", "jsongettitles", 5000},
    {kApp, "com.KorvexLabs.app", "jsongetgroup", 5000},
    {kApp, "com.KorvexLabs.app", "jsongetall", 5000},
    {kApp, "com.KorvexLabs.app", "jsongeteventbyseq", 5000},
    {kApp, "com.KorvexLabs.app", "jsongetmacroeventbyseq", 5000},
    {kApp, "com.KorvexLabs.app", "doscene", 5000},
    {kApp, "com.KorvexLabs.app", "jsonsetall", 3000},
    {kApp, "com.KorvexLabs.app", "jsondel", 3000},
    {kApp, "com.KorvexLabs.app", "jsonrename", 3000},
    {kApp, "com.KorvexLabs.app", "doscenemode", 5000},
    {kApp, "com.KorvexLabs.app", "setDST", 5000},
    {kApp, "com.KorvexLabs.app", "p2preconnect", 5000},
    {kApp, "com.KorvexLabs.app", "enableastclock", 5000},
    {kApp, "com.KorvexLabs.app", "enablelock", 5000},
    {kApp, "com.KorvexLabs.app", "setastclock_lon", 5000},
    {kApp, "com.KorvexLabs.app", "setastclock_lat", 5000},
    {kApp, "com.KorvexLabs.app", "getDat", 5000},
    {kApp, "com.KorvexLabs.app", "sendDat", 5000},
    {kApp, "com.KorvexLabs.switch.app", "resetConfig", 3000},
    {kApp, "com.KorvexLabs.switch.app", "backupConfig", 3000},
    {kApp, "com.KorvexLabs.switch.app", "restoreConfig", 3000},
    {kApp, "com.KorvexLabs.switch.app", "restoreConfig2", 3000},
    {kApp, "com.KorvexLabs.debug", "memory_debug", 3000},
    {"com.korvex-labs.www.socket", "com.KorvexLabs.socket.cmd", "command", 5000},
    {"com.korvex-labs.www.debuger", "com.KorvexLabs.watchdog.oom", "getList", 5000},
    {"com.korvex-labs.www.debuger", "com.KorvexLabs.watchdog", "getfwver", 2000},
    {"com.korvex-labs.www.debuger", "com.KorvexLabs.watchdog", "getfwver", 500},
    {"com.korvex-labs.www.debuger", "com.KorvexLabs.watchdog", "stopTracking", 1000},
    {"com.korvex-labs.www.checkupdate", "com.KorvexLabs.checkupdate", "getupdatestatus", 1000},
    {"com.korvex-labs.www.update", "com.KorvexLabs.update", "getupdatestatus", 1000},
    {"com.korvex-labs.www.Telldus", "com.KorvexLabs.Telldus.send433", "test", 5000},
};

TEST(PeerCatalog, TheRowsAreExactlyTheGatewaysCatalog) {
    std::set<Row> rows;
    for (const korvex::peer::PeerCall &call : korvex::peer::kAllCalls) {
        const DbusCallSpec *spec = call.spec;
        EXPECT_TRUE(rows.insert(Row{spec->dest, spec->ifac, spec->cmd, spec->timeout}).second)
            << "twice: " << spec->ifac << " " << spec->cmd << " " << spec->timeout;
    }
    EXPECT_EQ(rows, kExpected);
}

TEST(PeerCatalog, EightBusNamesUnderOnePrefix) {
    std::set<std::string> names(std::begin(korvex::peer::kAllBusNames), std::end(korvex::peer::kAllBusNames));
    EXPECT_EQ(names.size(), 8u);
    for (const std::string &name : names) EXPECT_EQ(name.rfind("com.korvex-labs.www.", 0), 0u) << name;
    for (const Row &row : kExpected) EXPECT_EQ(names.count(std::get<0>(row)), 1u) << std::get<0>(row);
}

std::string read_file(const std::string &path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// Every row is named by code outside the table (a handler, a primitive or a fetcher).
TEST(PeerCatalog, EveryRowHasACaller) {
    const std::string table = read_file(KORVEX_SOURCE_DIR "/dbus/peer_catalog.h");
    const std::regex row(R"(constexpr DbusCallSpec (k[A-Za-z0-9]+)\{)");
    std::string code;
    for (const char *dir : {"dbus", "registry", "commands", "commands/app", "commands/system", "module"}) {
        const std::string listing = std::string(KORVEX_SOURCE_DIR) + "/" + dir;
        FILE *find = popen(("find '" + listing + "' -maxdepth 1 -name '*.cpp' -o -maxdepth 1 -name '*.h'").c_str(), "r");
        ASSERT_NE(find, nullptr);
        char path[4096];
        while (fgets(path, sizeof path, find) != nullptr) {
            std::string file(path);
            file.erase(file.find_last_not_of('\n') + 1);
            if (file.find("peer_catalog.h") == std::string::npos) code += read_file(file);
        }
        pclose(find);
    }
    int rows = 0;
    for (auto it = std::sregex_iterator(table.begin(), table.end(), row); it != std::sregex_iterator(); ++it) {
        ++rows;
        const std::string name = (*it)[1];
        EXPECT_TRUE(std::regex_search(code, std::regex("\\b" + name + "\\b"))) << name << " has no caller";
    }
    EXPECT_EQ(rows, static_cast<int>(std::size(korvex::peer::kAllCalls)));
}

}  // namespace

namespace {

using korvex::peer::Effect;
using Member = std::pair<std::string, std::string>;

// The members that only ask: everything else changes the gateway and is always sent.
const std::set<Member> kReads = {
    {"com.KorvexLabs.platform.nvram", "get"},         {"com.KorvexLabs.platform.nvram", "getList"},
    {"com.KorvexLabs.platform.admin", "getModel"},    {"com.KorvexLabs.platform.net", "getMac"},
    {"com.KorvexLabs.platform.net", "getip"},         {"com.KorvexLabs.platform.net", "getnetmask"},
    {"com.KorvexLabs.platform.net", "getgateway"},    {"com.KorvexLabs.platform.net", "getdns"},
    {"com.KorvexLabs.platform.wifi.mode", "getmd5"},  {"com.KorvexLabs.platform.wifi.STA", "command"},
    {"com.KorvexLabs.platform.wifi.ssid", "refresh"}, {"com.KorvexLabs.firmware", "version"},
    {"com.KorvexLabs.firmware", "date"},              {"com.KorvexLabs.memory", "getAllocated"},
    {"com.KorvexLabs.app", "jsongettitles"},          {"com.KorvexLabs.app", "jsongetgroup"},
    {"com.KorvexLabs.app", "jsongetall"},             {"com.KorvexLabs.app", "jsongeteventbyseq"},
    {"com.KorvexLabs.app", "jsongetmacroeventbyseq"}, {"com.KorvexLabs.app", "getDat"},
    {"com.KorvexLabs.debug", "memory_debug"},         {"com.KorvexLabs.watchdog.oom", "getList"},
    {"com.KorvexLabs.watchdog", "getfwver"},          {"com.KorvexLabs.checkupdate", "getupdatestatus"},
    {"com.KorvexLabs.update", "getupdatestatus"},
};

TEST(PeerCatalog, OnlyTheMembersThatAskAreReads) {
    std::set<Member> reads;
    for (const korvex::peer::PeerCall &call : korvex::peer::kAllCalls) {
        if (call.effect == Effect::kRead) reads.emplace(call.spec->ifac, call.spec->cmd);
        EXPECT_EQ(korvex::peer::effect_of(call.spec->ifac, call.spec->cmd), call.effect)
            << call.spec->ifac << " " << call.spec->cmd;
    }
    EXPECT_EQ(reads, kReads);
}

TEST(PeerCatalog, TheSameMemberHasOneEffectWhateverItsTimeOut) {
    for (const korvex::peer::PeerCall &a : korvex::peer::kAllCalls) {
        for (const korvex::peer::PeerCall &b : korvex::peer::kAllCalls) {
            if (std::string(a.spec->ifac) == b.spec->ifac && std::string(a.spec->cmd) == b.spec->cmd) {
                EXPECT_EQ(a.effect, b.effect) << a.spec->ifac << " " << a.spec->cmd;
            }
        }
    }
}

TEST(PeerCatalog, UnknownMembersCountAsWrites) {
    EXPECT_EQ(korvex::peer::effect_of("com.KorvexLabs.app", "somethingNew"), Effect::kWrite);
    EXPECT_EQ(korvex::peer::effect_of(nullptr, "get"), Effect::kWrite);
    EXPECT_EQ(korvex::peer::effect_of("com.KorvexLabs.platform.nvram", nullptr), Effect::kWrite);
    // A copy of a table text is found by its characters, not its address.
    const std::string ifac = "com.KorvexLabs.platform.nvram";
    const std::string member = "get";
    EXPECT_EQ(korvex::peer::effect_of(ifac.c_str(), member.c_str()), Effect::kRead);
}

}  // namespace
