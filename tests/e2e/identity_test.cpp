// Device identity and housekeeping through Apache and the bus: host name, customer name and
// language (stored, committed, and for two of them made the server's host name), the model,
// software version and uptime, the reboot run by the server itself, the configuration reset
// and reading any nvram key.
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <fstream>
#include <future>
#include <ostream>
#include <string>
#include <thread>

#include "tests/support/command_test.h"

namespace korvex::test {
namespace {

const std::string kPlatform = "com.korvex-labs.www.platform";
const std::string kPlatformReboot = "com.korvex-labs.www.platform com.KorvexLabs.platform.admin reboot(i:3)";
const std::string kGetModel = "com.korvex-labs.www.platform com.KorvexLabs.platform.admin getModel(s:getModel)";
const std::string kSdk = "com.korvex-labs.www.sdk";
const std::string kSdkVersion = "com.korvex-labs.www.sdk com.KorvexLabs.firmware version(s:korvex-sdk)";
const std::string kSdkDate = "com.korvex-labs.www.sdk com.KorvexLabs.firmware date(s:korvex-sdk)";
const std::string kLogoLedOn = "com.korvex-labs.www.sdk com.KorvexLabs.control.LED command(s:LOGO, u:1)";
const std::string kRebootRan = "reboot \n";
// Why checks of the host name itself need the server's private UTS namespace.
const char kSharedHostName[] = "the server shares this machine's host name (no isolation)";

std::string reset_call(const std::string &value) {
    return kPlatform + " com.KorvexLabs.platform.config reset(s:" + value + ")";
}

// Seconds since boot as the kernel reports them, with their fraction.
double machine_uptime() {
    std::ifstream in("/proc/uptime");
    double seconds = -1;
    in >> seconds;
    return seconds;
}

class IdentityTest : public CommandTest {
protected:
};

// The host-name commands change the host name of whatever UTS namespace the server runs in.
// With isolation that is the server's own; without it, a privileged server would rename the
// machine, so these commands are only sent by an unprivileged harness.
class HostNameTest : public IdentityTest {
protected:
    void SetUp() override {
        IdentityTest::SetUp();
        if (!env().has_isolation() && geteuid() == 0) {
            GTEST_SKIP() << "without isolation a privileged server would rename this machine";
        }
    }
    // Gives the server a host name that no command of the test uses, so that a change shows.
    void start_from_host_name(const std::string &name) {
        ASSERT_EQ(run("sethostname=" + name), "sethostname done");
        ASSERT_EQ(env().server_hostname(), name);
        sim().clear_records();
    }
};

// ---- Host name ----

TEST_F(HostNameTest, SethostnameStoresAndCommitsAndPrintsNothing) {
    EXPECT_EQ(run("sethostname=gw-7"), "sethostname done");
    EXPECT_EQ(calls(), (Calls{set_call("HostName", "gw-7"), kCommit}));
    expect_stored("HostName", "gw-7", "gw-7");
}

TEST_F(HostNameTest, SethostnameMakesTheValueTheServersHostName) {
    if (!env().has_isolation()) GTEST_SKIP() << kSharedHostName;
    start_from_host_name("before-gw-7");
    EXPECT_EQ(run("sethostname=gw-7"), "sethostname done");
    EXPECT_EQ(env().server_hostname(), "gw-7");
}

TEST_F(HostNameTest, SethostnameSetsTheHostNameEvenWhenThePlatformRefusesTheSetting) {
    if (!env().has_isolation()) GTEST_SKIP() << kSharedHostName;
    start_from_host_name("before-gw-9");
    nvram_rule("set", R"("mode":"error")");
    nvram_rule("commit", R"("mode":"error")");
    EXPECT_EQ(run("sethostname=gw-9"), "sethostname done");
    EXPECT_EQ(calls(), (Calls{set_call("HostName", "gw-9"), kCommit}));
    EXPECT_EQ(env().server_hostname(), "gw-9");
    expect_stored("HostName", "before-gw-9", "before-gw-9");
}

// The kernel takes at most 64 bytes: a longer name is stored but the host name stays, and
// the command is done all the same.
TEST_F(HostNameTest, SethostnameWithANameTheKernelRefusesIsStoredAndDone) {
    if (!env().has_isolation()) GTEST_SKIP() << kSharedHostName;
    start_from_host_name("before-long");
    const std::string longest(64, 'h');
    EXPECT_EQ(run("sethostname=" + longest), "sethostname done");
    EXPECT_EQ(env().server_hostname(), longest);

    const std::string too_long(65, 'k');
    EXPECT_EQ(run("sethostname=" + too_long), "sethostname done");
    EXPECT_EQ(env().server_hostname(), longest);
    expect_stored("HostName", too_long, too_long);
}

TEST_F(HostNameTest, GethostnamePrintsTheNameJustSet) {
    EXPECT_EQ(run("sethostname=gw-7&gethostname="), "sethostname donegw-7<br>gethostname done");
    EXPECT_EQ(calls(), (Calls{set_call("HostName", "gw-7"), kCommit, get_call("HostName")}));
}

// ---- Language: stored, committed, and the host name too ----

TEST_F(HostNameTest, SetlanguageStoresAndCommitsAndPrintsNothing) {
    EXPECT_EQ(run("setlanguage=en"), "setlanguage done");
    EXPECT_EQ(calls(), (Calls{set_call("language", "en"), kCommit}));
    expect_stored("language", "en", "en");
    expect_stored("HostName", "korvex-gateway", "korvex-gateway");
}

TEST_F(HostNameTest, SetlanguageMakesTheLanguageTheServersHostName) {
    if (!env().has_isolation()) GTEST_SKIP() << kSharedHostName;
    start_from_host_name("before-en");
    EXPECT_EQ(run("setlanguage=en"), "setlanguage done");
    EXPECT_EQ(env().server_hostname(), "en");
}

TEST_F(HostNameTest, GetlanguagePrintsTheLanguageJustSet) {
    EXPECT_EQ(run("setlanguage=en&getlanguage="), "setlanguage doneen<br>getlanguage done");
    EXPECT_EQ(calls(), (Calls{set_call("language", "en"), kCommit, get_call("language")}));
}

TEST_F(HostNameTest, TheHostNameFollowsTheLastOfTheTwoCommands) {
    if (!env().has_isolation()) GTEST_SKIP() << kSharedHostName;
    start_from_host_name("before-both");
    EXPECT_EQ(run("sethostname=gw-7&setlanguage=en"), "sethostname donesetlanguage done");
    EXPECT_EQ(env().server_hostname(), "en");
    EXPECT_EQ(run("setlanguage=de&sethostname=gw-8"), "setlanguage donesethostname done");
    EXPECT_EQ(env().server_hostname(), "gw-8");
    EXPECT_EQ(calls(), (Calls{set_call("HostName", "gw-7"), kCommit, set_call("language", "en"), kCommit,
                              set_call("language", "de"), kCommit, set_call("HostName", "gw-8"), kCommit}));
    expect_stored("HostName", "gw-8", "gw-8");
    expect_stored("language", "de", "de");
}

// ---- Customer name: stored, committed, then the platform restarts the gateway ----

TEST_F(IdentityTest, SetcustomernameStoresCommitsThenAsksThePlatformToReboot) {
    env().clear_stub_log();
    EXPECT_EQ(run("setcustomername=Acme"), "setcustomername done");
    EXPECT_EQ(calls(), (Calls{set_call("customerName", "Acme"), kCommit, kPlatformReboot}));
    expect_stored("customerName", "Acme", "Acme");
    // The platform restarts the gateway; the server does not run "reboot" itself.
    EXPECT_EQ(env().stub_log(), "");
}

TEST_F(IdentityTest, SetcustomernameIsDoneWhenTheRebootIsRefused) {
    rule(kPlatform, "com.KorvexLabs.platform.admin", "reboot", R"("mode":"error")");
    EXPECT_EQ(run("setcustomername=Acme"), "setcustomername done");
    EXPECT_EQ(calls(), (Calls{set_call("customerName", "Acme"), kCommit, kPlatformReboot}));
    expect_stored("customerName", "Acme", "Acme");
}

TEST_F(IdentityTest, SetcustomernameIsDoneWhenThePlatformAnswersNothingAtAll) {
    nvram_rule("set", R"("mode":"error")");
    nvram_rule("commit", R"("mode":"error")");
    rule(kPlatform, "com.KorvexLabs.platform.admin", "reboot", R"("mode":"wrongtype")");
    EXPECT_EQ(run("setcustomername=Acme"), "setcustomername done");
    EXPECT_EQ(calls(), (Calls{set_call("customerName", "Acme"), kCommit, kPlatformReboot}));
    expect_stored("customerName", "Korvex", "Korvex");
}

// Its rules as a setter (value, empty value, replies) are in nvram_setter_test.cpp.

struct Customer {
    const char *command;  // test name
    const char *stored;
    const char *printed;
};
void PrintTo(const Customer &p, std::ostream *os) { *os << p.command; }

class CustomerNameTest : public IdentityTest, public ::testing::WithParamInterface<Customer> {};

// One customer is marked before the line break, every other one after it.
TEST_P(CustomerNameTest, GetcustomernameMarksTheName) {
    sim().nvram_put("customerName", GetParam().stored, true);
    EXPECT_EQ(run("getcustomername="), std::string(GetParam().printed) + "getcustomername done");
    EXPECT_EQ(calls(), Calls{get_call("customerName")});
}

INSTANTIATE_TEST_SUITE_P(
    Names, CustomerNameTest,
    ::testing::Values(Customer{"zentro", "Zentro", "Zentro m<br>"}, Customer{"acme", "Acme", "Acme<br> n"},
                      Customer{"lower_case_zentro", "zentro", "zentro<br> n"},
                      Customer{"zentro_with_blank", "Zentro ", "Zentro <br> n"},
                      Customer{"zentro_prefix", "Zentr", "Zentr<br> n"},
                      Customer{"zentro_longer", "Zentro2", "Zentro2<br> n"},
                      Customer{"factory", "Korvex", "Korvex<br> n"}, Customer{"empty", "", "<br> n"}),
    CommandName());

TEST_F(IdentityTest, GetcustomernameWithoutReplyPrintsNullUnmarked) {
    nvram_rule("get", R"("mode":"error")");
    EXPECT_EQ(run("getcustomername="), "(null)<br> ngetcustomername done");
    EXPECT_EQ(calls(), Calls{get_call("customerName")});
}

// ---- Model, software version, uptime ----

TEST_F(IdentityTest, GetplatformPrintsTheModel) {
    EXPECT_EQ(run("getplatform="), "QTR58<br>getplatform done");
    EXPECT_EQ(calls(), Calls{kGetModel});
}

TEST_F(IdentityTest, GetplatformPrintsWhatThePlatformNames) {
    rule(kPlatform, "com.KorvexLabs.platform.admin", "getModel", R"("mode":"values","signature":"s","values":["QTR60"])");
    EXPECT_EQ(run("getplatform=x"), "QTR60<br>getplatform done");
    EXPECT_EQ(calls(), Calls{kGetModel});
}

TEST_F(IdentityTest, GetplatformWithoutReplyPrintsNull) {
    rule(kPlatform, "com.KorvexLabs.platform.admin", "getModel", R"("mode":"error")");
    EXPECT_EQ(run("getplatform="), "(null)<br>getplatform done");
    EXPECT_EQ(calls(), Calls{kGetModel});
}

TEST_F(IdentityTest, GetswversionPrintsVersionThenDate) {
    EXPECT_EQ(run("getswversion="), "5.3.2<br>20261015<br>getswversion done");
    EXPECT_EQ(calls(), (Calls{kSdkVersion, kSdkDate}));
}

TEST_F(IdentityTest, GetswversionWithoutTheSdkPrintsTwoNulls) {
    sim().set_absent(kSdk, true);
    EXPECT_EQ(run("getswversion="), "(null)<br>(null)<br>getswversion done");
    EXPECT_EQ(calls(), Calls{});
}

TEST_F(IdentityTest, GetswversionPrintsEachAnswerInItsPlace) {
    rule(kSdk, "com.KorvexLabs.firmware", "version", R"("mode":"error")");
    rule(kSdk, "com.KorvexLabs.firmware", "date", R"("mode":"values","signature":"s","values":["19991231"])");
    EXPECT_EQ(run("getswversion="), "(null)<br>19991231<br>getswversion done");
    EXPECT_EQ(calls(), (Calls{kSdkVersion, kSdkDate}));
}

TEST_F(IdentityTest, UptimePrintsTheMachinesSecondsSinceBoot) {
    const double before = machine_uptime();
    const std::string body = run("uptime=");
    const double after = machine_uptime();
    ASSERT_GE(before, 0);
    const std::string suffix = "<br>uptime done";
    ASSERT_GT(body.size(), suffix.size()) << body;
    ASSERT_EQ(body.substr(body.size() - suffix.size()), suffix) << body;
    const std::string seconds = body.substr(0, body.size() - suffix.size());
    ASSERT_FALSE(seconds.empty());
    ASSERT_EQ(seconds.find_first_not_of("0123456789"), std::string::npos) << body;
    EXPECT_GE(std::stol(seconds), static_cast<long>(std::floor(before)) - 2) << body;
    EXPECT_LE(std::stol(seconds), static_cast<long>(std::ceil(after)) + 2) << body;
    EXPECT_EQ(calls(), Calls{});
}

TEST_F(IdentityTest, UptimeGrowsWithTime) {
    const std::string suffix = "<br>uptime done";
    const std::string first = run("uptime=");
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    const std::string second = run("uptime=");
    ASSERT_GT(first.size(), suffix.size());
    ASSERT_GT(second.size(), suffix.size());
    const long a = std::stol(first.substr(0, first.size() - suffix.size()));
    const long b = std::stol(second.substr(0, second.size() - suffix.size()));
    EXPECT_GE(b - a, 1) << first << " / " << second;
    EXPECT_LE(b - a, 3) << first << " / " << second;
}

// ---- Reboot: the logo LED first, then the server runs "reboot" itself ----

TEST_F(IdentityTest, RebootLightsTheLogoThenRunsRebootOnce) {
    env().clear_stub_log();
    EXPECT_EQ(run("reboot="), "reboot done");
    EXPECT_EQ(calls(), Calls{kLogoLedOn});
    EXPECT_EQ(env().stub_log(), kRebootRan);
}

TEST_F(IdentityTest, RebootRunsOnlyOnceTheLedHasAnswered) {
    env().clear_stub_log();
    rule(kSdk, "com.KorvexLabs.control.LED", "command", R"("mode":"default","delay_ms":800)");
    auto pending = std::async(std::launch::async, [this] { return run("reboot="); });
    EXPECT_EQ(calls(1), Calls{kLogoLedOn});
    // The LED answers 0.8 s after the call: until then nothing may have been run.
    EXPECT_EQ(env().stub_log(), "");
    EXPECT_EQ(pending.get(), "reboot done");
    EXPECT_GE(elapsed_ms(), 750);
    EXPECT_EQ(env().stub_log(), kRebootRan);
}

TEST_F(IdentityTest, RebootRunsWhenTheLedCallIsRefused) {
    env().clear_stub_log();
    rule(kSdk, "com.KorvexLabs.control.LED", "command", R"("mode":"error")");
    EXPECT_EQ(run("reboot="), "reboot done");
    EXPECT_EQ(calls(), Calls{kLogoLedOn});
    EXPECT_EQ(env().stub_log(), kRebootRan);
}

TEST_F(IdentityTest, RebootRunsWithoutTheSdk) {
    env().clear_stub_log();
    sim().set_absent(kSdk, true);
    EXPECT_EQ(run("reboot="), "reboot done");
    EXPECT_EQ(calls(), Calls{});
    EXPECT_EQ(env().stub_log(), kRebootRan);
}

TEST_F(IdentityTest, RebootIgnoresItsValue) {
    env().clear_stub_log();
    EXPECT_EQ(run("reboot=now%20-f"), "reboot done");
    EXPECT_EQ(calls(), Calls{kLogoLedOn});
    EXPECT_EQ(env().stub_log(), kRebootRan);
}

// ---- Configuration reset ----

// A reset takes its time: the module waits longer for it than for an ordinary text call.
TEST_F(IdentityTest, ResetconfigWaitsForASlowReset) {
    rule(kPlatform, "com.KorvexLabs.platform.config", "reset", R"("mode":"default","delay_ms":5600)");
    EXPECT_EQ(run("resetconfig=factory"), "resetconfig done");
    EXPECT_GE(elapsed_ms(), 5500);
    EXPECT_LT(elapsed_ms(), 9000);
    EXPECT_EQ(calls(), Calls{reset_call("factory")});
}

// ---- Any nvram key ----

TEST_F(IdentityTest, GetnvramPrintsTheStoredValueOfTheKey) {
    EXPECT_EQ(run("getnvram=HostName"), "korvex-gateway<br>getnvram done");
    EXPECT_EQ(calls(), Calls{get_call("HostName")});
}

TEST_F(IdentityTest, GetnvramPassesTheKeyAsGiven) {
    sim().nvram_put("odd key <x>", "odd value", true);
    EXPECT_EQ(run("getnvram=odd%20key%20%3Cx%3E"), "odd value<br>getnvram done");
    EXPECT_EQ(run("getnvram=hostname"), "<br>getnvram done");
    EXPECT_EQ(calls(), (Calls{get_call("odd key <x>"), get_call("hostname")}));
}

TEST_F(IdentityTest, GetnvramOfAnUnknownKeyPrintsAnEmptyLine) {
    EXPECT_EQ(run("getnvram=NoSuchKey"), "<br>getnvram done");
    EXPECT_EQ(calls(), Calls{get_call("NoSuchKey")});
}

TEST_F(IdentityTest, GetnvramOfTheEmptyKeyAsksForIt) {
    EXPECT_EQ(run("getnvram="), "<br>getnvram done");
    EXPECT_EQ(calls(), Calls{get_call("")});
}

TEST_F(IdentityTest, GetnvramWithoutReplyPrintsNull) {
    nvram_rule("get", R"("mode":"error")");
    EXPECT_EQ(run("getnvram=HostName"), "(null)<br>getnvram done");
    EXPECT_EQ(calls(), Calls{get_call("HostName")});
}

TEST_F(IdentityTest, GetnvramReadsTheWorkingCopy) {
    sim().nvram_put("HostName", "not-yet-committed", false);
    EXPECT_EQ(run("getnvram=HostName"), "not-yet-committed<br>getnvram done");
}

}  // namespace
}  // namespace korvex::test
