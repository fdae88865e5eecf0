// Services of the gateway itself through Apache and the bus: the Z-Wave daemon's radio module
// (restarted while the watchdog looks away), the FTP and Telnet daemons, the cloud socket
// settings and their commit with the "icloud" restart, and the test-mode flag.
#include <algorithm>
#include <ostream>
#include <string>

#include "tests/support/command_test.h"

namespace korvex::test {
namespace {

const std::string kDebuger = "com.korvex-labs.www.debuger";
const std::string kSuspendSupervision = "com.korvex-labs.www.debuger com.KorvexLabs.watchdog stopTracking(i:1)";
const std::string kResumeSupervision = "com.korvex-labs.www.debuger com.KorvexLabs.watchdog stopTracking(i:0)";
const std::string kRestartCloud = "com.korvex-labs.www.platform com.KorvexLabs.platform.admin restart(s:icloud)";

// The calls of a module change whose stored value is `value` and whose read-back picks `device`.
Calls zwave_calls(const std::string &value, const std::string &device) {
    return Calls{set_call("zwaveModule", value),
                 get_call("zwaveModule"),
                 kSuspendSupervision,
                 shell_call("killall korvex-sdk"),
                 shell_call("korvex-sdk -u " + device + " &"),
                 kCommit,
                 kResumeSupervision};
}

class LocalServicesTest : public CommandTest {
protected:
    void read_back_as(const std::string &text) {
        nvram_rule("get", R"("mode":"values","signature":"s","values":[")" + text + R"("])");
    }
};

// ---- Z-Wave radio module ----

TEST_F(LocalServicesTest, SetzwavemoduleUsbRestartsTheSdkOnTheStickWhileSupervisionIsSuspended) {
    EXPECT_EQ(run("setzwavemodule=usb"), "usb<br>setzwavemodule done");
    EXPECT_EQ(calls(), zwave_calls("usb", "/dev/ttyACM0"));
    expect_stored("zwaveModule", "usb", "usb");
}

struct SerialModule {
    const char *command;  // test name
    const char *query_value;
    const char *value;
};
void PrintTo(const SerialModule &p, std::ostream *os) { *os << p.command; }

class ZwaveSerialTest : public LocalServicesTest, public ::testing::WithParamInterface<SerialModule> {};

// Only "usb", byte for byte, selects the stick; everything else runs on the serial module.
TEST_P(ZwaveSerialTest, EveryOtherValueRestartsTheSdkOnTheSerialModule) {
    sim().nvram_put("zwaveModule", "usb", true);
    EXPECT_EQ(run(std::string("setzwavemodule=") + GetParam().query_value),
              std::string(GetParam().value) + "<br>setzwavemodule done");
    EXPECT_EQ(calls(), zwave_calls(GetParam().value, "/dev/ttyS0"));
    expect_stored("zwaveModule", GetParam().value, GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(Values, ZwaveSerialTest,
                         ::testing::Values(SerialModule{"upper_case", "USB", "USB"},
                                           SerialModule{"serial", "serial", "serial"},
                                           SerialModule{"trailing_blank", "usb%20", "usb "},
                                           SerialModule{"longer", "usb2", "usb2"},
                                           SerialModule{"shorter", "us", "us"},
                                           SerialModule{"empty", "", ""}),
                         CommandName());

// The module is chosen, and printed, by what the platform reads back, not by the value given.
TEST_F(LocalServicesTest, SetzwavemoduleFollowsTheReadBackValue) {
    read_back_as("usb");
    EXPECT_EQ(run("setzwavemodule=serial"), "usb<br>setzwavemodule done");
    EXPECT_EQ(calls(), zwave_calls("serial", "/dev/ttyACM0"));
    expect_stored("zwaveModule", "serial", "serial");
}

TEST_F(LocalServicesTest, SetzwavemoduleReadBackOfAnotherModuleSelectsTheSerialModule) {
    read_back_as("USB");
    EXPECT_EQ(run("setzwavemodule=usb"), "USB<br>setzwavemodule done");
    EXPECT_EQ(calls(), zwave_calls("usb", "/dev/ttyS0"));
    expect_stored("zwaveModule", "usb", "usb");
}

TEST_F(LocalServicesTest, SetzwavemoduleWithoutReadBackUsesTheSerialModuleAndPrintsNull) {
    nvram_rule("get", R"("mode":"error")");
    EXPECT_EQ(run("setzwavemodule=usb"), "(null)<br>setzwavemodule done");
    EXPECT_EQ(calls(), zwave_calls("usb", "/dev/ttyS0"));
    expect_stored("zwaveModule", "usb", "usb");
}

TEST_F(LocalServicesTest, SetzwavemoduleWithoutTheWatchdogStillRestartsTheSdk) {
    sim().set_absent(kDebuger, true);
    EXPECT_EQ(run("setzwavemodule=usb"), "usb<br>setzwavemodule done");
    EXPECT_EQ(calls(), (Calls{set_call("zwaveModule", "usb"), get_call("zwaveModule"),
                              shell_call("killall korvex-sdk"), shell_call("korvex-sdk -u /dev/ttyACM0 &"),
                              kCommit}));
    expect_stored("zwaveModule", "usb", "usb");
}

TEST_F(LocalServicesTest, SetzwavemoduleIsDoneWhenEveryCallIsRefused) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.debuger","mode":"error"})");
    platform_rule("com.KorvexLabs.platform.admin", "doSystem", R"("mode":"error")");
    nvram_rule("commit", R"("mode":"error")");
    EXPECT_EQ(run("setzwavemodule=usb"), "usb<br>setzwavemodule done");
    EXPECT_EQ(calls(), zwave_calls("usb", "/dev/ttyACM0"));
    expect_stored("zwaveModule", "usb", "serial");
}

// Each of the two daemon lines waits at most 5 s for the platform; a line that goes
// unanswered holds up the command but drops none of its later calls.
TEST_F(LocalServicesTest, SetzwavemoduleWaitsFiveSecondsForTheStopLine) {
    platform_rule("com.KorvexLabs.platform.admin", "doSystem", R"("mode":"silent","times":1)");
    EXPECT_EQ(run("setzwavemodule=usb"), "usb<br>setzwavemodule done");
    EXPECT_GE(elapsed_ms(), 4900);
    EXPECT_LT(elapsed_ms(), 6500);
    EXPECT_EQ(calls(), zwave_calls("usb", "/dev/ttyACM0"));
}

TEST_F(LocalServicesTest, SetzwavemoduleWaitsFiveSecondsForTheStartLine) {
    // The narrower rule answers the stop line; once used up, the wider one leaves the start
    // line without an answer.
    platform_rule("com.KorvexLabs.platform.admin", "doSystem", R"("mode":"default","times":1)");
    sim().set_rule(R"({"destination":"com.korvex-labs.www.platform","member":"doSystem","mode":"silent"})");
    EXPECT_EQ(run("setzwavemodule=usb"), "usb<br>setzwavemodule done");
    EXPECT_GE(elapsed_ms(), 4900);
    EXPECT_LT(elapsed_ms(), 6500);
    EXPECT_EQ(calls(), zwave_calls("usb", "/dev/ttyACM0"));
}

// Both watchdog calls change its state, so both are sent and each gets its 1 s.
TEST_F(LocalServicesTest, SetzwavemoduleWaitsOneSecondForEachWatchdogCall) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.debuger","mode":"silent"})");
    EXPECT_EQ(run("setzwavemodule=usb"), "usb<br>setzwavemodule done");
    EXPECT_GE(elapsed_ms(), 1900);
    EXPECT_LT(elapsed_ms(), 2900);
    EXPECT_EQ(calls(), zwave_calls("usb", "/dev/ttyACM0"));
}

