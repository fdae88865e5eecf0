// The Wi-Fi service calls through Apache and the bus: applying the configuration, the
// checksums of the applied settings, the station's link status, the carrier script and the
// list of SSIDs around.
#include <chrono>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/command_test.h"
#include "tests/support/log_lines.h"

namespace korvex::test {
namespace {

const std::string kPlatform = "com.korvex-labs.www.platform";
const std::string kWifiModeIf = "com.KorvexLabs.platform.wifi.mode";
const std::string kWifiStaIf = "com.KorvexLabs.platform.wifi.STA";
const std::string kWifiSsidIf = "com.KorvexLabs.platform.wifi.ssid";

const std::string kWifiCommit = kPlatform + " " + kWifiModeIf + " commit(s:commit)";
const std::string kStaGetSsid = kPlatform + " " + kWifiStaIf + " command(s:getSSID)";
const std::string kSsidRefresh = kPlatform + " " + kWifiSsidIf + " refresh(s:refresh)";
const std::string kCarrier = kPlatform + " com.KorvexLabs.platform.admin doSystem(s:wifi_carrier.sh &)";

std::string md5_call(const std::string &role) { return kPlatform + " " + kWifiModeIf + " getmd5(s:" + role + ")"; }

class WifiTest : public CommandTest {
  protected:
    // The SSID list is asserted through its trace lines too.
    static void SetUpTestSuite() { use_log_level(KORVEX_LOG_TRACE); }
};

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
