// Behaviour rules: how tests make a daemon silent, failing, odd or slow, or take it off
// the bus.
#include <chrono>

#include "tests/sim/simulator_fixture.h"

namespace korvex::test {
namespace {

using namespace korvex::peer;

constexpr char kInjectedError[] = "com.korvex_labs.sim.Error.Injected";

class SimulatorRulesTest : public SimulatorTest {
  protected:
    CallOutcome get_model(int timeout_ms = 2000) {
        return caller_->call(kPlatform, kIfAdmin, "getModel", RawBusCaller::str("getModel"), timeout_ms);
    }
    CallOutcome do_system(const std::string &line) {
        return caller_->call(kPlatform, kIfAdmin, "doSystem", RawBusCaller::str(line));
    }
};

TEST_F(SimulatorRulesTest, SilentDaemonLetsTheCallerTimeOutButStillRecordsTheCall) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","member":"getModel","mode":"silent"})");
    CallOutcome outcome = get_model(300);
    EXPECT_EQ(outcome.error_name, "org.freedesktop.DBus.Error.NoReply");
    EXPECT_GE(outcome.elapsed_ms, 280);
    EXPECT_EQ(do_system("true").int_arg(), 0) << "other members still answer";
    EXPECT_EQ(sim_->records().size(), 2u);
}

TEST_F(SimulatorRulesTest, ErrorModeAnswersTheInjectedError) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","interface":"com.KorvexLabs.platform.admin",)"
                   R"("member":"doSystem","mode":"error"})");
    CallOutcome outcome = do_system("ntp.sh");
    EXPECT_EQ(outcome.error_name, kInjectedError);
    EXPECT_LT(outcome.elapsed_ms, 1000);
}

TEST_F(SimulatorRulesTest, NoArgModeAnswersWithoutArguments) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","member":"getModel","mode":"noarg"})");
    CallOutcome outcome = get_model();
    ASSERT_EQ(outcome.error_name, "");
    EXPECT_EQ(outcome.signature, "");
}

TEST_F(SimulatorRulesTest, WrongTypeModeSwapsStringAndInteger) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","mode":"wrongtype"})");
    CallOutcome model = get_model();
    EXPECT_EQ(model.signature, "i");
    EXPECT_EQ(model.int_arg(), 7);
    CallOutcome status = do_system("true");
    EXPECT_EQ(status.signature, "s");
    EXPECT_EQ(status.string_arg(), "7");
}

TEST_F(SimulatorRulesTest, ValuesModeAnswersTheGivenSignatureAndValues) {
    const std::string platform = R"({"destination":"com.korvex-labs.www.platform",)";
    sim_->set_rule(platform + R"("member":"getModel","mode":"values","signature":"s","values":["abc"]})");
    sim_->set_rule(platform + R"("member":"doSystem","mode":"values","signature":"i","values":[-5]})");
    sim_->set_rule(platform + R"("member":"reboot","mode":"values","signature":"u","values":[4294967295]})");
    sim_->set_rule(platform + R"("member":"refresh","mode":"values","signature":"as","values":[["a","b"]]})");
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.debuger","member":"getList","mode":"values",)"
                   R"json("signature":"(ussiussi)","values":[[12,"app","5","0",34,"platform","7","0"]]})json");

    EXPECT_EQ(get_model().string_arg(), "abc");
    EXPECT_EQ(do_system("true").int_arg(), -5);
    EXPECT_EQ(caller_->call(kPlatform, kIfAdmin, "reboot", RawBusCaller::int32(3)).uint_arg(), 4294967295u);
    EXPECT_EQ(caller_->call(kPlatform, kIfWifiSsid, "refresh", RawBusCaller::str("refresh")).strings_arg(),
              (std::vector<std::string>{"a", "b"}));
    CallOutcome oom = caller_->call(kDebuger, kIfWatchdogOom, "getList", RawBusCaller::str("getList"));
    EXPECT_EQ(oom.signature, "(ussiussi)");
}

TEST_F(SimulatorRulesTest, RulesThatDoNotFitAreRefused) {
    const std::string sdk = R"({"destination":"com.korvex-labs.www.sdk",)";
    EXPECT_THROW(sim_->set_rule(sdk + R"("mode":"values","signature":"i","values":["abc"]})"), std::runtime_error);
    EXPECT_THROW(sim_->set_rule(sdk + R"("mode":"values","signature":"u","values":[-1]})"), std::runtime_error);
    EXPECT_THROW(sim_->set_rule(sdk + R"("mode":"values","signature":"ss","values":["a"]})"), std::runtime_error);
    EXPECT_THROW(sim_->set_rule(sdk + R"("mode":"values","signature":"(a","values":[]})"), std::runtime_error);
    EXPECT_THROW(sim_->set_rule(sdk + R"("mode":"sleepy"})"), std::runtime_error);
    EXPECT_THROW(sim_->set_rule(sdk + R"("mode":"error","delay":5})"), std::runtime_error);
    EXPECT_THROW(sim_->set_rule(R"({"destination":"com.example.other","mode":"error"})"), std::runtime_error);
    EXPECT_THROW(sim_->set_rule("not json"), std::runtime_error);
}

// Delayed answers wait in a queue; the simulator goes on serving other calls meanwhile.
TEST_F(SimulatorRulesTest, DelayedAnswersDoNotHoldUpEachOther) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","mode":"default","delay_ms":100})");
    constexpr int kCalls = 22;
    std::vector<DBusPendingCall *> pending;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kCalls; ++i) {
        DBusMessage *message = RawBusCaller::new_call(kPlatform, kIfAdmin, "getModel");
        RawBusCaller::str("getModel")(message);
        DBusPendingCall *call = nullptr;
        ASSERT_TRUE(dbus_connection_send_with_reply(caller_->connection(), message, &call, 5000));
        dbus_message_unref(message);
        pending.push_back(call);
    }
    dbus_connection_flush(caller_->connection());
    int answered = 0;
    for (DBusPendingCall *call : pending) {
        dbus_pending_call_block(call);
        DBusMessage *reply = dbus_pending_call_steal_reply(call);
        answered += dbus_message_get_type(reply) == DBUS_MESSAGE_TYPE_METHOD_RETURN;
        dbus_message_unref(reply);
        dbus_pending_call_unref(call);
    }
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(answered, kCalls);
    EXPECT_GE(elapsed, std::chrono::milliseconds(95));
    EXPECT_LT(elapsed, std::chrono::milliseconds(600));
}

