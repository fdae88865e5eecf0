// "jsongetupdate" through Apache and the bus: the exact snapshot text, the 22 queries in
// their order, the time-zone mapping, escaping, items without answers, and the queries
// being in flight together (one round trip, one time-out at worst).
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/mpm_fixture.h"
#include "tests/support/command_test.h"
#include "tests/support/http_client.h"

namespace korvex::test {
namespace {

const std::string kPlatform = "com.korvex-labs.www.platform";
const std::string kSdk = "com.korvex-labs.www.sdk";
const std::string kNvramGet = kPlatform + " com.KorvexLabs.platform.nvram get";
const std::string kFirmware = kSdk + " com.KorvexLabs.firmware ";
const std::string kGetModel = kPlatform + " com.KorvexLabs.platform.admin getModel(s:getModel)";
const std::string kGetMac = kPlatform + " com.KorvexLabs.platform.net getMac";

// What the simulated daemons report about themselves.
const std::string kSimModel = "QTR58";
const std::string kSimWanMac = "00:4f:61:12:34:56";
const std::string kSimWifiMac = "00:4f:61:12:34:57";
const std::string kSimVersion = "5.3.2:20261015";

// The settings every test starts from (besides the simulator's factory settings).
const std::vector<std::pair<std::string, std::string>> kSettings = {
    {"jsonsetall_number", "1760518412"},
    {"jsongetuserdata_number", "1760432011"},
    {"setastclock_lon", "13.4050"},
    {"setastclock_lat", "52.5200"},
    {"TUTK_UUID", "E7KA9ZB1XH4WTRGU111A"},
    {"UUID", "4F61A2C95DE3B07810KQ"},
    {"WifiMode", "AP"},
    {"SSID1", "Korvex-QTR58-3457"},
    {"STA_SSID1", "Vodafone-7A21"},
    {"TimeZone", "MET_001"},  // 17th zone of the platform table
    {"jsonsetcheckbox", "3"},
    {"jsonsetcheckbox2", "0"},
    {"SU_PASSWORD", "su7Qx2rT"},
    {"enablelock", "0"},
    {"enableastclock", "1"},
    {"doscenemode", "2"},
    {"language", "1"},
};

// The snapshot of kSettings, members in byte order of their names.
const std::string kFullSnapshot =
    R"({"AP_SSID":"Korvex-QTR58-3457","Orbweb_UUID":"4F61A2C95DE3B07810KQ","PLATFORM_MODEL":"QTR58",)"
    R"("STA_SSID":"Vodafone-7A21","SU_PASSWORD":"su7Qx2rT","TUTK_UUID":"E7KA9ZB1XH4WTRGU111A","TZ":17,)"
    R"("WifiMode":"AP","doscenemode":2,"enableastclock":1,"enablelock":0,"eth:":"00:4f:61:12:34:56",)"
    R"("jsongetuserdata_number":1760432011,"jsonsetall_number":1760518412,"jsonsetcheckbox":3,)"
    R"("jsonsetcheckbox2":0,"language":1,"setastclock_lat":"52.5200","setastclock_lon":"13.4050",)"
    R"("swversion":"5.3.2:20261015","wifi:":"00:4f:61:12:34:57"})";

const std::string kDone = "<br>jsongetupdate done";
// The calls one snapshot makes.
constexpr size_t kQueries = 22;

std::string nvram_call(const std::string &key) { return kNvramGet + "(s:" + key + ")"; }

// The value of member `name` in the snapshot text as it is written ("" when absent).
std::string member_text(const std::string &body, const std::string &name) {
    const std::string key = "\"" + name + "\":";
    size_t at = body.find(key);
    if (at == std::string::npos) return "";
    at += key.size();
    size_t end = at;
    if (body[at] == '"') {
        for (end = at + 1; end < body.size() && body[end] != '"'; ++end)
            if (body[end] == '\\') ++end;
        ++end;
    } else {
        while (end < body.size() && body[end] != ',' && body[end] != '}') ++end;
    }
    return body.substr(at, end - at);
}

class StatusSnapshotTest : public CommandTest {
protected:
    // The snapshot's numbered lines are notable-request records.
    static void SetUpTestSuite() { use_log_level(KORVEX_LOG_REQUEST); }

