// Firmware updates through Apache and the bus: the check for a newer firmware and its
// download (their exact shell lines), refused while an updater program runs, the bound on
// the update server's name, the firmware-version time-outs, the boot loader update and the
// whole-flash rewrite signal.
#include <chrono>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/access_log.h"
#include "tests/support/firmware_fixture.h"
#include "tests/support/log_lines.h"
#include "tests/support/record_text.h"

namespace korvex::test {
namespace {

using namespace firmware;

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
