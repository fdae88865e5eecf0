// Application configuration backup and restore through Apache and the bus: the integer
// calls to the application, the change stamp before a restore, and the fifteen calls of
// the flash data backup.
#include <algorithm>
#include <future>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/command_test.h"
#include "tests/support/timed_request.h"

namespace korvex::test {
namespace {

const std::string kSwitchApp = "com.korvex-labs.www.app com.KorvexLabs.switch.app ";
const std::string kDoSystem = "com.korvex-labs.www.platform com.KorvexLabs.platform.admin doSystem";
const std::string kStampSet =
    "com.korvex-labs.www.platform com.KorvexLabs.platform.nvram set(s:jsonsetall_number, s:<stamp>)";
const std::string kFactoryStamp = "1760518412";

// The fifteen calls of "backupKorvexData", in order.
Calls backup_calls() {
    Calls calls;
    for (const char *line :
         {"cp /dev/mtd4 /media/systeminfo", "cp /dev/mtd6 /media/KorvexData", "cp /dev/mtd2 /media/config",
          "cp /dev/mtd3 /media/factory", "mkdir /media/sda1/QTR58", "cp /dev/mtd4 /media/sda1/QTR58/systeminfo",
          "cp /dev/mtd6 /media/sda1/QTR58/KorvexData", "cp /dev/mtd2 /media/sda1/QTR58/config",
          "cp /dev/mtd3 /media/sda1/QTR58/factory", "mkdir /media/mmcblk0p1/QTR58",
          "cp /dev/mtd4 /media/mmcblk0p1/QTR58/systeminfo", "cp /dev/mtd6 /media/mmcblk0p1/QTR58/KorvexData",
          "cp /dev/mtd2 /media/mmcblk0p1/QTR58/config", "cp /dev/mtd3 /media/mmcblk0p1/QTR58/factory"})
        calls.push_back(kDoSystem + "(s:" + line + ")");
    calls.push_back("com.korvex-labs.www.sdk com.KorvexLabs.easy.command name(s:NVM_ext_write_to_file)");
    return calls;
}

class AppBackupTest : public CommandTest {
  protected:
    void normalise(SimRecord &record) override { take_stamp(record, "jsonsetall_number"); }
    // The stamp the last calls() saw, "" when there was none.
    std::string stamp() const { return stamps().empty() ? "" : stamps().back(); }
};

// ---- Reset, backup and restore of the application's configuration ----

struct AppCall {
    const char *command;
    const char *member;
    bool stamps;  // the restores stamp the application data first
};

void PrintTo(const AppCall &p, std::ostream *os) { *os << p.command; }

class AppConfigTest : public AppBackupTest, public ::testing::WithParamInterface<AppCall> {
  protected:
    Calls expected() const {
        Calls expected;
        if (GetParam().stamps) expected.push_back(kStampSet);
        expected.push_back(kSwitchApp + GetParam().member + "(i:1)");
        return expected;
    }
    std::string command() const { return GetParam().command; }
};

TEST_P(AppConfigTest, SendsOneAndPrintsTheAnswer) {
    EXPECT_EQ(run(command() + "=ignored"), "0<br>" + command() + " done");
    EXPECT_EQ(calls(), expected());
}

TEST_P(AppConfigTest, PrintsAnyIntegerAnswerAndIsDone) {
    sim().set_rule(std::string(R"({"destination":"com.korvex-labs.www.app","interface":"com.KorvexLabs.switch.app",)"
                               R"("member":")") +
                   GetParam().member + R"(","mode":"values","signature":"i","values":[-2147483648]})");
    EXPECT_EQ(run(command() + "="), "-2147483648<br>" + command() + " done");
}

TEST_P(AppConfigTest, AbsentApplicationPrintsMinusOneAndIsDone) {
    sim().set_absent("com.korvex-labs.www.app", true);
    EXPECT_EQ(run(command() + "=1"), "-1<br>" + command() + " done");
    Calls expected;
    if (GetParam().stamps) expected.push_back(kStampSet);
    EXPECT_EQ(calls(), expected);
}

TEST_P(AppConfigTest, StampIsWrittenToTheWorkingCopyOnlyAndOnlyByRestores) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.app","mode":"error"})");
    EXPECT_EQ(run(command() + "=1"), "-1<br>" + command() + " done");
    EXPECT_EQ(calls(), expected());
    EXPECT_EQ(sim().nvram("jsonsetall_number"), GetParam().stamps ? stamp() : kFactoryStamp);
    EXPECT_EQ(sim().nvram_committed("jsonsetall_number"), kFactoryStamp);
}