    void SetUp() override {
        CommandTest::SetUp();
        for (const auto &[key, value] : kSettings) sim().nvram_put(key, value, true);
        sim().clear_records();
    }

    std::string snapshot() { return run("jsongetupdate="); }
};

TEST_F(StatusSnapshotTest, FullSnapshotIsCompactSortedAndEndsInBr) {
    std::string body = snapshot();
    EXPECT_EQ(body, kFullSnapshot + kDone);
    std::string json = body.substr(0, body.size() - kDone.size());
    EXPECT_EQ(json.find(' '), std::string::npos) << "no blank between tokens";
    EXPECT_EQ(json.find('\n'), std::string::npos);
}

TEST_F(StatusSnapshotTest, QueriesLeaveInTheDocumentedOrder) {
    snapshot();
    const std::vector<std::string> expected = {
        nvram_call("jsonsetall_number"),
        nvram_call("jsongetuserdata_number"),
        nvram_call("setastclock_lon"),
        nvram_call("setastclock_lat"),
        kFirmware + "version(s:korvex-sdk)",
        kFirmware + "date(s:korvex-sdk)",
        nvram_call("TUTK_UUID"),
        nvram_call("UUID"),
        nvram_call("WifiMode"),
        nvram_call("SSID1"),
        nvram_call("STA_SSID1"),
        nvram_call("TimeZone"),
        nvram_call("jsonsetcheckbox"),
        nvram_call("jsonsetcheckbox2"),
        nvram_call("SU_PASSWORD"),
        kGetModel,
        nvram_call("enablelock"),
        nvram_call("enableastclock"),
        nvram_call("doscenemode"),
        kGetMac + "(s:eth2.2)",
        kGetMac + "(s:ra0)",
        nvram_call("language"),
    };
    EXPECT_EQ(calls(kQueries), expected);
}

TEST_F(StatusSnapshotTest, AllQueriesUseTheSameConnection) {
    snapshot();
    std::vector<SimRecord> records = sim().wait_for_records(kQueries, 5000);
    ASSERT_EQ(records.size(), kQueries);
    for (const SimRecord &record : records) {
        EXPECT_EQ(record.sender, records[0].sender);
        EXPECT_EQ(record.path, records[0].path);
    }
}

TEST_F(StatusSnapshotTest, TheCommandsValueHasNoEffect) {
    EXPECT_EQ(run("jsongetupdate=anything%20at%20all"), kFullSnapshot + kDone);
    EXPECT_EQ(run("jsongetupdate=1"), kFullSnapshot + kDone);
}

// The trace keeps every item but the super-user password, which it shows masked.
TEST_F(StatusSnapshotTest, LogLinesFollowTheItems) {
    std::string masked = kFullSnapshot;
    const std::string password = "\"SU_PASSWORD\":\"su7Qx2rT\"";
    ASSERT_NE(masked.find(password), std::string::npos);
    masked.replace(masked.find(password), password.size(), "\"SU_PASSWORD\":\"********\"");
    size_t since = env().error_log_size();
    snapshot();
    ASSERT_TRUE(env().wait_for_log("20. {", std::chrono::seconds(5), since));
    std::string log = env().error_log_since(since);
    const std::vector<std::string> lines = {"0. jsongetupdate start !!", "1.13.4050", "2.52.5200",
                                            "3. " + kSimVersion, "4. E7KA9ZB1XH4WTRGU111A",
                                            "5.4F61A2C95DE3B07810KQ", "6.AP", "7.Korvex-QTR58-3457",
                                            "8.Vodafone-7A21", "9.MET_001", "10.3", "11.0", "12.********",
                                            "13.QTR58", "14.0", "15.1", "16.2", "17." + kSimWanMac,
                                            "18." + kSimWifiMac, "19.1", "20." + masked, "20. " + masked};
    size_t at = 0;
    for (const std::string &line : lines) {
        size_t found = log.find(line, at);
        ASSERT_NE(found, std::string::npos) << "missing or out of order: " << line << "\n" << log;
        at = found + line.size();
    }
    EXPECT_EQ(log.find("su7Qx2rT"), std::string::npos);
}

// ---- concurrency ------------------------------------------------------------------------

TEST_F(StatusSnapshotTest, EveryReplyDelayedStillAnswersInAboutOneRoundTrip) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.platform","mode":"default","delay_ms":100})");
    sim().set_rule(R"({"destination":"com.korvex-labs.www.sdk","mode":"default","delay_ms":100})");
    EXPECT_EQ(snapshot(), kFullSnapshot + kDone);
    // 22 calls one after another would need 2.2 s.
    EXPECT_GE(elapsed_ms(), 100);
    EXPECT_LT(elapsed_ms(), 700);
    EXPECT_EQ(calls(kQueries).size(), kQueries);
}

