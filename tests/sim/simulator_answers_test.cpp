// The simulated daemons' normal answers and what the simulator records of each call.
#include <regex>

#include "tests/sim/simulator_fixture.h"

namespace korvex::test {
namespace {

using namespace korvex::peer;

class SimulatorAnswersTest : public SimulatorTest {};

TEST_F(SimulatorAnswersTest, DoSystemIsRecordedWithItsExactLineAndAnsweredZero) {
    CallOutcome outcome = caller_->call(kPlatform, kIfAdmin, "doSystem",
                                        RawBusCaller::str("update -k /tmp/uImage -m QTR58 -r 3 &"));
    ASSERT_EQ(outcome.error_name, "");
    EXPECT_EQ(outcome.signature, "i");
    EXPECT_EQ(outcome.int_arg(), 0);

    std::vector<SimRecord> recs = sim_->records();
    ASSERT_EQ(recs.size(), 1u);
    EXPECT_EQ(recs[0].type, "method_call");
    EXPECT_EQ(recs[0].destination, kPlatform);
    EXPECT_EQ(recs[0].interface, kIfAdmin);
    EXPECT_EQ(recs[0].member, "doSystem");
    EXPECT_EQ(recs[0].path, "/com/KorvexLabs/Apache/1234");
    EXPECT_EQ(recs[0].sender, caller_->unique_name());
    EXPECT_EQ(recs[0].args, (std::vector<std::string>{"s:update -k /tmp/uImage -m QTR58 -r 3 &"}));
}

TEST_F(SimulatorAnswersTest, RecordsKeepArrivalOrderAndRenderEveryArgumentType) {
    caller_->call(kSdk, kIfLed, "command", [](DBusMessage *message) {
        const char *led = "LOGO";
        dbus_uint32_t value = 1;
        dbus_message_append_args(message, DBUS_TYPE_STRING, &led, DBUS_TYPE_UINT32, &value, DBUS_TYPE_INVALID);
    });
    caller_->call(kApp, kIfSwitchApp, "backupConfig", RawBusCaller::int32(-1));
    caller_->call(kApp, kIfApp, "noSuchMember", [](DBusMessage *message) {
        const char *words[] = {"a", "b \"c\""};
        const char **array = words;
        dbus_bool_t flag = TRUE;
        dbus_int64_t big = -5000000000;
        double ratio = 0.5;
        dbus_message_append_args(message, DBUS_TYPE_ARRAY, DBUS_TYPE_STRING, &array, 2, DBUS_TYPE_BOOLEAN, &flag,
                                 DBUS_TYPE_INT64, &big, DBUS_TYPE_DOUBLE, &ratio, DBUS_TYPE_INVALID);
    });

    std::vector<SimRecord> recs = sim_->records();
    ASSERT_EQ(recs.size(), 3u);
    EXPECT_EQ(recs[0].member, "command");
    EXPECT_EQ(recs[0].args, (std::vector<std::string>{"s:LOGO", "u:1"}));
    EXPECT_EQ(recs[1].member, "backupConfig");
    EXPECT_EQ(recs[1].args, (std::vector<std::string>{"i:-1"}));
    EXPECT_EQ(recs[2].member, "noSuchMember");
    EXPECT_EQ(recs[2].args,
              (std::vector<std::string>{"as:[\"a\",\"b \\\"c\\\"\"]", "b:true", "x:-5000000000", "d:0.5"}));
}

TEST_F(SimulatorAnswersTest, CallsOnAnyObjectPathAreAnswered) {
    for (const char *path : {"/", "/com/KorvexLabs/Apache/99", "/some/other/path"}) {
        DBusMessage *message = RawBusCaller::new_call(kPlatform, kIfAdmin, "getModel", path);
        RawBusCaller::str("getModel")(message);
        CallOutcome outcome = caller_->send(message, 2000);
        ASSERT_EQ(outcome.error_name, "") << path;
        EXPECT_EQ(outcome.string_arg(), "QTR58");
    }
    std::vector<SimRecord> recs = sim_->records();
    ASSERT_EQ(recs.size(), 3u);
    EXPECT_EQ(recs[2].path, "/some/other/path");
}

TEST_F(SimulatorAnswersTest, UnknownMembersAndInterfacesGetUnknownMethod) {
    EXPECT_EQ(caller_->call(kPlatform, kIfAdmin, "format", RawBusCaller::str("/")).error_name,
              "org.freedesktop.DBus.Error.UnknownMethod");
    EXPECT_EQ(caller_->call(kTelldus, kIfApp, "jsongetall", RawBusCaller::str("")).error_name,
              "org.freedesktop.DBus.Error.UnknownMethod");
    EXPECT_EQ(sim_->records().size(), 2u) << "refused calls are recorded too";
}

TEST_F(SimulatorAnswersTest, PlatformAnswersIdentityAndNetwork) {
    EXPECT_EQ(caller_->call(kPlatform, kIfAdmin, "getModel", RawBusCaller::str("getModel")).string_arg(), "QTR58");
    EXPECT_EQ(caller_->call(kPlatform, kIfNet, "getMac", RawBusCaller::str("eth2.2")).string_arg(),
              "00:4f:61:12:34:56");
    EXPECT_EQ(caller_->call(kPlatform, kIfNet, "getMac", RawBusCaller::str("ra0")).string_arg(),
              "00:4f:61:12:34:57");
    EXPECT_EQ(caller_->call(kPlatform, kIfNet, "getMac", RawBusCaller::str("lo")).string_arg(), "");
    EXPECT_EQ(caller_->call(kPlatform, kIfNet, "getip", RawBusCaller::str("")).string_arg(), "192.168.1.57");
    EXPECT_EQ(caller_->call(kPlatform, kIfNet, "getnetmask", RawBusCaller::str("")).string_arg(), "255.255.255.0");
    EXPECT_EQ(caller_->call(kPlatform, kIfNet, "initInternet", RawBusCaller::int32(1)).int_arg(), 0);
    EXPECT_EQ(caller_->call(kPlatform, kIfAdmin, "reboot", RawBusCaller::int32(3)).int_arg(), 0);
    EXPECT_EQ(caller_->call(kPlatform, kIfAdmin, "restartP2P", RawBusCaller::str("restart")).int_arg(), 0);
    EXPECT_EQ(caller_->call(kPlatform, kIfConfig, "reset", RawBusCaller::str("1")).int_arg(), 0);
    EXPECT_EQ(caller_->call(kPlatform, kIfWeBeHome, "refresh", RawBusCaller::int32(1)).int_arg(), 0);
}

TEST_F(SimulatorAnswersTest, PlatformAnswersWifi) {
    EXPECT_EQ(caller_->call(kPlatform, kIfWifiMode, "commit", RawBusCaller::str("commit")).int_arg(), 1);
    EXPECT_EQ(caller_->call(kPlatform, kIfWifiSta, "command", RawBusCaller::str("getSSID")).string_arg(),
              "Vodafone-7A21");

    std::string ap_md5 = caller_->call(kPlatform, kIfWifiMode, "getmd5", RawBusCaller::str("ap")).string_arg();
    std::string sta_md5 = caller_->call(kPlatform, kIfWifiMode, "getmd5", RawBusCaller::str("sta")).string_arg();
    EXPECT_TRUE(std::regex_match(ap_md5, std::regex("[0-9a-f]{32}"))) << ap_md5;
    EXPECT_TRUE(std::regex_match(sta_md5, std::regex("[0-9a-f]{32}"))) << sta_md5;
    EXPECT_NE(ap_md5, sta_md5);
    sim_->nvram_put("WPAPSK", "another-passphrase", false);
    EXPECT_NE(caller_->call(kPlatform, kIfWifiMode, "getmd5", RawBusCaller::str("ap")).string_arg(), ap_md5);

    CallOutcome ssids = caller_->call(kPlatform, kIfWifiSsid, "refresh", RawBusCaller::str("refresh"));
    EXPECT_EQ(ssids.signature, "as");
    std::vector<std::string> names = ssids.strings_arg();
    ASSERT_GE(names.size(), 3u);
    EXPECT_TRUE(std::any_of(names.begin(), names.end(),
                            [](const std::string &n) { return n.front() == ' ' || n.back() == ' '; }));
    EXPECT_TRUE(std::any_of(names.begin(), names.end(), [](const std::string &n) {
        return n.find(' ', 1) < n.size() - 1 && n.front() != ' ';
    }));
}

TEST_F(SimulatorAnswersTest, SdkAnswers) {
    EXPECT_EQ(caller_->call(kSdk, kIfFirmware, "version", RawBusCaller::str("korvex-sdk")).string_arg(), "5.3.2");
    EXPECT_EQ(caller_->call(kSdk, kIfFirmware, "date", RawBusCaller::str("korvex-sdk")).string_arg(), "20261015");
    EXPECT_EQ(caller_->call(kSdk, kIfJsonCommand, "command", RawBusCaller::str(R"({"cmd":"getNodeList"})"))
                  .string_arg(),
              R"({"cmd":"getNodeList","result":"ok"})");
    EXPECT_EQ(caller_->call(kSdk, kIfEasyCommand, "name", RawBusCaller::str("userdata_change")).string_arg(), "ok");
    CallOutcome allocated = caller_->call(kSdk, kIfMemory, "getAllocated", RawBusCaller::str("korvex-sdk"));
    EXPECT_EQ(allocated.signature, "as");
    EXPECT_FALSE(allocated.strings_arg().empty());
}

TEST_F(SimulatorAnswersTest, ApplicationAnswers) {
    std::string titles = caller_->call(kApp, kIfApp, "jsongettitles", RawBusCaller::str("")).string_arg();
    EXPECT_EQ(titles.rfind("{\"titles\":", 0), 0u) << titles;
    EXPECT_EQ(caller_->call(kApp, kIfApp, "jsonsetall", RawBusCaller::str("{}")).int_arg(), 1);
    EXPECT_EQ(caller_->call(kApp, kIfApp, "jsondel", RawBusCaller::str("{}")).int_arg(), 1);
    EXPECT_EQ(caller_->call(kApp, kIfApp, "enablelock", RawBusCaller::str("1")).string_arg(), "ok");
    EXPECT_EQ(caller_->call(kApp, kIfApp, "sendDat", RawBusCaller::str("{}")).string_arg(), "");
    EXPECT_EQ(caller_->call(kApp, kIfApp, "getDat", RawBusCaller::str("getDat")).signature, "s");
    EXPECT_EQ(caller_->call(kApp, kIfSwitchApp, "restoreConfig2", RawBusCaller::int32(1)).int_arg(), 0);
    CallOutcome memory = caller_->call(kApp, kIfDebug, "memory_debug", RawBusCaller::str("app"));
    EXPECT_EQ(memory.signature, "as");
    EXPECT_FALSE(memory.strings_arg().empty());
}

TEST_F(SimulatorAnswersTest, SocketWatchdogUpdaterAndTelldusAnswers) {
    EXPECT_FALSE(caller_->call(kSocket, kIfSocketCmd, "command", RawBusCaller::str("authcode")).string_arg().empty());
    EXPECT_EQ(caller_->call(kSocket, kIfSocketCmd, "command", RawBusCaller::str("sysinfo")).string_arg().front(), '{');
    EXPECT_EQ(caller_->call(kDebuger, kIfWatchdog, "getfwver", RawBusCaller::int32(1)).string_arg(), "5.3.2");
    EXPECT_EQ(caller_->call(kDebuger, kIfWatchdog, "stopTracking", RawBusCaller::int32(1)).int_arg(), 0);
    EXPECT_EQ(caller_->call(kCheckUpdate, kIfCheckUpdate, "getupdatestatus", RawBusCaller::int32(1)).signature, "s");
    EXPECT_EQ(caller_->call(kUpdate, kIfUpdate, "getupdatestatus", RawBusCaller::int32(1)).signature, "s");
    EXPECT_EQ(caller_->call(kTelldus, kIfTelldus433, "test", RawBusCaller::str("01,00,14,18")).string_arg(), "ok");
}

TEST_F(SimulatorAnswersTest, OomTableIsOneStructOfPidNameScoreExtraGroups) {
    CallOutcome oom = caller_->call(kDebuger, kIfWatchdogOom, "getList", RawBusCaller::str("getList"));
    ASSERT_EQ(oom.error_name, "");
    ASSERT_TRUE(std::regex_match(oom.signature, std::regex("\\((ussi)+\\)"))) << oom.signature;

    DBusMessageIter iter, fields;
    dbus_message_iter_init(oom.reply, &iter);
    dbus_message_iter_recurse(&iter, &fields);
    dbus_uint32_t pid = 0;
    const char *name = nullptr;
    dbus_message_iter_get_basic(&fields, &pid);
    dbus_message_iter_next(&fields);
    dbus_message_iter_get_basic(&fields, &name);
    EXPECT_GT(pid, 1u);
    EXPECT_STRNE(name, "");
}

TEST_F(SimulatorAnswersTest, UpdateSignalsAreRecordedOthersAreNot) {
    DBusMessage *other = dbus_message_new_signal("/com/KorvexLabs/Apache/1234", "com.KorvexLabs.signal.other", "alive");
    dbus_connection_send(caller_->connection(), other, nullptr);
    dbus_message_unref(other);
    for (const char *member : {kSignalAlive, kSignalRewriteEntire}) {
        DBusMessage *signal = dbus_message_new_signal("/com/KorvexLabs/Apache/1234", kIfSignalUpdate, member);
        if (std::string(member) == kSignalAlive)
            RawBusCaller::int32(1)(signal);
        else
            RawBusCaller::str("")(signal);
        dbus_connection_send(caller_->connection(), signal, nullptr);
        dbus_message_unref(signal);
    }
    dbus_connection_flush(caller_->connection());

    std::vector<SimRecord> recs = sim_->wait_for_records(2, 2000);
    ASSERT_EQ(recs.size(), 2u);
    EXPECT_EQ(recs[0].type, "signal");
    EXPECT_EQ(recs[0].destination, "");
    EXPECT_EQ(recs[0].interface, kIfSignalUpdate);
    EXPECT_EQ(recs[0].member, "alive");
    EXPECT_EQ(recs[0].sender, caller_->unique_name());
    EXPECT_EQ(recs[0].args, (std::vector<std::string>{"i:1"}));
    EXPECT_EQ(recs[1].member, "rewriteEntire");
    EXPECT_EQ(recs[1].args, (std::vector<std::string>{"s:"}));
}

// The bus daemon answers a method call without destination itself, with an error, and
// passes it to nobody; no daemon (and so no simulator) ever sees it.
TEST_F(SimulatorAnswersTest, CallWithoutDestinationIsRefusedByTheBusAndNotSeen) {
    DBusMessage *message = RawBusCaller::new_call(nullptr, kIfDebug, "memory_debug");
    RawBusCaller::str("platform")(message);
    CallOutcome outcome = caller_->send(message, 3000);
    EXPECT_EQ(outcome.error_name, "org.freedesktop.DBus.Error.UnknownMethod");
    EXPECT_LT(outcome.elapsed_ms, 1000);
    EXPECT_TRUE(sim_->records().empty());
}

TEST_F(SimulatorAnswersTest, ControlCallsAreNotRecordedAndClearRecordsEmptiesTheList) {
    EXPECT_EQ(sim_->ping(), "pong");
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.sdk","mode":"error"})");
    EXPECT_TRUE(sim_->records().empty());
    caller_->call(kPlatform, kIfAdmin, "getModel", RawBusCaller::str("getModel"));
    ASSERT_EQ(sim_->records().size(), 1u);
    sim_->clear_records();
    EXPECT_TRUE(sim_->records().empty());
}

}  // namespace
}  // namespace korvex::test
