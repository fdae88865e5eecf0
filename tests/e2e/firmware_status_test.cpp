// The firmware image through Apache and the bus: the status of a running "checkupdate" or
// "update" program, and the image check and image download started through the platform
// daemon (their exact shell lines), refused while an update runs.
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

}  // namespace
}  // namespace korvex::test