TEST_F(StatusSnapshotTest, SilentSdkCostsOneTimeOutLeavesTheVersionNullThenIsNotAskedAgain) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.sdk","mode":"silent"})");
    size_t since = env().error_log_size();
    std::string body = snapshot();
    EXPECT_EQ(member_text(body, "swversion"), "\"(null):(null)\"");
    std::string expected = kFullSnapshot;
    expected.replace(expected.find(kSimVersion), kSimVersion.size(), "(null):(null)");
    EXPECT_EQ(body, expected + kDone);
    // One string-request time-out (5 s), not the sum of two.
    EXPECT_GE(elapsed_ms(), 4800);
    EXPECT_LT(elapsed_ms(), 6500);
    EXPECT_TRUE(env().wait_for_log("No reply, str: korvex-sdk, dest: com.korvex-labs.www.sdk, ifac: "
                                   "com.KorvexLabs.firmware, command: version",
                                   std::chrono::seconds(2), since));
    EXPECT_TRUE(env().wait_for_log("No reply, str: korvex-sdk, dest: com.korvex-labs.www.sdk, ifac: "
                                   "com.KorvexLabs.firmware, command: date",
                                   std::chrono::seconds(2), since));
    EXPECT_TRUE(env().wait_for_log("3. (null):(null)", std::chrono::seconds(2), since));

    // The SDK is now declared silent: the next snapshot answers at once with the same bytes,
    // without asking it.
    sim().clear_records();
    EXPECT_EQ(snapshot(), body);
    EXPECT_LT(elapsed_ms(), 1000);
    for (const std::string &call : calls()) {
        EXPECT_EQ(call.find("com.korvex-labs.www.sdk "), std::string::npos) << call;
    }
}

TEST_F(StatusSnapshotTest, MissingVersionSideIsNullOnItsSideOfTheColon) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.sdk","member":"date","mode":"error"})");
    EXPECT_EQ(member_text(snapshot(), "swversion"), "\"5.3.2:(null)\"");
    EXPECT_LT(elapsed_ms(), 1000) << "an error reply is final at once";
}

TEST_F(StatusSnapshotTest, EachCallKeepsItsOwnTimeOut) {
    // nvram reads give up after 1 s even though the string requests could wait 5 s.
    sim().set_rule(
        R"({"destination":"com.korvex-labs.www.platform","member":"get","mode":"default","delay_ms":1500})");
    std::string body = snapshot();
    EXPECT_EQ(body, R"({"PLATFORM_MODEL":"QTR58","eth:":"00:4f:61:12:34:56","swversion":"5.3.2:20261015",)"
                    R"("wifi:":"00:4f:61:12:34:57"})" +
                        kDone);
    EXPECT_GE(elapsed_ms(), 950);
    EXPECT_LT(elapsed_ms(), 1450);
}

TEST_F(StatusSnapshotTest, LateRepliesDoNotLeakIntoTheNextSnapshot) {
    sim().set_rule(
        R"({"destination":"com.korvex-labs.www.platform","member":"get","mode":"default","delay_ms":1200,"times":17})");
    snapshot();
    // Let the late replies of the first snapshot reach the connection, then ask again
    // with other settings: only the new answers may appear.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    sim().nvram_put("SSID1", "Second-Run", true);
    std::string second = snapshot();
    std::string expected = kFullSnapshot;
    expected.replace(expected.find("Korvex-QTR58-3457"), 17, "Second-Run");
    EXPECT_EQ(second, expected + kDone);
}

// ---- items without answers --------------------------------------------------------------

