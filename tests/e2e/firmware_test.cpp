// Firmware updates through Apache and the bus: the status of a running "checkupdate" or
// "update" program, the image and firmware checks and background downloads started through
// the platform daemon (their exact shell lines), the refusal while a program runs, the bound
// on the update server's name, the firmware-version time-outs, and the whole-flash rewrite
// signal.
#include <chrono>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/access_log.h"
#include "tests/support/command_test.h"
#include "tests/support/log_lines.h"
#include "tests/support/record_text.h"

namespace korvex::test {
namespace {

const std::string kPlatform = "com.korvex-labs.www.platform";
const std::string kIfAdmin = "com.KorvexLabs.platform.admin";
const std::string kAdmin = kPlatform + " " + kIfAdmin + " ";
const std::string kGetModel = kAdmin + "getModel(s:getModel)";
const std::string kDebuger = "com.korvex-labs.www.debuger";
const std::string kIfWatchdog = "com.KorvexLabs.watchdog";
const std::string kGetFirmwareVersion = kDebuger + " " + kIfWatchdog + " getfwver(i:1)";
const std::string kCheckUpdateBus = "com.korvex-labs.www.checkupdate";
const std::string kIfCheckUpdate = "com.KorvexLabs.checkupdate";
const std::string kUpdateBus = "com.korvex-labs.www.update";
const std::string kIfUpdate = "com.KorvexLabs.update";
const std::string kCheckStatus = kCheckUpdateBus + " " + kIfCheckUpdate + " getupdatestatus(i:1)";
const std::string kUpdateStatus = kUpdateBus + " " + kIfUpdate + " getupdatestatus(i:1)";


// The background download of a newer firmware, from the default server or from `server`.
std::string download_line(const std::string &version, const std::string &model = "QTR58") {
    return "checkupdate -v " + version + " -d /tmp/uImage -m " + model + "&";
}
std::string download_from_line(const std::string &version, const std::string &server) {
    return "checkupdate -v " + version + " -d /tmp/uImage -s " + server + " -m QTR58&";
}

// A sleeping process under one of the updater programs' names, seen by the server's process
// scan for as long as the object lives. Every test that starts one ends it, so no other test
// finds an updater running.
class RunningProgram {
  public:
    RunningProgram(GatewayEnv &env, const std::string &name) : env_(env), pid_(env.spawn_process(name)) {}
    ~RunningProgram() {
        try {
            env_.kill_process(pid_);
        } catch (const std::exception &e) {
            ADD_FAILURE() << "could not stop process " << pid_ << ": " << e.what();
        }
    }
    RunningProgram(const RunningProgram &) = delete;
    RunningProgram &operator=(const RunningProgram &) = delete;

  private:
    GatewayEnv &env_;
    pid_t pid_;
};

class FirmwareTest : public CommandTest {
  protected:
    void SetUp() override {
        CommandTest::SetUp();
        log_before_ = env().error_log_size();
    }

    void shell_rule(const std::string &mode) { rule(kPlatform, kIfAdmin, "doSystem", mode); }
    void model_rule(const std::string &mode) { rule(kPlatform, kIfAdmin, "getModel", mode); }
    void watchdog_rule(const std::string &mode) { rule(kDebuger, kIfWatchdog, "getfwver", mode); }

    // The module's log lines written since the test began that contain `containing`, once
    // `awaited` (when given) has shown up.
    std::vector<std::string> log_lines(const std::string &containing, const std::string &awaited = "") {
        if (!awaited.empty()) {
            EXPECT_TRUE(env().wait_for_log(awaited, std::chrono::seconds(5), log_before_)) << awaited;
        }
        return module_log_lines(env().error_log_since(log_before_), containing);
    }