INSTANTIATE_TEST_SUITE_P(Commands, AppConfigTest,
                         ::testing::Values(AppCall{"removeappconfig", "resetConfig", false},
                                           AppCall{"backupappconfig", "backupConfig", false},
                                           AppCall{"restoreappconfig", "restoreConfig", true},
                                           AppCall{"restoreappconfig2", "restoreConfig2", true}),
                         CommandName());

// A silent application costs each call its 3 s, side by side here on two connections; a
// restore stamps the application data before it calls.
TEST_F(AppBackupTest, SilentApplicationCostsEachCallThreeSecondsAndRestoresStampFirst) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.app","member":"resetConfig","mode":"silent"})");
    sim().set_rule(R"({"destination":"com.korvex-labs.www.app","member":"restoreConfig","mode":"silent"})");
    auto remove = std::async(std::launch::async, [] { return timed_get(port(), "/network.cgi?removeappconfig=1"); });
    EXPECT_EQ(run("restoreappconfig=1"), "-1<br>restoreappconfig done");
    const TimedAnswer removed = remove.get();
    EXPECT_EQ(removed.response.body, "-1<br>removeappconfig done");
    EXPECT_GE(removed.ms, 2800);
    EXPECT_LT(removed.ms, 4500);

    Calls received = calls(3);
    const auto remove_call = std::find(received.begin(), received.end(), kSwitchApp + "resetConfig(i:1)");
    ASSERT_NE(remove_call, received.end()) << "removeappconfig's call";
    received.erase(remove_call);
    EXPECT_EQ(received, (Calls{kStampSet, kSwitchApp + "restoreConfig(i:1)"}));
    EXPECT_EQ(sim().nvram("jsonsetall_number"), stamp());
}

// ---- Flash data backup ----

TEST_F(AppBackupTest, BackupKorvexDataIssuesFifteenCallsInOrderAndPrintsNothing) {
    EXPECT_EQ(run("backupKorvexData=1"), "backupKorvexData done");
    EXPECT_EQ(calls(), backup_calls());
}

// Copying a partition can outlast the line's 3 s: the daemon runs the rest once it is done.
TEST_F(AppBackupTest, BackupKorvexDataSendsEveryCallWhenACopyOutlastsItsTimeOut) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.platform","interface":"com.KorvexLabs.platform.admin",)"
                   R"("member":"doSystem","mode":"busy","delay_ms":4000,"times":1})");
    EXPECT_EQ(run("backupKorvexData=1"), "backupKorvexData done");
    EXPECT_EQ(calls(15), backup_calls());
}

TEST_F(AppBackupTest, BackupKorvexDataGoesOnWhenEveryStepFails) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.platform","interface":"com.KorvexLabs.platform.admin",)"
                   R"("member":"doSystem","mode":"error"})");
    sim().set_rule(R"({"destination":"com.korvex-labs.www.sdk","interface":"com.KorvexLabs.easy.command",)"
                   R"("member":"name","mode":"error"})");
    EXPECT_EQ(run("backupKorvexData="), "backupKorvexData done");
    EXPECT_EQ(calls(), backup_calls());
    EXPECT_LT(elapsed_ms(), 3000);
}

TEST_F(AppBackupTest, BackupKorvexDataGoesOnWithOddReplies) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.platform","member":"doSystem","mode":"values",)"
                   R"("signature":"i","values":[-1],"times":7})");
    sim().set_rule(R"({"destination":"com.korvex-labs.www.sdk","member":"name","mode":"noarg"})");
    EXPECT_EQ(run("backupKorvexData=x"), "backupKorvexData done");
    EXPECT_EQ(calls(), backup_calls());
}

TEST_F(AppBackupTest, BackupKorvexDataNameIsCaseSensitive) {
    EXPECT_EQ(run("backupkorvexdata=1"), "backupkorvexdata doesn't exist");
    EXPECT_EQ(calls(), Calls{});
}

}  // namespace
}  // namespace korvex::test