TEST_F(StatusSnapshotTest, BothStampsZeroAreLeftOut) {
    sim().nvram_put("jsonsetall_number", "0", true);
    sim().nvram_put("jsongetuserdata_number", "0", true);
    std::string body = snapshot();
    EXPECT_EQ(body.find("jsonsetall_number"), std::string::npos);
    EXPECT_EQ(body.find("jsongetuserdata_number"), std::string::npos);
    EXPECT_EQ(body, R"({"AP_SSID":"Korvex-QTR58-3457","Orbweb_UUID":"4F61A2C95DE3B07810KQ",)"
                    R"("PLATFORM_MODEL":"QTR58","STA_SSID":"Vodafone-7A21","SU_PASSWORD":"su7Qx2rT",)"
                    R"("TUTK_UUID":"E7KA9ZB1XH4WTRGU111A","TZ":17,"WifiMode":"AP","doscenemode":2,)"
                    R"("enableastclock":1,"enablelock":0,"eth:":"00:4f:61:12:34:56","jsonsetcheckbox":3,)"
                    R"("jsonsetcheckbox2":0,"language":1,"setastclock_lat":"52.5200",)"
                    R"("setastclock_lon":"13.4050","swversion":"5.3.2:20261015","wifi:":"00:4f:61:12:34:57"})" +
                        kDone);
}

TEST_F(StatusSnapshotTest, BothStampsUnsetAreLeftOut) {
    sim().nvram_put("jsonsetall_number", "", true);
    sim().nvram_put("jsongetuserdata_number", "", true);
    std::string body = snapshot();
    EXPECT_EQ(body.find("_number"), std::string::npos) << body;
    EXPECT_EQ(member_text(body, "AP_SSID"), "\"Korvex-QTR58-3457\"");
    EXPECT_EQ(member_text(body, "language"), "1");
}

TEST_F(StatusSnapshotTest, OneStampSetIsPublishedAlone) {
    sim().nvram_put("jsonsetall_number", "0", true);
    std::string body = snapshot();
    EXPECT_EQ(body.find("jsonsetall_number"), std::string::npos);
    EXPECT_EQ(member_text(body, "jsongetuserdata_number"), "1760432011");
}

TEST_F(StatusSnapshotTest, NvramWithoutAnswerLeavesOnlyTheStringRequests) {
    // Integer items without a reply are left out as well; the snapshot still succeeds.
    sim().set_rule(R"({"destination":"com.korvex-labs.www.platform","member":"get","mode":"error"})");
    EXPECT_EQ(snapshot(), R"({"PLATFORM_MODEL":"QTR58","eth:":"00:4f:61:12:34:56",)"
                          R"("swversion":"5.3.2:20261015","wifi:":"00:4f:61:12:34:57"})" +
                              kDone);
    EXPECT_LT(elapsed_ms(), 1000);
}

TEST_F(StatusSnapshotTest, PlatformAbsentGivesNullMacsAndNoModel) {
    sim().set_absent(kPlatform, true);
    std::string body = snapshot();
    sim().set_absent(kPlatform, false);
    EXPECT_EQ(body, R"J({"eth:":"(null)","swversion":"5.3.2:20261015","wifi:":"(null)"})J" + kDone);
    EXPECT_LT(elapsed_ms(), 1000);
}

TEST_F(StatusSnapshotTest, RepliesWithoutArgumentReadAsNullText) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.platform","mode":"noarg"})");
    sim().set_rule(R"({"destination":"com.korvex-labs.www.sdk","mode":"noarg"})");
    // Strings publish "(null)", integers read it as 0, stamps of 0 are left out.
    EXPECT_EQ(snapshot(),
              R"J({"AP_SSID":"(null)","Orbweb_UUID":"(null)","PLATFORM_MODEL":"(null)","STA_SSID":"(null)",)J"
              R"J("SU_PASSWORD":"(null)","TUTK_UUID":"(null)","TZ":0,"WifiMode":"(null)","doscenemode":0,)J"
              R"J("enableastclock":0,"enablelock":0,"eth:":"(null)","jsonsetcheckbox":0,"jsonsetcheckbox2":0,)J"
              R"J("language":0,"setastclock_lat":"(null)","setastclock_lon":"(null)",)J"
              R"J("swversion":"(null):(null)","wifi:":"(null)"})J" +
                  kDone);
}

