// The call primitives and signals against the simulator on a private bus, driven directly
// (no web server): exact calls on the bus, return values, failure values and log lines.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "dbus/connection.h"
#include "dbus/peer_catalog.h"
#include "dbus/primitives.h"
#include "dbus/signals.h"
#include "tests/bus/fake_server.h"
#include "tests/bus/simulator_bus.h"
#include "tests/support/bus_env.h"
#include "tests/support/sim_client.h"

namespace {

using korvex::test::BusEnv;
using korvex::test::FakeServer;
using korvex::test::SimClient;
using korvex::test::SimRecord;
using korvex::test::StderrCapture;
namespace peer = korvex::peer;

class Primitives : public korvex::test::WithSimulatorBus<> {
protected:
    void SetUp() override {
        sim_->reset();
        r_ = server_->new_request();
    }

    static std::string own_path() {
        return std::string(peer::kObjectPathPrefix) + "/" + std::to_string(static_cast<int>(gettid()));
    }

    request_rec *r_ = nullptr;
};

using Args = std::vector<std::string>;

TEST_F(Primitives, StrRetIntSendsOneCallOnTheThreadsPath) {
    EXPECT_EQ(apache_dbus_send_str_ret_int(r_, "cp /dev/mtd4 /media/systeminfo", &peer::kDoSystem3s), 0);
    auto records = sim_->records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].type, "method_call");
    EXPECT_EQ(records[0].destination, "com.korvex-labs.www.platform");
    EXPECT_EQ(records[0].interface, "com.KorvexLabs.platform.admin");
    EXPECT_EQ(records[0].member, "doSystem");
    EXPECT_EQ(records[0].path, own_path());
    EXPECT_EQ(records[0].args, (Args{"s:cp /dev/mtd4 /media/systeminfo"}));
}

TEST_F(Primitives, SilentDaemonGivesMinusOneAfterTheTimeout) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","member":"doSystem","mode":"silent"})");
    const DbusCallSpec quick{peer::kPlatform, peer::kIfAdmin, "doSystem", 400};
    StderrCapture log;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(apache_dbus_send_str_ret_int(r_, "true", &quick), -1);
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(380));
    EXPECT_LT(waited, std::chrono::milliseconds(2000));
    EXPECT_NE(log.text().find("No reply\n"), std::string::npos);
}

TEST_F(Primitives, IntegerRepliesKeepTheirBits) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.app","member":"resetConfig","mode":"values","signature":"i","values":[-5]})");
    EXPECT_EQ(apache_dbus_send_int_ret_int(r_, 1, &peer::kAppResetConfig), -5);
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.app","member":"resetConfig","mode":"values","signature":"u","values":[4294967294]})");
    EXPECT_EQ(apache_dbus_send_int_ret_int(r_, 1, &peer::kAppResetConfig), -2);
    auto records = sim_->records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].args, (Args{"i:1"}));
}

TEST_F(Primitives, WrongTypedFirstArgumentCountsAsNoArgument) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","mode":"wrongtype"})");
    StderrCapture log;
    EXPECT_EQ(apache_dbus_send_str_ret_int(r_, "true", &peer::kDoSystem3s), -1);
    EXPECT_STREQ(apache_dbus_get_nvram(r_, "SSID1", peer::kPlatform, peer::kIfNvram), "(null)");
    EXPECT_EQ(apache_dbus_send_str_ret_str(r_, "ap", &peer::kWifiModeGetMd5), nullptr);
    EXPECT_NE(log.text().find("Message has no arguments!\n"), std::string::npos);
}

TEST_F(Primitives, GetNvramWithoutArgumentGivesNullText) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","member":"get","mode":"noarg"})");
    EXPECT_STREQ(apache_dbus_get_nvram(r_, "SSID1", peer::kPlatform, peer::kIfNvram), "(null)");
    EXPECT_STREQ(korvex::string_message(r_, "getModel", peer::kGetModel), "QTR58") << "other members unaffected";
}

TEST_F(Primitives, StrRetStrWithoutArgumentGivesNullAndLogsIt) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","member":"getmd5","mode":"noarg"})");
    StderrCapture log;
    EXPECT_EQ(apache_dbus_send_str_ret_str(r_, "ap", &peer::kWifiModeGetMd5), nullptr);
    EXPECT_NE(log.text().find("retStr: (null)\n"), std::string::npos);
}

TEST_F(Primitives, NvramSetGetCommitRoundTrip) {
    EXPECT_STREQ(korvex::nvram_set(r_, "SSID1", "Attic"), "Attic");
    EXPECT_STREQ(korvex::nvram_get(r_, "SSID1"), "Attic");
    EXPECT_NE(sim_->nvram_committed("SSID1").value_or(""), "Attic");
    EXPECT_EQ(korvex::nvram_commit(r_), 0);
    EXPECT_EQ(sim_->nvram_committed("SSID1").value_or(""), "Attic");
    auto records = sim_->records();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].member, "set");
    EXPECT_EQ(records[0].args, (Args{"s:SSID1", "s:Attic"}));
    EXPECT_EQ(records[1].member, "get");
    EXPECT_EQ(records[2].member, "commit");
    EXPECT_EQ(records[2].args, (Args{"s:commit"}));
}

TEST_F(Primitives, CommitAgainstAMissingDaemonGivesZero) {
    sim_->set_absent(peer::kPlatform, true);
    StderrCapture log;
    EXPECT_EQ(korvex::nvram_commit(r_), 0);
    EXPECT_NE(log.text().find("No reply, dest: com.korvex-labs.www.platform, ifac: com.KorvexLabs.platform.nvram, "
                              "cmd: commit\n"),
              std::string::npos);
    sim_->set_absent(peer::kPlatform, false);
}

