// The command hash and the bucket layout it gives the full command catalog.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "registry/command_table.h"

namespace {

// Every wire name "network.cgi" accepts, in registration order.
const std::vector<std::string> kFullCatalog = {
    "test", "json", "easycmd", "jsongettitles",
    "jsongetgroup", "jsonsetall", "jsongetall", "jsongetupdate",
    "jsondel", "jsonrename", "jsongetevent", "jsongetmacroevent",
    "doscene", "doscenemode", "jsonsetuserdata", "jsongetuserdata",
    "jsonsetcheckbox", "jsongetcheckbox", "jsonsetcheckbox2", "jsongetcheckbox2",
    "getdoscenemode", "removeappconfig", "backupappconfig", "restoreappconfig",
    "restoreappconfig2", "backupKorvexData", "p2preconnect", "getp2preconnect",
    "getDST", "setDST", "getsavingtime", "setsavingtime",
    "enableastclock", "getenableastclock", "enableswitchall", "enabletimer",
    "enablelock", "getenablelock", "wifiscan", "getssidlist",
    "setwifimode", "getwifimode", "setapssid", "getapssid",
    "setstassid", "getstassid", "setappwd", "getappwd",
    "setstapwd", "getstapwd", "stalinkstatus", "set_wifi_country_region",
    "get_wifi_country_region", "wificommit", "wifi_carrier", "getwifiapmd5",
    "getwifistamd5", "listnvram", "getnvram", "resetconfig",
    "getconnectmode", "getip", "getgateway", "getnetmask",
    "getdnsserver", "setconnectmode", "setstaticip", "setgateway",
    "setnetmask", "setdns", "setdns2nd", "setdnsserver",
    "commit", "disablentpclient", "setntpserver", "getntpserver",
    "setntpsynctime", "getntpsynctime", "settimezone", "gettimezone",
    "gettime", "ntpcommit", "setastclock_lon", "getastclock_lon",
    "setastclock_lat", "getastclock_lat", "getupdatestatus", "checkupdate",
    "update", "checkuimage", "updateuimage", "setMAC",
    "setEthMAC", "setWifiMAC", "getMAC", "updateuboot",
    "setTUTKuuid", "getTUTKuuid", "setOrbwebuuid", "getOrbwebuuid",
    "getp2pusername", "setp2pusername", "getp2ppwd", "setp2ppwd",
    "getSUpwd", "setSUpwd", "p2paccountcommit", "pppoeenable",
    "setpppoeusername", "setpppoepassword", "getpppoeenable", "getpppoeusername",
    "getpppoepassword", "pppoecommit", "setcustomername", "getcustomername",
    "setTelldusSecret", "getTelldusSecret", "refreshWeBeHome", "setvivotekuuid",
    "getvivotekuuid", "listOOM", "listAllocated", "enableTelnetd",
    "memdbg", "memusage", "enableFtpd", "setsocketaddr",
    "setsocketport", "getsocketaddr", "getsocketport", "setsocketsec",
    "getsocketsec", "authcode", "proctable", "sysinfo",
    "disconnect_icloud", "socketcommit", "settestmode", "gettestmode",
    "setzwavemodule", "getzwavemodule", "test433", "reflash",
    "reboot", "uptime", "getplatform", "sethostname",
    "gethostname", "setlanguage", "getlanguage", "getswversion",
};

TEST(CommandHash, KnownKeys) {
    EXPECT_EQ(hashFunc("test"), 6018388u);
    EXPECT_EQ(hashFunc("test") % 305u, 128u);
    EXPECT_EQ(hashFunc("json") % 305u, 0u);
    EXPECT_EQ(hashFunc("setMAC"), 3874861653u);
    EXPECT_EQ(hashFunc("setMAC") % 305u, 133u);
    EXPECT_EQ(hashFunc(""), 0u);
}

TEST(CommandHash, BytesAbove127SubtractAsSignedChars) {
    // 0xC3 counts as -61, 0xA9 as -87.
    const uint32_t expected = static_cast<uint32_t>(-61) * 37u + static_cast<uint32_t>(-87);
    EXPECT_EQ(hashFunc("\xC3\xA9"), expected);
}

TEST(CommandHash, WrapsModulo2To32) {
    std::string long_name(1500, 'z');
    uint32_t h = 0;
    for (char c : long_name) h = h * 37u + static_cast<uint32_t>(c);
    EXPECT_EQ(hashFunc(long_name.c_str()), h);
}

TEST(CommandHash, FullCatalogBucketFacts) {
    ASSERT_EQ(kFullCatalog.size(), 152u);
    EXPECT_EQ(std::set<std::string>(kFullCatalog.begin(), kFullCatalog.end()).size(), 152u);
    std::map<uint32_t, int> per_bucket;
    for (const auto &name : kFullCatalog) ++per_bucket[hashFunc(name.c_str()) % 305u];
    int shared_by_two = 0, shared_by_three = 0, longest = 0;
    for (const auto &bucket : per_bucket) {
        if (bucket.second == 2) ++shared_by_two;
        if (bucket.second == 3) ++shared_by_three;
        longest = std::max(longest, bucket.second);
    }
    EXPECT_EQ(per_bucket.size(), 123u);
    EXPECT_EQ(shared_by_two, 27);
    EXPECT_EQ(shared_by_three, 1);
    EXPECT_EQ(longest, 3);
}

TEST(CommandHash, NamesAreCaseSensitive) {
    EXPECT_NE(hashFunc("setMAC"), hashFunc("setmac"));
}

}  // namespace