// ---- FTP daemon: stored and committed whatever the value; "1" starts, "0" stops ----

TEST_F(LocalServicesTest, EnableFtpdOneStoresCommitsAndStartsTheDaemon) {
    EXPECT_EQ(run("enableFtpd=1"), "1<br>enableFtpd done");
    EXPECT_EQ(calls(), (Calls{set_call("enableFtpd", "1"), get_call("enableFtpd"), kCommit,
                              shell_call("ftpd.sh &")}));
    expect_stored("enableFtpd", "1", "1");
}

TEST_F(LocalServicesTest, EnableFtpdZeroStoresCommitsAndStopsTheDaemon) {
    sim().nvram_put("enableFtpd", "1", true);
    EXPECT_EQ(run("enableFtpd=0"), "0<br>enableFtpd done");
    EXPECT_EQ(calls(), (Calls{set_call("enableFtpd", "0"), get_call("enableFtpd"), kCommit,
                              shell_call("killall inetd")}));
    expect_stored("enableFtpd", "0", "0");
}

struct FtpdValue {
    const char *command;  // test name
    const char *query_value;
    const char *value;
};
void PrintTo(const FtpdValue &p, std::ostream *os) { *os << p.command; }

class FtpdOtherValueTest : public LocalServicesTest, public ::testing::WithParamInterface<FtpdValue> {};