    size_t log_before_ = 0;
};

// ---- Status of the running program ----

TEST_F(FirmwareTest, GetupdatestatusWithNoProgramRunningPrintsNullAndAsksNobody) {
    EXPECT_EQ(run("getupdatestatus="), "(null)<br>getupdatestatus done");
    EXPECT_EQ(calls(), Calls{});
}

TEST_F(FirmwareTest, GetupdatestatusRelaysTheRunningCheck) {
    RunningProgram check(env(), "checkupdate");
    EXPECT_EQ(run("getupdatestatus=x"), "checking<br>getupdatestatus done");
    EXPECT_EQ(calls(), Calls{kCheckStatus});
}

TEST_F(FirmwareTest, GetupdatestatusRelaysTheRunningUpdate) {
    RunningProgram update(env(), "update");
    EXPECT_EQ(run("getupdatestatus="), "writing flash 35%<br>getupdatestatus done");
    EXPECT_EQ(calls(), Calls{kUpdateStatus});
}

TEST_F(FirmwareTest, GetupdatestatusAsksTheCheckWhenBothRun) {
    RunningProgram update(env(), "update");
    RunningProgram check(env(), "checkupdate");
    EXPECT_EQ(run("getupdatestatus="), "checking<br>getupdatestatus done");
    EXPECT_EQ(calls(), Calls{kCheckStatus});
}

TEST_F(FirmwareTest, GetupdatestatusPrintsTheProgramsTextAsItIs) {
    RunningProgram update(env(), "update");
    rule(kUpdateBus, kIfUpdate, "getupdatestatus", R"("mode":"values","signature":"s","values":["<b>done</b> 100%"])");
    EXPECT_EQ(run("getupdatestatus="), "<b>done</b> 100%<br>getupdatestatus done");
    EXPECT_EQ(calls(), Calls{kUpdateStatus});
}

TEST_F(FirmwareTest, GetupdatestatusWithoutAnAnswerFromTheCheckPrintsNullAndIsDone) {
    RunningProgram check(env(), "checkupdate");
    rule(kCheckUpdateBus, kIfCheckUpdate, "getupdatestatus", R"("mode":"error")");
    EXPECT_EQ(run("getupdatestatus="), "(null)<br>getupdatestatus done");
    EXPECT_EQ(calls(), Calls{kCheckStatus});
}

TEST_F(FirmwareTest, GetupdatestatusWithoutAnAnswerFromTheUpdatePrintsNullAndIsDone) {
    RunningProgram update(env(), "update");
    rule(kUpdateBus, kIfUpdate, "getupdatestatus", R"("mode":"error")");
    EXPECT_EQ(run("getupdatestatus="), "(null)<br>getupdatestatus done");
    EXPECT_EQ(calls(), Calls{kUpdateStatus});
}

// A program counts only under exactly its name: not under a path, not as part of a name.
TEST_F(FirmwareTest, GetupdatestatusIgnoresLookalikeProgramNames) {
    RunningProgram by_path(env(), "/usr/bin/update");
    RunningProgram longer(env(), "checkupdate.sh");
    RunningProgram shorter(env(), "updat");
    EXPECT_EQ(run("getupdatestatus="), "(null)<br>getupdatestatus done");
    EXPECT_EQ(calls(), Calls{});
}

// ---- Image check ----

TEST_F(FirmwareTest, CheckuimageRunsTheCheckAndPrintsItsAnswer) {
    shell_rule(R"("mode":"values","signature":"i","values":[7])");
    EXPECT_EQ(run("checkuimage=fw-2.1.bin"), "7<br>checkuimage done");
    EXPECT_EQ(calls(), (Calls{kGetModel, shell_call("checkupdate -r fw-2.1.bin -m QTR58")}));
}

TEST_F(FirmwareTest, CheckuimageWithoutAnAnswerPrintsMinusOneAndIsDone) {
    shell_rule(R"("mode":"error")");
    EXPECT_EQ(run("checkuimage=fw"), "-1<br>checkuimage done");
    EXPECT_EQ(calls(), (Calls{kGetModel, shell_call("checkupdate -r fw -m QTR58")}));
}

TEST_F(FirmwareTest, CheckuimageKeepsAValueWithBlanksAndSemicolonsOneArgument) {
    EXPECT_EQ(run("checkuimage=a%20b%3Breboot"), "0<br>checkuimage done");
    EXPECT_EQ(run("checkuimage="), "0<br>checkuimage done");
    EXPECT_EQ(calls(), (Calls{kGetModel, shell_call("checkupdate -r 'a b;reboot' -m QTR58"), kGetModel,
                              shell_call("checkupdate -r '' -m QTR58")}));
}

TEST_F(FirmwareTest, CheckuimageWithoutAModelPassesTheAbsentText) {
    model_rule(R"("mode":"error")");
    EXPECT_EQ(run("checkuimage=fw"), "0<br>checkuimage done");
    EXPECT_EQ(calls(), (Calls{kGetModel, shell_call("checkupdate -r fw -m '(null)'")}));
}

TEST_F(FirmwareTest, CheckuimageIsRefusedWhileAnUpdateRuns) {
    RunningProgram update(env(), "update");
    EXPECT_EQ(run("checkuimage=fw"), "0<br>checkuimage failed");
    EXPECT_EQ(calls(), Calls{});
}

TEST_F(FirmwareTest, CheckuimageGoesAheadWhileOnlyACheckRuns) {
    RunningProgram check(env(), "checkupdate");
    shell_rule(R"("mode":"values","signature":"i","values":[2])");
    EXPECT_EQ(run("checkuimage=fw"), "2<br>checkuimage done");
    EXPECT_EQ(calls(), (Calls{kGetModel, shell_call("checkupdate -r fw -m QTR58")}));
}

// ---- Image download ----

TEST_F(FirmwareTest, UpdateuimageStartsTheDownloadInTheBackgroundAndPrintsNothing) {
    EXPECT_EQ(run("updateuimage=fw-2.1.bin"), "updateuimage done");
    EXPECT_EQ(calls(), (Calls{kGetModel, shell_call("checkupdate -r fw-2.1.bin -d /tmp/uImage -m QTR58&")}));
}

TEST_F(FirmwareTest, UpdateuimageDoesNotLookAtThePlatformsAnswer) {
    shell_rule(R"("mode":"error")");
    EXPECT_EQ(run("updateuimage=fw"), "updateuimage done");
    EXPECT_EQ(calls(), (Calls{kGetModel, shell_call("checkupdate -r fw -d /tmp/uImage -m QTR58&")}));
}

TEST_F(FirmwareTest, UpdateuimageQuotesAValueWithAQuote) {
    EXPECT_EQ(run("updateuimage=it%27s%20%24(id)"), "updateuimage done");
    EXPECT_EQ(calls(), (Calls{kGetModel, shell_call("checkupdate -r 'it'\\''s $(id)' -d /tmp/uImage -m QTR58&")}));
}

TEST_F(FirmwareTest, UpdateuimageIsRefusedSilentlyWhileAnUpdateRuns) {
    RunningProgram update(env(), "update");
    EXPECT_EQ(run("updateuimage=fw"), "updateuimage failed");
    EXPECT_EQ(calls(), Calls{});
}

TEST_F(FirmwareTest, UpdateuimageGoesAheadWhileOnlyACheckRuns) {
    RunningProgram check(env(), "checkupdate");
    EXPECT_EQ(run("updateuimage=fw"), "updateuimage done");
    EXPECT_EQ(calls(), (Calls{kGetModel, shell_call("checkupdate -r fw -d /tmp/uImage -m QTR58&")}));
}

// ---- Firmware check ----

TEST_F(FirmwareTest, CheckupdateChecksForAFirmwareNewerThanTheRunningOne) {
    shell_rule(R"("mode":"values","signature":"i","values":[3])");
    EXPECT_EQ(run("checkupdate=ignored"), "3<br>checkupdate done");
    EXPECT_EQ(calls(), (Calls{kGetModel, kGetFirmwareVersion, shell_call("checkupdate -v 5.3.2 -m QTR58")}));
}

TEST_F(FirmwareTest, CheckupdatePassesTheWatchdogsVersionAsOneWord) {
    watchdog_rule(R"("mode":"values","signature":"s","values":["5.4.0-rc1"])");
    EXPECT_EQ(run("checkupdate="), "0<br>checkupdate done");
    watchdog_rule(R"("mode":"values","signature":"s","values":["5.4 beta"])");
    EXPECT_EQ(run("checkupdate="), "0<br>checkupdate done");
    EXPECT_EQ(calls(), (Calls{kGetModel, kGetFirmwareVersion, shell_call("checkupdate -v 5.4.0-rc1 -m QTR58"),
                              kGetModel, kGetFirmwareVersion, shell_call("checkupdate -v '5.4 beta' -m QTR58")}));
}

TEST_F(FirmwareTest, CheckupdateWithoutAnAnswerFromThePlatformPrintsMinusOneAndIsDone) {
    shell_rule(R"("mode":"error")");
    EXPECT_EQ(run("checkupdate="), "-1<br>checkupdate done");
    EXPECT_EQ(calls(), (Calls{kGetModel, kGetFirmwareVersion, shell_call("checkupdate -v 5.3.2 -m QTR58")}));
}

TEST_F(FirmwareTest, CheckupdateWithoutAModelPassesTheAbsentText) {
    model_rule(R"("mode":"error")");
    EXPECT_EQ(run("checkupdate="), "0<br>checkupdate done");
    EXPECT_EQ(calls(), (Calls{kGetModel, kGetFirmwareVersion, shell_call("checkupdate -v 5.3.2 -m '(null)'")}));
}

// The watchdog is given 2 s; without a version nothing is run and nothing printed.
TEST_F(FirmwareTest, CheckupdateWithASilentWatchdogFailsAfterTwoSeconds) {
    watchdog_rule(R"("mode":"silent")");
    EXPECT_EQ(run("checkupdate="), "checkupdate failed");
    EXPECT_GE(elapsed_ms(), 1900);
    EXPECT_LT(elapsed_ms(), 3500);
    EXPECT_EQ(calls(), (Calls{kGetModel, kGetFirmwareVersion}));
    EXPECT_EQ(log_lines("[korvex:error]", "2. checkUpdateFromServer()"),
              (std::vector<std::string>{
                  "[korvex:error] [pid N] apache_dbus_send_int_ret_str:L apache: No reply",
                  "[korvex:error] [pid N] checkUpdateFromServer:L apache: 2. checkUpdateFromServer() apr_psprintf fail",
              }));
}

TEST_F(FirmwareTest, CheckupdateWithAWatchdogErrorFailsAtOnce) {
    watchdog_rule(R"("mode":"error")");
    EXPECT_EQ(run("checkupdate="), "checkupdate failed");
    EXPECT_LT(elapsed_ms(), 1500);
    EXPECT_EQ(calls(), (Calls{kGetModel, kGetFirmwareVersion}));
    EXPECT_EQ(log_lines("[korvex:error]", "2. checkUpdateFromServer()"),
              (std::vector<std::string>{
                  "[korvex:error] [pid N] apache_dbus_send_int_ret_str:L apache: No reply",
                  "[korvex:error] [pid N] checkUpdateFromServer:L apache: 2. checkUpdateFromServer() apr_psprintf fail",
              }));
}

struct Program {
    const char *command;  // the running program's name
};
void PrintTo(const Program &p, std::ostream *os) { *os << p.command; }

class FirmwareProgramRunningTest : public FirmwareTest, public ::testing::WithParamInterface<Program> {};

TEST_P(FirmwareProgramRunningTest, CheckupdateIsRefusedWithZeroAndALogLine) {
    RunningProgram program(env(), GetParam().command);
    EXPECT_EQ(run("checkupdate="), "0<br>checkupdate failed");
    EXPECT_EQ(calls(), Calls{});
    EXPECT_EQ(log_lines("[korvex:error]", "1. checkUpdateFromServer()"),
              std::vector<std::string>{
                  "[korvex:error] [pid N] checkUpdateFromServer:L apache: 1. checkUpdateFromServer() apr_psprintf fail"});
}

TEST_P(FirmwareProgramRunningTest, UpdateIsRefusedSilently) {
    RunningProgram program(env(), GetParam().command);
    EXPECT_EQ(run("update=updates.example.com"), "update failed");
    EXPECT_EQ(run("update="), "update failed");
    EXPECT_EQ(calls(), Calls{});
    EXPECT_EQ(log_lines("[korvex:error]"), std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(Programs, FirmwareProgramRunningTest,
                         ::testing::Values(Program{"checkupdate"}, Program{"update"}), CommandName());

// ---- Firmware download ----

struct ServerValue {
    const char *command;  // test name
    const char *query_value;
    const char *server;  // the "-s" word, null for the default server
};
void PrintTo(const ServerValue &p, std::ostream *os) { *os << p.command; }

class FirmwareServerTest : public FirmwareTest, public ::testing::WithParamInterface<ServerValue> {};

// Values shorter than four characters mean the default server.
TEST_P(FirmwareServerTest, UpdateStartsTheDownloadInTheBackground) {
    const ServerValue &p = GetParam();
    EXPECT_EQ(run(std::string("update=") + p.query_value), "update done");
    const std::string line = p.server ? download_from_line("5.3.2", p.server) : download_line("5.3.2");
    EXPECT_EQ(calls(), (Calls{kGetFirmwareVersion, kGetModel, shell_call(line)}));
}

INSTANTIATE_TEST_SUITE_P(
    Values, FirmwareServerTest,
    ::testing::Values(ServerValue{"empty", "", nullptr}, ServerValue{"one", "a", nullptr},
                      ServerValue{"three", "abc", nullptr}, ServerValue{"three_blanks", "%20%20%20", nullptr},
                      ServerValue{"four", "abcd", "abcd"},
                      ServerValue{"host", "updates.example.com", "updates.example.com"},
                      ServerValue{"url", "https%3A%2F%2Fu.example%3A8443%2Ffw", "https://u.example:8443/fw"},
                      ServerValue{"hostile", "a%20b%3Breboot", "'a b;reboot'"},
                      ServerValue{"quote", "it%27s", "'it'\\''s'"}),
    CommandName());

TEST_F(FirmwareTest, UpdateAcceptsAServerNameOfSixtyThreeCharacters) {
    const std::string server = std::string(60, 's') + ".eu";
    ASSERT_EQ(server.size(), 63u);
    EXPECT_EQ(run("update=" + server), "update done");
    EXPECT_EQ(calls(), (Calls{kGetFirmwareVersion, kGetModel, shell_call(download_from_line("5.3.2", server))}));
    EXPECT_EQ(log_lines("longer than"), std::vector<std::string>{});
}

TEST_F(FirmwareTest, UpdateRefusesAServerNameOfSixtyFourCharactersWithoutAnyCall) {
    const std::string server = std::string(61, 's') + ".eu";
    ASSERT_EQ(server.size(), 64u);
    EXPECT_EQ(run("update=" + server), "update failed");
    EXPECT_EQ(calls(), Calls{});
    EXPECT_EQ(log_lines("[korvex:error]", "longer than"),
              std::vector<std::string>{
                  "[korvex:error] [pid N] updateFromServer:L apache: update server name longer than 63 characters"});
}

// The bound counts the decoded value, not the query's escapes.
TEST_F(FirmwareTest, UpdateCountsTheDecodedServerName) {
    const std::string decoded = std::string(59, 'x') + " ;&";  // 62 characters
    EXPECT_EQ(run("update=" + std::string(59, 'x') + "%20%3B%26"), "update done");
    EXPECT_EQ(calls(), (Calls{kGetFirmwareVersion, kGetModel,
                              shell_call(download_from_line("5.3.2", "'" + decoded + "'"))}));
}

TEST_F(FirmwareTest, UpdateDoesNotLookAtThePlatformsAnswer) {
    shell_rule(R"("mode":"error")");
    EXPECT_EQ(run("update=abcd"), "update done");
    EXPECT_EQ(calls(), (Calls{kGetFirmwareVersion, kGetModel, shell_call(download_from_line("5.3.2", "abcd"))}));
}

TEST_F(FirmwareTest, UpdateWithoutAModelPassesTheAbsentText) {
    model_rule(R"("mode":"error")");
    EXPECT_EQ(run("update="), "update done");
    EXPECT_EQ(calls(), (Calls{kGetFirmwareVersion, kGetModel, shell_call(download_line("5.3.2", "'(null)'"))}));
}

// The watchdog is given half a second; the download still starts, with the absent text as
// the version.
TEST_F(FirmwareTest, UpdateWithASilentWatchdogStartsWithTheAbsentVersion) {
    watchdog_rule(R"("mode":"silent")");
    EXPECT_EQ(run("update="), "update done");
    EXPECT_GE(elapsed_ms(), 450);
    EXPECT_LT(elapsed_ms(), 1900);
    EXPECT_EQ(calls(), (Calls{kGetFirmwareVersion, kGetModel, shell_call(download_line("'(null)'"))}));
    EXPECT_EQ(log_lines("[korvex:error]", "No reply"),
              std::vector<std::string>{"[korvex:error] [pid N] apache_dbus_send_int_ret_str:L apache: No reply"});
}

TEST_F(FirmwareTest, UpdateFromAServerWithAWatchdogErrorStartsWithTheAbsentVersion) {
    watchdog_rule(R"("mode":"error")");
    EXPECT_EQ(run("update=abcd"), "update done");
    EXPECT_EQ(calls(), (Calls{kGetFirmwareVersion, kGetModel, shell_call(download_from_line("'(null)'", "abcd"))}));
}

// ---- Boot loader update ----

TEST_F(FirmwareTest, UpdateubootIsDoneAndDoesNothing) {
    const std::string stub_log = env().stub_log();
    EXPECT_EQ(run("updateuboot=%2Ftmp%2Fu-boot.bin"), "updateuboot done");
    EXPECT_EQ(run("updateuboot="), "updateuboot done");
    EXPECT_EQ(calls(), Calls{});
    EXPECT_EQ(env().stub_log(), stub_log);
    EXPECT_EQ(sim().nvram("DeviceName"), "QTR58-00:4f:61:12:34:56");
    EXPECT_EQ(sim().nvram_committed("DeviceName"), "QTR58-00:4f:61:12:34:56");
}

// ---- Whole-flash rewrite ----

class FirmwareReflashTest : public FirmwareTest {
  protected:
    // The records once the signal arrived, as one-line texts, and the object path of the
    // child that served the request.
    void reflash(const std::string &query_value, const std::string &expected_arg) {
        const size_t access_before = access_log_size(env());
        EXPECT_EQ(run("reflash=" + query_value), "reflash done");
        const std::vector<std::string> lines = wait_for_access_lines(env(), access_before, 1);
        ASSERT_EQ(lines.size(), 1u);
        const std::string path = module_path(served_pid(lines[0]));
        EXPECT_EQ(path.rfind("/com/KorvexLabs/Apache/", 0), 0u);
        EXPECT_EQ(record_texts(sim().wait_for_records(1, 5000)),
                  std::vector<std::string>{"signal - com.KorvexLabs.signal.update rewriteEntire(" + expected_arg +
                                           ") " + path});
    }
};

TEST_F(FirmwareReflashTest, BroadcastsTheRewriteSignalWithTheValue) {
    reflash("all", "s:all");
    const std::vector<SimRecord> records = sim().records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].type, "signal");
    EXPECT_EQ(records[0].destination, "");
}

// The value is a signal argument, not a shell word: it goes out exactly as decoded.
TEST_F(FirmwareReflashTest, SendsTheValueWithoutQuoting) { reflash("a%20'b'%3B", "s:a 'b';"); }

TEST_F(FirmwareReflashTest, SendsTheEmptyValue) { reflash("", "s:"); }

TEST_F(FirmwareReflashTest, RunsNothingLocally) {
    const std::string stub_log = env().stub_log();
    reflash("1", "s:1");
    EXPECT_EQ(env().stub_log(), stub_log);
}

}  // namespace
}  // namespace korvex::test
