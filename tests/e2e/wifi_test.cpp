// Wi-Fi settings through Apache and the bus: the radio's role, the access-point and station
// SSIDs and passphrases (stored in the platform's working nvram, never committed by the
// setters), the country region (the platform's own nvram library, committed at once), the
// Wi-Fi service calls (commit, checksums, link status, carrier script) and the SSID list.
#include <chrono>
#include <fstream>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/command_test.h"
#include "tests/support/log_lines.h"

namespace korvex::test {
namespace {

const std::string kPlatform = "com.korvex-labs.www.platform";
const std::string kNvram = kPlatform + " com.KorvexLabs.platform.nvram ";
const std::string kWifiModeIf = "com.KorvexLabs.platform.wifi.mode";
const std::string kWifiStaIf = "com.KorvexLabs.platform.wifi.STA";
const std::string kWifiSsidIf = "com.KorvexLabs.platform.wifi.ssid";

const std::string kWifiCommit = kPlatform + " " + kWifiModeIf + " commit(s:commit)";
const std::string kStaGetSsid = kPlatform + " " + kWifiStaIf + " command(s:getSSID)";
const std::string kSsidRefresh = kPlatform + " " + kWifiSsidIf + " refresh(s:refresh)";
const std::string kCarrier = kPlatform + " com.KorvexLabs.platform.admin doSystem(s:wifi_carrier.sh &)";

// One refusal text for SSIDs and passphrases alike.
const std::string kTooLong = "ssid string length must small than 32<br>";

// 32 characters pass the length rule, 33 do not.
const std::string k32 = "abcdefghijklmnopqrstuvwxyz012345";
const std::string k33 = k32 + "6";

std::string md5_call(const std::string &role) { return kPlatform + " " + kWifiModeIf + " getmd5(s:" + role + ")"; }

// The factory settings the simulator starts every test with.
const char kFactoryWifiMode[] = "AP";

class WifiTest : public CommandTest {
  protected:
    // Some setters and getters are asserted through their trace lines.
    static void SetUpTestSuite() { use_log_level(KORVEX_LOG_TRACE); }
};

// ---- SSID and passphrase setters: length rule, working copy only ----

struct Setter {
    const char *command;
    const char *key;
    bool prints_set_reply;  // SSIDs print the platform's reply to the set, passphrases their value
};

void PrintTo(const Setter &p, std::ostream *os) { *os << p.command; }

class WifiSetterTest : public WifiTest, public ::testing::WithParamInterface<Setter> {
  protected:
    std::string command() const { return GetParam().command; }
    std::string key() const { return GetParam().key; }
};

TEST_P(WifiSetterTest, ThirtyTwoCharactersAreStoredButNotCommitted) {
    const std::optional<std::string> committed = sim().nvram_committed(key());
    ASSERT_TRUE(committed.has_value());
    ASSERT_NE(*committed, k32);
    EXPECT_EQ(run(command() + "=" + k32), k32 + "<br>" + command() + " done");
    EXPECT_EQ(calls(), Calls{set_call(key(), k32)});
    EXPECT_EQ(sim().nvram(key()), k32);
    EXPECT_EQ(sim().nvram_committed(key()), committed);
}

TEST_P(WifiSetterTest, ThirtyThreeCharactersAreRefusedWithTheSsidMessage) {
    const std::optional<std::string> working = sim().nvram(key());
    EXPECT_EQ(run(command() + "=" + k33), kTooLong + command() + " failed");
    EXPECT_EQ(calls(), Calls{});
    EXPECT_EQ(sim().nvram(key()), working);
}

TEST_P(WifiSetterTest, EmptyValueIsStored) {
    EXPECT_EQ(run(command() + "="), "<br>" + command() + " done");
    EXPECT_EQ(calls(), Calls{set_call(key(), "")});
    EXPECT_EQ(sim().nvram(key()), "");
}

TEST_P(WifiSetterTest, DecodedValueIsStoredAsItIs) {
    EXPECT_EQ(run(command() + "=My%20Net%2C%20%22x%22"), "My Net, \"x\"<br>" + command() + " done");
    EXPECT_EQ(calls(), Calls{set_call(key(), "My Net, \"x\"")});
    EXPECT_EQ(sim().nvram(key()), "My Net, \"x\"");
}

TEST_P(WifiSetterTest, PrintsEitherTheSetReplyOrTheValue) {
    nvram_rule("set", R"("mode":"values","signature":"s","values":["stored elsewhere"])");
    const std::string printed = GetParam().prints_set_reply ? "stored elsewhere" : "Home";
    EXPECT_EQ(run(command() + "=Home"), printed + "<br>" + command() + " done");
    EXPECT_EQ(calls(), Calls{set_call(key(), "Home")});
}

TEST_P(WifiSetterTest, NoSetReplyIsStillDone) {
    nvram_rule("set", R"("mode":"error")");
    const std::string printed = GetParam().prints_set_reply ? "(null)" : "Home";
    EXPECT_EQ(run(command() + "=Home"), printed + "<br>" + command() + " done");
    EXPECT_EQ(calls(), Calls{set_call(key(), "Home")});
}

INSTANTIATE_TEST_SUITE_P(Commands, WifiSetterTest,
                         ::testing::Values(Setter{"setapssid", "SSID1", true},
                                           Setter{"setstassid", "STA_SSID1", true},
                                           Setter{"setappwd", "WPAPSK", false},
                                           Setter{"setstapwd", "STA_WPAPSK", false}),
                         CommandName());

TEST_F(WifiTest, SetThenGetRoundTripsThroughTheWorkingCopy) {
    EXPECT_EQ(run("setstassid=Cafe%20Wlan&getstassid="), "Cafe Wlan<br>setstassid doneCafe Wlan<br>getstassid done");
    EXPECT_EQ(calls(), (Calls{set_call("STA_SSID1", "Cafe Wlan"), get_call("STA_SSID1")}));
}

// ---- Radio role ----

struct Role {
    const char *name;   // test name
    const char *value;  // query value
    const char *stored;
};

void PrintTo(const Role &p, std::ostream *os) { *os << p.name; }

struct RoleName {
    std::string operator()(const ::testing::TestParamInfo<Role> &info) const { return info.param.name; }
};

class WifiModeTest : public WifiTest, public ::testing::WithParamInterface<Role> {};

TEST_P(WifiModeTest, StoresTheRoleWithoutCommitAndPrintsNothing) {
    EXPECT_EQ(run(std::string("setwifimode=") + GetParam().value), "setwifimode done");
    EXPECT_EQ(calls(), Calls{set_call("WifiMode", GetParam().stored)});
    EXPECT_EQ(sim().nvram("WifiMode"), GetParam().stored);
    EXPECT_EQ(sim().nvram_committed("WifiMode"), kFactoryWifiMode);
}

INSTANTIATE_TEST_SUITE_P(Values, WifiModeTest,
                         ::testing::Values(Role{"MixedCaseSta", "Sta", "STA"}, Role{"LowerAp", "ap", "AP"},
                                           Role{"UpperOff", "OFF", "OFF"}, Role{"LowerOff", "off", "OFF"},
                                           Role{"UnknownIsAp", "bogus", "AP"}, Role{"EmptyIsAp", "", "AP"},
                                           Role{"PaddedIsUnknown", "%20sta", "AP"}),
                         RoleName());

TEST_F(WifiModeTest, UnknownRoleOverwritesAnEarlierOne) {
    sim().nvram_put("WifiMode", "STA", false);
    EXPECT_EQ(run("setwifimode=station"), "setwifimode done");
    EXPECT_EQ(sim().nvram("WifiMode"), "AP");
}

TEST_F(WifiModeTest, TraceShowsTheLowerCasedValue) {
    const size_t since = env().error_log_size();
    EXPECT_EQ(run("setwifimode=StA"), "setwifimode done");
    ASSERT_TRUE(env().wait_for_log("enter setWifiMode", std::chrono::seconds(2), since));
    EXPECT_EQ(module_log_lines(env().error_log_since(since), "enter setWifiMode"),
              std::vector<std::string>{"[korvex:debug] [pid N] setWifiMode:L apache: enter setWifiMode, value: 'sta'"});
    EXPECT_EQ(sim().nvram("WifiMode"), "STA");
}

TEST_F(WifiModeTest, NoSetReplyIsStillDone) {
    nvram_rule("set", R"("mode":"error")");
    EXPECT_EQ(run("setwifimode=off"), "setwifimode done");
    EXPECT_EQ(calls(), Calls{set_call("WifiMode", "OFF")});
    EXPECT_EQ(sim().nvram("WifiMode"), kFactoryWifiMode);
}

// ---- Station link status ----

TEST_F(WifiTest, StalinkstatusAsksForTheSsidAndPrintsTheReply) {
    platform_rule(kWifiStaIf, "command", R"("mode":"values","signature":"s","values":["linked: Cafe <5G>"])");
    EXPECT_EQ(run("stalinkstatus=whatever"), "linked: Cafe <5G><br>stalinkstatus done");
    EXPECT_EQ(calls(), Calls{kStaGetSsid});
}

TEST_F(WifiTest, StalinkstatusOfTheSimulatorShowsTheStationSsid) {
    sim().nvram_put("STA_SSID1", "Joined Net", false);
    EXPECT_EQ(run("stalinkstatus="), "Joined Net<br>stalinkstatus done");
    EXPECT_EQ(calls(), Calls{kStaGetSsid});
}

TEST_F(WifiTest, StalinkstatusWithoutReplyPrintsNullAndIsDone) {
    platform_rule(kWifiStaIf, "command", R"("mode":"error")");
    EXPECT_EQ(run("stalinkstatus="), "(null)<br>stalinkstatus done");
    EXPECT_EQ(calls(), Calls{kStaGetSsid});
}

// ---- Country region: the platform's nvram library, section 1, committed at once ----

class CountryRegionTest : public WifiTest {
  protected:
    static std::string section_file() {
        std::ifstream in(env().run_dir() + "/nvram-sections/section1.conf");
        std::ostringstream text;
        text << in.rdbuf();
        return text.str();
    }
    // The region store outlives the simulator's reset: every test starts from a known value.
    void start_from(const std::string &region) {
        ASSERT_EQ(run("set_wifi_country_region=" + region), "set_wifi_country_region done");
        ASSERT_EQ(section_file(), "CountryRegion=" + region + "\n");
    }
};

struct Region {
    const char *name;
    const char *value;   // query value
    const char *stored;  // "" when refused
};

void PrintTo(const Region &p, std::ostream *os) { *os << p.name; }

struct RegionName {
    std::string operator()(const ::testing::TestParamInfo<Region> &info) const { return info.param.name; }
};

class CountryRegionValueTest : public CountryRegionTest, public ::testing::WithParamInterface<Region> {};

TEST_P(CountryRegionValueTest, AcceptedValueIsCommittedAtOnceAsItsNumber) {
    start_from("3");
    EXPECT_EQ(run(std::string("set_wifi_country_region=") + GetParam().value), "set_wifi_country_region done");
    EXPECT_EQ(section_file(), std::string("CountryRegion=") + GetParam().stored + "\n");
    EXPECT_EQ(run("get_wifi_country_region="), std::string(GetParam().stored) + "<br>get_wifi_country_region done");
    EXPECT_EQ(calls(), Calls{});
}

INSTANTIATE_TEST_SUITE_P(Accepted, CountryRegionValueTest,
                         ::testing::Values(Region{"ThirtyOne", "31", "31"}, Region{"Seven", "7", "7"},
                                           Region{"Zero", "0", "0"}, Region{"LeadingZero", "05", "5"},
                                           Region{"LeadingBlank", "%205", "5"}),
                         RegionName());

class CountryRegionRefusedTest : public CountryRegionTest, public ::testing::WithParamInterface<Region> {};

TEST_P(CountryRegionRefusedTest, RefusedValueFailsAndWritesNothing) {
    start_from("3");
    EXPECT_EQ(run(std::string("set_wifi_country_region=") + GetParam().value), "set_wifi_country_region failed");
    EXPECT_EQ(section_file(), "CountryRegion=3\n");
    EXPECT_EQ(run("get_wifi_country_region="), "3<br>get_wifi_country_region done");
    EXPECT_EQ(calls(), Calls{});
}

INSTANTIATE_TEST_SUITE_P(Refused, CountryRegionRefusedTest,
                         ::testing::Values(Region{"Eight", "8", ""}, Region{"MinusOne", "-1", ""},
                                           Region{"Letters", "abc", ""}, Region{"ThirtyTwo", "32", ""},
                                           Region{"Thirty", "30", ""}, Region{"Empty", "", ""}),
                         RegionName());

TEST_F(CountryRegionTest, GetterPrintsWhatTheSetterCommitted) {
    start_from("1");
    EXPECT_EQ(run("get_wifi_country_region=ignored"), "1<br>get_wifi_country_region done");
    EXPECT_EQ(run("set_wifi_country_region=31&get_wifi_country_region="),
              "set_wifi_country_region done31<br>get_wifi_country_region done");
    EXPECT_EQ(calls(), Calls{});
}

// ---- Applying the Wi-Fi configuration ----

struct CommitReply {
    const char *name;
    int reply;
    const char *body;
};

void PrintTo(const CommitReply &p, std::ostream *os) { *os << p.name; }

struct CommitName {
    std::string operator()(const ::testing::TestParamInfo<CommitReply> &info) const { return info.param.name; }
};

class WifiCommitTest : public WifiTest, public ::testing::WithParamInterface<CommitReply> {};

TEST_P(WifiCommitTest, ResultFollowsThePlatformsAnswer) {
    platform_rule(kWifiModeIf, "commit",
                  R"("mode":"values","signature":"i","values":[)" + std::to_string(GetParam().reply) + "]");
    EXPECT_EQ(run("wificommit=ignored"), GetParam().body);
    EXPECT_EQ(calls(), Calls{kWifiCommit});
}

INSTANTIATE_TEST_SUITE_P(Replies, WifiCommitTest,
                         ::testing::Values(CommitReply{"Zero", 0, "wificommit failed"},
                                           CommitReply{"One", 1, "wificommit done"},
                                           CommitReply{"Two", 2, "wificommit done"},
                                           CommitReply{"MinusOne", -1, "wificommit failed"}),
                         CommitName());

TEST_F(WifiCommitTest, SimulatorAppliesTheConfiguration) {
    EXPECT_EQ(run("wificommit="), "wificommit done");
    EXPECT_EQ(calls(), Calls{kWifiCommit});
}

TEST_F(WifiCommitTest, NoReplyFails) {
    platform_rule(kWifiModeIf, "commit", R"("mode":"error")");
    EXPECT_EQ(run("wificommit="), "wificommit failed");
    EXPECT_EQ(calls(), Calls{kWifiCommit});
}

TEST_F(WifiCommitTest, DoesNotCommitTheSettingsStore) {
    EXPECT_EQ(run("setapssid=Fresh&wificommit="), "Fresh<br>setapssid donewificommit done");
    EXPECT_EQ(calls(), (Calls{set_call("SSID1", "Fresh"), kWifiCommit}));
    EXPECT_EQ(sim().nvram_committed("SSID1"), "Korvex-QTR58-3457");
}

// ---- Carrier script ----

TEST_F(WifiTest, WifiCarrierRunsTheCarrierScript) {
    EXPECT_EQ(run("wifi_carrier=ignored"), "wifi_carrier done");
    EXPECT_EQ(calls(), Calls{kCarrier});
}

TEST_F(WifiTest, WifiCarrierIsDoneWithoutReply) {
    platform_rule("com.KorvexLabs.platform.admin", "doSystem", R"("mode":"error")");
    EXPECT_EQ(run("wifi_carrier="), "wifi_carrier done");
    EXPECT_EQ(calls(), Calls{kCarrier});
}

// ---- Checksums of the applied settings ----

struct Md5Command {
    const char *command;
    const char *role;
};

void PrintTo(const Md5Command &p, std::ostream *os) { *os << p.command; }

class WifiMd5Test : public WifiTest, public ::testing::WithParamInterface<Md5Command> {
  protected:
    std::string command() const { return GetParam().command; }
};

TEST_P(WifiMd5Test, PrintsThePlatformsReplyAsItStands) {
    platform_rule(kWifiModeIf, "getmd5", R"("mode":"values","signature":"s","values":[" 9e107d9d <x> "])");
    EXPECT_EQ(run(command() + "=ignored"), " 9e107d9d <x> <br>" + command() + " done");
    EXPECT_EQ(calls(), Calls{md5_call(GetParam().role)});
}

TEST_P(WifiMd5Test, NoReplyWithinOneSecondPrintsNullAndIsDone) {
    platform_rule(kWifiModeIf, "getmd5", R"("mode":"silent")");
    EXPECT_EQ(run(command() + "="), "(null)<br>" + command() + " done");
    EXPECT_GE(elapsed_ms(), 900);
    EXPECT_LT(elapsed_ms(), 4000);
    EXPECT_EQ(calls(), Calls{md5_call(GetParam().role)});
}

TEST_P(WifiMd5Test, ErrorReplyPrintsNullAndIsDone) {
    platform_rule(kWifiModeIf, "getmd5", R"("mode":"error")");
    EXPECT_EQ(run(command() + "="), "(null)<br>" + command() + " done");
    EXPECT_EQ(calls(), Calls{md5_call(GetParam().role)});
}

INSTANTIATE_TEST_SUITE_P(Commands, WifiMd5Test,
                         ::testing::Values(Md5Command{"getwifiapmd5", "ap"}, Md5Command{"getwifistamd5", "sta"}),
                         CommandName());

// ---- SSID list ----

class SsidListTest : public WifiTest {
  protected:
    void ssid_reply(const std::string &json_list) {
        platform_rule(kWifiSsidIf, "refresh", R"("mode":"values","signature":"as","values":[)" + json_list + "]");
    }
};

TEST_F(SsidListTest, PrintsEachNameTrimmedInOrder) {
    // Blanks, tabs, line feeds, vertical tabs, form feeds and carriage returns around a name
    // go; those inside it stay.
    ssid_reply(R"([" lead","trail\t","\n\r both \u000b\f","in  side\tname","\t \n"," x y "])");
    EXPECT_EQ(run("getssidlist=ignored"), "lead<br>trail<br>both<br>in  side\tname<br><br>x y<br>getssidlist done");
    EXPECT_EQ(calls(), Calls{kSsidRefresh});
}

TEST_F(SsidListTest, NetworksOfTheSimulator) {
    EXPECT_EQ(run("getssidlist="),
              "Korvex-QTR58-3457<br>FRITZ!Box 7590 KL<br>Vodafone Homespot<br>TP-Link_2.4GHz_5C1E<br>"
              "Guest Network<br>getssidlist done");
    EXPECT_EQ(calls(), Calls{kSsidRefresh});
}

TEST_F(SsidListTest, TraceShowsEachNameUntrimmed) {
    const size_t since = env().error_log_size();
    EXPECT_EQ(run("getssidlist="),
              "Korvex-QTR58-3457<br>FRITZ!Box 7590 KL<br>Vodafone Homespot<br>TP-Link_2.4GHz_5C1E<br>"
              "Guest Network<br>getssidlist done");
    ASSERT_TRUE(env().wait_for_log("apache: ssid:  Guest Network<br>", std::chrono::seconds(2), since));
    EXPECT_EQ(module_log_lines(env().error_log_since(since), "apache: ssid: "),
              (std::vector<std::string>{
                  "[korvex:debug] [pid N] getSSIDList:L apache: ssid: Korvex-QTR58-3457<br>",
                  "[korvex:debug] [pid N] getSSIDList:L apache: ssid: FRITZ!Box 7590 KL<br>",
                  "[korvex:debug] [pid N] getSSIDList:L apache: ssid:   Vodafone Homespot  <br>",
                  "[korvex:debug] [pid N] getSSIDList:L apache: ssid: TP-Link_2.4GHz_5C1E <br>",
                  "[korvex:debug] [pid N] getSSIDList:L apache: ssid:  Guest Network<br>",
              }));
}

TEST_F(SsidListTest, EmptyListPrintsNothingAndIsDone) {
    ssid_reply("[]");
    EXPECT_EQ(run("getssidlist="), "getssidlist done");
    EXPECT_EQ(calls(), Calls{kSsidRefresh});
}

TEST_F(SsidListTest, NoReplyPrintsNothingAndIsDone) {
    platform_rule(kWifiSsidIf, "refresh", R"("mode":"error")");
    EXPECT_EQ(run("getssidlist="), "getssidlist done");
    EXPECT_EQ(calls(), Calls{kSsidRefresh});
}

}  // namespace
}  // namespace korvex::test
