// Every name of the catalog answers: one request per command, each ending in the outcome
// the table below expects for it, none unknown to the table.
#include <string>
#include <utility>
#include <vector>

#include "tests/support/command_test.h"
#include "tests/support/full_catalog.h"

namespace korvex::test {
namespace {

class CatalogCoverageTest : public CommandTest {};

const std::string kDone = "done";
const std::string kFailed = "failed";
const std::string kMissing = "doesn't exist";

// What each command answers to "<name>=0", run once each in registration order on a freshly
// reset simulator (an earlier command's settings are in place for a later one). "0" is no
// valid value for the nine that fail: a connection mode, a synchronisation interval, a
// time-zone number, three MAC addresses, two 20-character identifiers and a 10-character
// secret.
const std::vector<std::pair<std::string, std::string>> kOutcomes = {
    {"test", kDone}, {"json", kDone}, {"easycmd", kDone}, {"jsongettitles", kDone}, {"jsongetgroup", kDone},
    {"jsonsetall", kDone}, {"jsongetall", kDone}, {"jsongetupdate", kDone}, {"jsondel", kDone},
    {"jsonrename", kDone}, {"jsongetevent", kDone}, {"jsongetmacroevent", kDone}, {"doscene", kDone},
    {"doscenemode", kDone}, {"jsonsetuserdata", kDone}, {"jsongetuserdata", kDone}, {"jsonsetcheckbox", kDone},
    {"jsongetcheckbox", kDone}, {"jsonsetcheckbox2", kDone}, {"jsongetcheckbox2", kDone},
    {"getdoscenemode", kDone}, {"removeappconfig", kDone}, {"backupappconfig", kDone}, {"restoreappconfig", kDone},
    {"restoreappconfig2", kDone}, {"backupKorvexData", kDone}, {"p2preconnect", kDone}, {"getp2preconnect", kDone},
    {"getDST", kDone}, {"setDST", kDone}, {"getsavingtime", kDone}, {"setsavingtime", kDone},
    {"enableastclock", kDone}, {"getenableastclock", kDone}, {"enableswitchall", kDone}, {"enabletimer", kDone},
    {"enablelock", kDone}, {"getenablelock", kDone}, {"wifiscan", kDone}, {"getssidlist", kDone},
    {"setwifimode", kDone}, {"getwifimode", kDone}, {"setapssid", kDone}, {"getapssid", kDone},
    {"setstassid", kDone}, {"getstassid", kDone}, {"setappwd", kDone}, {"getappwd", kDone}, {"setstapwd", kDone},
    {"getstapwd", kDone}, {"stalinkstatus", kDone}, {"set_wifi_country_region", kDone},
    {"get_wifi_country_region", kDone}, {"wificommit", kDone}, {"wifi_carrier", kDone}, {"getwifiapmd5", kDone},
    {"getwifistamd5", kDone}, {"listnvram", kDone}, {"getnvram", kDone}, {"resetconfig", kDone},
    {"getconnectmode", kDone}, {"getip", kDone}, {"getgateway", kDone}, {"getnetmask", kDone},
    {"getdnsserver", kDone}, {"setconnectmode", kFailed}, {"setstaticip", kDone}, {"setgateway", kDone},
    {"setnetmask", kDone}, {"setdns", kDone}, {"setdns2nd", kDone}, {"setdnsserver", kDone}, {"commit", kDone},
    {"disablentpclient", kDone}, {"setntpserver", kDone}, {"getntpserver", kDone}, {"setntpsynctime", kFailed},
    {"getntpsynctime", kDone}, {"settimezone", kFailed}, {"gettimezone", kDone}, {"gettime", kDone},
    {"ntpcommit", kDone}, {"setastclock_lon", kDone}, {"getastclock_lon", kDone}, {"setastclock_lat", kDone},
    {"getastclock_lat", kDone}, {"getupdatestatus", kDone}, {"checkupdate", kDone}, {"update", kDone},
    {"checkuimage", kDone}, {"updateuimage", kDone}, {"setMAC", kFailed}, {"setEthMAC", kFailed},
    {"setWifiMAC", kFailed}, {"getMAC", kDone}, {"updateuboot", kDone}, {"setTUTKuuid", kFailed},
    {"getTUTKuuid", kDone}, {"setOrbwebuuid", kFailed}, {"getOrbwebuuid", kDone}, {"getp2pusername", kDone},
    {"setp2pusername", kDone}, {"getp2ppwd", kDone}, {"setp2ppwd", kDone}, {"getSUpwd", kDone},
    {"setSUpwd", kDone}, {"p2paccountcommit", kDone}, {"pppoeenable", kDone}, {"setpppoeusername", kDone},
    {"setpppoepassword", kDone}, {"getpppoeenable", kDone}, {"getpppoeusername", kDone},
    {"getpppoepassword", kDone}, {"pppoecommit", kDone}, {"setcustomername", kDone}, {"getcustomername", kDone},
    {"setTelldusSecret", kFailed}, {"getTelldusSecret", kDone}, {"refreshWeBeHome", kDone},
    {"setvivotekuuid", kDone}, {"getvivotekuuid", kDone}, {"listOOM", kDone}, {"listAllocated", kDone},
    {"enableTelnetd", kDone}, {"memdbg", kDone}, {"memusage", kDone}, {"enableFtpd", kDone},
    {"setsocketaddr", kDone}, {"setsocketport", kDone}, {"getsocketaddr", kDone}, {"getsocketport", kDone},
    {"setsocketsec", kDone}, {"getsocketsec", kDone}, {"authcode", kDone}, {"proctable", kDone},
    {"sysinfo", kDone}, {"disconnect_icloud", kDone}, {"socketcommit", kDone}, {"settestmode", kDone},
    {"gettestmode", kDone}, {"setzwavemodule", kDone}, {"getzwavemodule", kDone}, {"test433", kDone},
    {"reflash", kDone}, {"reboot", kDone}, {"uptime", kDone}, {"getplatform", kDone}, {"sethostname", kDone},
    {"gethostname", kDone}, {"setlanguage", kDone}, {"getlanguage", kDone}, {"getswversion", kDone},
};

bool ends_with(const std::string &text, const std::string &tail) {
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// The outcome on the answer's last line ("<name> done", "<name> failed" or "<name> doesn't
// exist", after whatever the command printed there); "" when it ends with none of them.
std::string outcome_of(const std::string &name, const std::string &body) {
    const size_t newline = body.rfind('\n');
    const std::string last_line = newline == std::string::npos ? body : body.substr(newline + 1);
    for (const std::string &outcome : {kDone, kFailed, kMissing}) {
        if (ends_with(last_line, name + " " + outcome)) return outcome;
    }
    return "";
}

TEST_F(CatalogCoverageTest, TheTableListsTheCatalogInRegistrationOrder) {
    ASSERT_EQ(kFullCatalog.size(), 152u);
    ASSERT_EQ(kOutcomes.size(), kFullCatalog.size());
    for (size_t i = 0; i < kOutcomes.size(); ++i) EXPECT_EQ(kOutcomes[i].first, kFullCatalog[i]) << "entry " << i;
}

TEST_F(CatalogCoverageTest, EveryCommandOfTheCatalogAnswersWithItsOutcome) {
    for (const auto &[name, expected] : kOutcomes) {
        const std::string body = run(name + "=0");
        EXPECT_EQ(outcome_of(name, body), expected) << name << ": " << body;
    }
    // The table is case-sensitive and knows nothing else.
    EXPECT_EQ(run("setmac=0"), "setmac " + kMissing);
}

}  // namespace
}  // namespace korvex::test