TEST_P(FtpdOtherValueTest, IsStoredAndCommittedButFailsWithoutSwitching) {
    EXPECT_EQ(run(std::string("enableFtpd=") + GetParam().query_value),
              std::string(GetParam().value) + "<br>enableFtpd failed");
    EXPECT_EQ(calls(), (Calls{set_call("enableFtpd", GetParam().value), get_call("enableFtpd"), kCommit}));
    expect_stored("enableFtpd", GetParam().value, GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(Values, FtpdOtherValueTest,
                         ::testing::Values(FtpdValue{"yes", "yes", "yes"}, FtpdValue{"empty", "", ""},
                                           FtpdValue{"leading_zero", "01", "01"},
                                           FtpdValue{"trailing_blank", "1%20", "1 "},
                                           FtpdValue{"two", "2", "2"}),
                         CommandName());

TEST_F(LocalServicesTest, EnableFtpdSwitchesByTheReadBackValue) {
    read_back_as("0");
    EXPECT_EQ(run("enableFtpd=1"), "0<br>enableFtpd done");
    EXPECT_EQ(calls(), (Calls{set_call("enableFtpd", "1"), get_call("enableFtpd"), kCommit,
                              shell_call("killall inetd")}));
    expect_stored("enableFtpd", "1", "1");
}

TEST_F(LocalServicesTest, EnableFtpdWithoutReadBackFailsAndPrintsNull) {
    nvram_rule("get", R"("mode":"error")");
    EXPECT_EQ(run("enableFtpd=1"), "(null)<br>enableFtpd failed");
    EXPECT_EQ(calls(), (Calls{set_call("enableFtpd", "1"), get_call("enableFtpd"), kCommit}));
    expect_stored("enableFtpd", "1", "1");
}

TEST_F(LocalServicesTest, EnableFtpdIsDoneWhenTheShellLineIsRefused) {
    platform_rule("com.KorvexLabs.platform.admin", "doSystem", R"("mode":"error")");
    EXPECT_EQ(run("enableFtpd=1"), "1<br>enableFtpd done");
    EXPECT_EQ(calls(), (Calls{set_call("enableFtpd", "1"), get_call("enableFtpd"), kCommit,
                              shell_call("ftpd.sh &")}));
}

// ---- Telnet daemon: switched only, nothing stored ----

TEST_F(LocalServicesTest, EnableTelnetdOneStartsTheDaemon) {
    EXPECT_EQ(run("enableTelnetd=1"), "enableTelnetd done");
    EXPECT_EQ(calls(), Calls{shell_call("telnetd &")});
}

TEST_F(LocalServicesTest, EnableTelnetdZeroStopsTheDaemon) {
    EXPECT_EQ(run("enableTelnetd=0"), "enableTelnetd done");
    EXPECT_EQ(calls(), Calls{shell_call("killall telnetd")});
}

TEST_F(LocalServicesTest, EnableTelnetdIsDoneWhenTheShellLineIsRefused) {
    platform_rule("com.KorvexLabs.platform.admin", "doSystem", R"("mode":"error")");
    EXPECT_EQ(run("enableTelnetd=1"), "enableTelnetd done");
    EXPECT_EQ(calls(), Calls{shell_call("telnetd &")});
}

TEST_F(LocalServicesTest, EnableTelnetdRefusesEveryOtherValueWithoutACall) {
    EXPECT_EQ(run("enableTelnetd=2"), "enableTelnetd failed");
    EXPECT_EQ(run("enableTelnetd="), "enableTelnetd failed");
    EXPECT_EQ(run("enableTelnetd=on"), "enableTelnetd failed");
    EXPECT_EQ(run("enableTelnetd=1%20"), "enableTelnetd failed");
    EXPECT_EQ(run("enableTelnetd=01"), "enableTelnetd failed");
    EXPECT_EQ(calls(), Calls{});
}

// ---- Cloud socket settings and the test-mode flag: their setters are in nvram_setter_test.cpp ----

// The other getters' factory values are in nvram_getter_test.cpp.
TEST_F(LocalServicesTest, FactorySocketAddress) {
    EXPECT_EQ(run("getsocketaddr="), "203.0.113.25<br>getsocketaddr done");
}

TEST_F(LocalServicesTest, GetzwavemodulePrintsTheModuleJustSet) {
    EXPECT_EQ(run("setzwavemodule=usb&getzwavemodule="), "usb<br>setzwavemodule doneusb<br>getzwavemodule done");
}

// ---- Cloud socket address: printed as stored, then as resolved when that differs ----

TEST_F(LocalServicesTest, GetsocketaddrPrintsANumericAddressOnce) {
    sim().nvram_put("socketAddr", "10.0.0.5", true);
    EXPECT_EQ(run("getsocketaddr="), "10.0.0.5<br>getsocketaddr done");
    EXPECT_EQ(calls(), Calls{get_call("socketAddr")});
}

TEST_F(LocalServicesTest, GetsocketaddrPrintsAHostNameThenItsAddress) {
    sim().nvram_put("socketAddr", "localhost", true);
    EXPECT_EQ(run("getsocketaddr="), "localhost<br>127.0.0.1<br>getsocketaddr done");
    EXPECT_EQ(calls(), Calls{get_call("socketAddr")});
}

TEST_F(LocalServicesTest, GetsocketaddrPrintsAnUnresolvableNameOnce) {
    sim().nvram_put("socketAddr", "no-such-host.invalid", true);
    EXPECT_EQ(run("getsocketaddr="), "no-such-host.invalid<br>getsocketaddr done");
    EXPECT_EQ(calls(), Calls{get_call("socketAddr")});
}

TEST_F(LocalServicesTest, GetsocketaddrPrintsAnEmptyAddressOnce) {
    sim().nvram_put("socketAddr", "", true);
    EXPECT_EQ(run("getsocketaddr="), "<br>getsocketaddr done");
}

TEST_F(LocalServicesTest, GetsocketaddrWithoutReplyPrintsNullOnce) {
    nvram_rule("get", R"("mode":"error")");
    EXPECT_EQ(run("getsocketaddr="), "(null)<br>getsocketaddr done");
    EXPECT_EQ(calls(), Calls{get_call("socketAddr")});
}

TEST_F(LocalServicesTest, GetsocketaddrResolvesTheAddressJustSet) {
    EXPECT_EQ(run("setsocketaddr=localhost&getsocketaddr="),
              "localhost<br>setsocketaddr donelocalhost<br>127.0.0.1<br>getsocketaddr done");
    EXPECT_EQ(calls(), (Calls{set_call("socketAddr", "localhost"), kCommit, get_call("socketAddr"),
                              get_call("socketAddr")}));
}

// ---- Commit of the socket settings and the cloud restart ----

TEST_F(LocalServicesTest, SocketcommitCommitsTheSecuritySetting) {
    EXPECT_EQ(run("setsocketsec=2"), "2<br>setsocketsec done");
    expect_stored("socketSec", "2", "1");
    EXPECT_EQ(run("socketcommit="), "socketcommit done");
    expect_stored("socketSec", "2", "2");
    EXPECT_EQ(calls(), (Calls{set_call("socketSec", "2"), get_call("socketSec"), kCommit, kRestartCloud}));
}

}  // namespace
}  // namespace korvex::test