TEST_F(SimulatorRulesTest, DelayAppliesToErrorsToo) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","mode":"error","delay_ms":150})");
    CallOutcome outcome = get_model();
    EXPECT_EQ(outcome.error_name, kInjectedError);
    EXPECT_GE(outcome.elapsed_ms, 140);
}

TEST_F(SimulatorRulesTest, AbsentDaemonFailsAtOnceUntilItIsBack) {
    sim_->set_absent(kSdk, true);
    CallOutcome outcome = caller_->call(kSdk, kIfFirmware, "version", RawBusCaller::str("korvex-sdk"), 3000);
    EXPECT_EQ(outcome.error_name, "org.freedesktop.DBus.Error.ServiceUnknown");
    EXPECT_LT(outcome.elapsed_ms, 500);
    EXPECT_TRUE(sim_->records().empty()) << "the bus refuses the call before it reaches anybody";
    EXPECT_EQ(get_model().string_arg(), "QTR58") << "other daemons stay";

    sim_->set_absent(kSdk, false);
    EXPECT_EQ(caller_->call(kSdk, kIfFirmware, "version", RawBusCaller::str("korvex-sdk")).string_arg(), "5.3.2");
}

TEST_F(SimulatorRulesTest, OnlyGatewayNamesCanBeAbsent) {
    EXPECT_THROW(sim_->set_absent("com.korvex-labs.sim", true), std::runtime_error);
    EXPECT_THROW(sim_->set_absent("org.freedesktop.DBus", true), std::runtime_error);
}

TEST_F(SimulatorRulesTest, TimesLimitsARuleToTheNextCalls) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","member":"getModel","mode":"error","times":2})");
    EXPECT_EQ(get_model().error_name, kInjectedError);
    EXPECT_EQ(do_system("true").int_arg(), 0) << "calls the rule does not match do not count";
    EXPECT_EQ(get_model().error_name, kInjectedError);
    EXPECT_EQ(get_model().string_arg(), "QTR58");
}

TEST_F(SimulatorRulesTest, TheMostSpecificRuleWins) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","mode":"error"})");
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","interface":"com.KorvexLabs.platform.admin",)"
                   R"("mode":"noarg"})");
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","member":"getModel","mode":"default"})");

    EXPECT_EQ(get_model().string_arg(), "QTR58");
    EXPECT_EQ(do_system("true").signature, "") << "interface rule";
    EXPECT_EQ(caller_->call(kPlatform, kIfNet, "getip", RawBusCaller::str("")).error_name, kInjectedError);
}

TEST_F(SimulatorRulesTest, ANewRuleForTheSameCallReplacesTheOld) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","member":"getModel","mode":"error"})");
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","member":"getModel","mode":"values",)"
                   R"("signature":"s","values":["QTR60"]})");
    EXPECT_EQ(get_model().string_arg(), "QTR60");
}

TEST_F(SimulatorRulesTest, OnlyTheDefaultModeChangesSettings) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","member":"set","mode":"noarg"})");
    caller_->call(kPlatform, kIfNvram, "set", [](DBusMessage *message) {
        const char *key = "SSID1";
        const char *value = "ignored";
        dbus_message_append_args(message, DBUS_TYPE_STRING, &key, DBUS_TYPE_STRING, &value, DBUS_TYPE_INVALID);
    });
    EXPECT_EQ(sim_->nvram("SSID1"), "Korvex-QTR58-3457");
}

TEST_F(SimulatorRulesTest, ResetDropsRulesRecordsAndAbsence) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","mode":"error"})");
    sim_->set_absent(kApp, true);
    get_model();
    ASSERT_EQ(sim_->records().size(), 1u);

    sim_->reset();
    EXPECT_TRUE(sim_->records().empty());
    EXPECT_EQ(get_model().string_arg(), "QTR58");
    EXPECT_EQ(caller_->call(kApp, kIfApp, "enablelock", RawBusCaller::str("0")).string_arg(), "ok");
}

}  // namespace
}  // namespace korvex::test