TEST_F(Primitives, SameDescriptorGivesIdenticalCallsButTheArgument) {
    const DbusCallSpec spec = peer::kDoSystem3s;
    apache_dbus_send_str_ret_int(r_, "mkdir /media/sda1/QTR58", &spec);
    apache_dbus_send_str_ret_int(r_, "mkdir /media/mmcblk0p1/QTR58", &spec);
    auto records = sim_->records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].destination, records[1].destination);
    EXPECT_EQ(records[0].interface, records[1].interface);
    EXPECT_EQ(records[0].member, records[1].member);
    EXPECT_EQ(records[0].path, records[1].path);
    EXPECT_NE(records[0].args, records[1].args);
}

TEST_F(Primitives, StringMessageErrorReplyLogsTheCall) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.sdk","mode":"error"})");
    StderrCapture log;
    EXPECT_EQ(korvex::string_message(r_, "{}", peer::kSdkJsonCommand), nullptr);
    EXPECT_NE(log.text().find("No reply, str: {}, dest: com.korvex-labs.www.sdk, ifac: com.KorvexLabs.json.command, "
                              "command: command\n"),
              std::string::npos);
}

TEST_F(Primitives, TextThatIsNotUtf8NeverReachesTheBus) {
    StderrCapture log;
    EXPECT_EQ(korvex::string_message(r_, "\xff\xfe", peer::kSdkJsonCommand), nullptr);
    EXPECT_EQ(apache_dbus_send_str_ret_int(r_, nullptr, &peer::kDoSystem3s), -1);
    EXPECT_TRUE(sim_->records().empty());
    EXPECT_NE(log.text().find("dbus_message_append_args fail\n"), std::string::npos);
}

TEST_F(Primitives, LedControlSendsNameAndUnsigned) {
    EXPECT_EQ(dbus_control_LED(r_, "LOGO", 1, peer::kSdk, peer::kIfLed), 0);
    auto records = sim_->records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].interface, "com.KorvexLabs.control.LED");
    EXPECT_EQ(records[0].member, "command");
    EXPECT_EQ(records[0].args, (Args{"s:LOGO", "u:1"}));
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.sdk","mode":"silent"})");
    EXPECT_EQ(dbus_control_LED(r_, "LOGO", 1, peer::kSdk, peer::kIfLed), 0);
}

TEST_F(Primitives, SignalsCarryTheirValueAndNoDestination) {
    EXPECT_EQ(dbus_signal_update_alive(r_, 1), 0);
    EXPECT_EQ(dbus_signal_rewrite_entire_flash(r_, ""), 0);
    auto records = sim_->wait_for_records(2, 3000);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].type, "signal");
    EXPECT_EQ(records[0].destination, "");
    EXPECT_EQ(records[0].interface, "com.KorvexLabs.signal.update");
    EXPECT_EQ(records[0].member, "alive");
    EXPECT_EQ(records[0].path, own_path());
    EXPECT_EQ(records[0].args, (Args{"i:1"}));
    EXPECT_EQ(records[1].member, "rewriteEntire");
    EXPECT_EQ(records[1].args, (Args{"s:"}));
}

TEST_F(Primitives, LateRepliesAreDroppedNotKept) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","member":"doSystem","mode":"default","delay_ms":300})");
    const DbusCallSpec quick{peer::kPlatform, peer::kIfAdmin, "doSystem", 100};
    const unsigned long before = korvex::dbus::dropped_message_count();
    EXPECT_EQ(apache_dbus_send_str_ret_int(r_, "true", &quick), -1);
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    // The next call on the connection takes the late reply off the queue.
    EXPECT_STREQ(korvex::string_message(r_, "getModel", peer::kGetModel), "QTR58");
    EXPECT_GE(korvex::dbus::dropped_message_count() - before, 1u);
}

TEST_F(Primitives, EveryServingThreadGetsItsOwnConnectionAndPath) {
    std::string other_path;
    std::thread worker([&] {
        request_rec *r = server_->new_request();
        EXPECT_EQ(apache_dbus_send_str_ret_int(r, "true", &peer::kDoSystem3s), 0);
        other_path = std::string(peer::kObjectPathPrefix) + "/" + std::to_string(static_cast<int>(gettid()));
    });
    worker.join();
    EXPECT_EQ(apache_dbus_send_str_ret_int(r_, "true", &peer::kDoSystem3s), 0);
    auto records = sim_->records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].path, other_path);
    EXPECT_EQ(records[1].path, own_path());
    EXPECT_NE(records[0].sender, records[1].sender);
}

// Runs last: takes the bus away under a live connection and brings it back.
TEST_F(Primitives, ZzBusRestartFailsCallsUntilTheBusIsBack) {
    EXPECT_EQ(apache_dbus_send_str_ret_int(r_, "true", &peer::kDoSystem3s), 0);
    bus_->stop();
    {
        StderrCapture log;
        EXPECT_EQ(apache_dbus_send_str_ret_int(r_, "true", &peer::kDoSystem3s), -1);
        EXPECT_EQ(korvex::nvram_commit(r_), -1);
        EXPECT_EQ(korvex::string_message(r_, "getModel", peer::kGetModel), nullptr);
        EXPECT_EQ(dbus_signal_update_alive(r_, 1), -1);
        const std::string text = log.text();
        EXPECT_NE(text.find("dbusData is NULL\n"), std::string::npos);
        EXPECT_NE(text.find("Connection Error ("), std::string::npos);
    }
    bus_->start();
    delete sim_;
    sim_ = new SimClient(bus_->address());
    r_ = server_->new_request();
    EXPECT_EQ(apache_dbus_send_str_ret_int(r_, "true", &peer::kDoSystem3s), 0);
    auto records = sim_->records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].path, own_path());
}

}  // namespace
