// The plain getters of "network.cgi": each reads one key of the platform's working nvram
// and prints it as it stands followed by "<br>", then "<command> done", whatever the
// query's value and whatever the read gave ("(null)" without an answer). One table holds
// every such command with its key and its factory value (sim/nvram_defaults.conf).
#include <ostream>
#include <string>

#include "tests/support/command_test.h"

namespace korvex::test {
namespace {

struct NvramGetter {
    const char *command;
    const char *key;
    const char *factory;
};
void PrintTo(const NvramGetter &p, std::ostream *os) { *os << p.command; }

const NvramGetter kGetters[] = {
    // Identity
    {"gethostname", "HostName", "korvex-gateway"},
    {"getlanguage", "language", "1"},
    // Wi-Fi
    {"getwifimode", "WifiMode", "AP"},
    {"getapssid", "SSID1", "Korvex-QTR58-3457"},
    {"getstassid", "STA_SSID1", "Vodafone-7A21"},
    {"getappwd", "WPAPSK", "k0rvex3457"},
    {"getstapwd", "STA_WPAPSK", "wohnzimmer2024"},
    // WAN and PPPoE
    {"getconnectmode", "wanConnectionMode", "DHCP"},
    {"getpppoeenable", "PPPoE_Enable", "0"},
    {"getpppoeusername", "PPPoE_UserName", ""},
    {"getpppoepassword", "PPPoE_PassWord", ""},
    // Time
    {"getntpserver", "NTPServerIP", "pool.ntp.org"},
    {"getntpsynctime", "NTPSync", "24"},
    {"getastclock_lon", "setastclock_lon", "13.4050"},
    {"getastclock_lat", "setastclock_lat", "52.5200"},
    // Application flags and data
    {"getdoscenemode", "doscenemode", "0"},
    {"getp2preconnect", "p2preconnect", "0"},
    {"jsongetuserdata", "jsonsetuserdata", R"({"favourites":[2,5]})"},
    {"jsongetcheckbox", "jsonsetcheckbox", "3"},
    {"jsongetcheckbox2", "jsonsetcheckbox2", "0"},
    {"getsavingtime", "setsavingtime", "0"},
    {"getenableastclock", "enableastclock", "1"},
    {"getenablelock", "enablelock", "0"},
    // Remote access and partner services
    {"getTUTKuuid", "TUTK_UUID", "E7KA9ZB1XH4WTRGU111A"},
    {"getOrbwebuuid", "UUID", "4F61A2C95DE3B07810KQ"},
    {"getp2pusername", "TUTK_USERNAME", "admin"},
    {"getp2ppwd", "TUTK_PASSWORD", "888888"},
    {"getSUpwd", "SU_PASSWORD", "su7Qx2rT"},
    {"getTelldusSecret", "TelldusSecret", ""},
    {"getvivotekuuid", "VivotekUuid", ""},
    // Local services
    {"getzwavemodule", "zwaveModule", "serial"},
    {"getsocketport", "socketPort", "8883"},
    {"getsocketsec", "socketSec", "1"},
    {"gettestmode", "testmode", "0"},
};

class NvramGetterTest : public CommandTest, public ::testing::WithParamInterface<NvramGetter> {
protected:
    std::string command() const { return GetParam().command; }
    std::string key() const { return GetParam().key; }
};

TEST_P(NvramGetterTest, PrintsTheFactoryValue) {
    EXPECT_EQ(run(command() + "="), std::string(GetParam().factory) + "<br>" + command() + " done");
    EXPECT_EQ(calls(), Calls{get_call(key())});
}

// Not committed: a getter shows what a setter stored before any commit. Quotes and angle
// brackets are printed as they are; the query's value plays no part.
TEST_P(NvramGetterTest, PrintsTheWorkingCopyAsItStands) {
    sim().nvram_put(key(), "v 'x' \"7\" <b>", false);
    EXPECT_EQ(run(command() + "=ignored"), "v 'x' \"7\" <b><br>" + command() + " done");
    EXPECT_EQ(calls(), Calls{get_call(key())});
}

TEST_P(NvramGetterTest, EmptyTextPrintsAnEmptyLine) {
    sim().nvram_put(key(), "", false);
    EXPECT_EQ(run(command() + "=1"), "<br>" + command() + " done");
    EXPECT_EQ(calls(), Calls{get_call(key())});
}

TEST_P(NvramGetterTest, NoReplyPrintsNullAndIsDone) {
    nvram_rule("get", R"("mode":"error")");
    EXPECT_EQ(run(command() + "="), "(null)<br>" + command() + " done");
    EXPECT_EQ(calls(), Calls{get_call(key())});
}

INSTANTIATE_TEST_SUITE_P(Commands, NvramGetterTest, ::testing::ValuesIn(kGetters), CommandName());

}  // namespace
}  // namespace korvex::test