TEST_F(StatusSnapshotTest, WrongTypedReplyReadsAsNullText) {
    sim().set_rule(
        R"({"destination":"com.korvex-labs.www.platform","interface":"com.KorvexLabs.platform.admin","member":"getModel","mode":"wrongtype"})");
    EXPECT_EQ(member_text(snapshot(), "PLATFORM_MODEL"), "\"(null)\"");
}

// ---- time zone --------------------------------------------------------------------------

// The mapping itself (unknown names, number texts) is proven in tests/unit/timezone_mapping_test.cpp.
TEST_F(StatusSnapshotTest, ThirdZoneNameGivesThree) {
    sim().nvram_put("TimeZone", "UCT_-10", true);  // third name of the platform table
    EXPECT_EQ(member_text(snapshot(), "TZ"), "3");
}

TEST_F(StatusSnapshotTest, ZoneIsLoggedBeforeMapping) {
    sim().nvram_put("TimeZone", "UCT_-10", true);
    size_t since = env().error_log_size();
    snapshot();
    EXPECT_TRUE(env().wait_for_log("9.UCT_-10", std::chrono::seconds(5), since));
}

// ---- escaping ---------------------------------------------------------------------------

TEST_F(StatusSnapshotTest, DoubleQuoteInSsidIsEscaped) {
    sim().nvram_put("SSID1", "My \"Home\" Net", true);
    std::string body = snapshot();
    EXPECT_EQ(member_text(body, "AP_SSID"), R"("My \"Home\" Net")");
}

TEST_F(StatusSnapshotTest, NonAsciiInSsidIsEscaped) {
    sim().nvram_put("SSID1", "Caf\xc3\xa9-\xe2\x82\xac", true);  // "Café-€"
    sim().nvram_put("STA_SSID1", "Fun \xf0\x9f\x98\x80", true);  // beyond the BMP
    std::string body = snapshot();
    EXPECT_EQ(member_text(body, "AP_SSID"), R"("Caf\u00E9-\u20AC")");
    EXPECT_EQ(member_text(body, "STA_SSID"), R"("Fun \uD83D\uDE00")");
    for (unsigned char c : body) EXPECT_LT(c, 0x80) << "raw non-ASCII byte in " << body;
}

TEST_F(StatusSnapshotTest, BackslashAndSlashInValues) {
    sim().nvram_put("SU_PASSWORD", "a\\b/c", true);
    EXPECT_EQ(member_text(snapshot(), "SU_PASSWORD"), R"("a\\b/c")");
}

// ---- no bus -----------------------------------------------------------------------------

TEST_F(StatusSnapshotTest, WithoutBusOnlyTheCopiedItemsRemain) {
    close_sim();
    env().bus_stop();
    std::string body = snapshot();
    env().bus_start();
    EXPECT_EQ(body, R"J({"eth:":"(null)","swversion":"(null):(null)","wifi:":"(null)"})J" + kDone);
}

// ---- threaded server --------------------------------------------------------------------

// Under the event MPM every serving thread has a connection of its own; snapshots served
// at the same time on different threads each collect exactly their own replies.
using StatusSnapshotEventMpmTest = OnMpm<StatusSnapshotTest, kEventMpm, KORVEX_LOG_REQUEST>;

TEST_F(StatusSnapshotEventMpmTest, ConcurrentSnapshotsEachGetTheFullAnswer) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.platform","mode":"default","delay_ms":100})");
    constexpr int kClients = 6;
    std::vector<std::string> bodies(kClients);
    std::vector<std::thread> clients;
    auto started = std::chrono::steady_clock::now();
    for (int i = 0; i < kClients; ++i)
        clients.emplace_back([i, &bodies] { bodies[i] = get(port(), "/network.cgi?jsongetupdate=").body; });
    for (std::thread &client : clients) client.join();
    long elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started).count();
    for (const std::string &body : bodies) EXPECT_EQ(body, kFullSnapshot + kDone);
    EXPECT_LT(elapsed, 1500);
    EXPECT_EQ(sim().wait_for_records(kQueries * kClients, 5000).size(), kQueries * kClients);
}

}  // namespace
}  // namespace korvex::test
