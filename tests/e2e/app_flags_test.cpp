// Application flags and schedules through Apache and the bus: the nvram key each setter
// writes and commits, whom it tells and when, what it prints, and the user-data stamp.
#include <string>
#include <vector>

#include "tests/support/command_test.h"

namespace korvex::test {
namespace {

const std::string kApp = "com.korvex-labs.www.app com.KorvexLabs.app ";
const std::string kUserDataChange = "com.korvex-labs.www.sdk com.KorvexLabs.easy.command name(s:userdata_change)";

std::string app_call(const std::string &member, const std::string &value) {
    return kApp + member + "(s:" + value + ")";
}

class AppFlagsTest : public CommandTest {
  protected:
    void app_rule(const std::string &member, const std::string &mode) {
        sim().set_rule(R"({"destination":"com.korvex-labs.www.app","interface":"com.KorvexLabs.app","member":")" +
                       member + R"(",)" + mode + "}");
    }
    void expect_committed(const std::string &key, const std::string &value) { expect_stored(key, value, value); }
};

// ---- Setters that store, commit and print the set reply: nvram_setter_test.cpp ----

TEST_F(AppFlagsTest, EnableswitchallAndEnabletimerHaveNoGetter) {
    EXPECT_EQ(run("getenableswitchall=1"), "getenableswitchall doesn't exist");
    EXPECT_EQ(run("getenabletimer=1"), "getenabletimer doesn't exist");
}

// ---- Scene mode (the setters that tell the application: app_told_setter_test.cpp) ----

TEST_F(AppFlagsTest, DoscenemodeWithApplicationErrorFails) {
    app_rule("doscenemode", R"("mode":"error")");
    EXPECT_EQ(run("doscenemode=1"), "doscenemode failed");
    EXPECT_EQ(calls(), (Calls{set_call("doscenemode", "1"), app_call("doscenemode", "1"), kCommit}));
}

// ---- Daylight saving ----

TEST_F(AppFlagsTest, SetDstStoresCommitsAndPrintsTheSetReply) {
    EXPECT_EQ(run("setDST=M3.5.0%2FM10.5.0"), "M3.5.0/M10.5.0<br>setDST done");
    EXPECT_EQ(calls(), (Calls{set_call("setDST", "M3.5.0/M10.5.0"), kCommit}));
    expect_committed("setDST", "M3.5.0/M10.5.0");
}

// A set that outlasts its time-out fails the command, but the commit after it is still sent:
// a store that is slow to answer is working, not gone.
TEST_F(AppFlagsTest, SetDstWithoutSetReplyFailsButStillCommits) {
    nvram_rule("set", R"("mode":"silent")");
    EXPECT_EQ(run("setDST=1"), "setDST failed");
    EXPECT_LT(elapsed_ms(), 2000);
    EXPECT_EQ(calls(), (Calls{set_call("setDST", "1"), kCommit}));
}

TEST_F(AppFlagsTest, SetDstNameIsCaseSensitive) {
    EXPECT_EQ(run("setdst=1"), "setdst doesn't exist");
    EXPECT_EQ(calls(), Calls{});
}

TEST_F(AppFlagsTest, GetDstTellsTheApplicationItsValueBeforeReading) {
    sim().nvram_put("setDST", "1", true);
    EXPECT_EQ(run("getDST=M3.5.0"), "1<br>getDST done");
    EXPECT_EQ(calls(), (Calls{app_call("setDST", "M3.5.0"), get_call("setDST")}));
    expect_committed("setDST", "1");
}

TEST_F(AppFlagsTest, GetDstIgnoresTheApplicationsAbsence) {
    sim().set_absent("com.korvex-labs.www.app", true);
    EXPECT_EQ(run("getDST="), "0<br>getDST done");
    EXPECT_EQ(calls(), Calls{get_call("setDST")});
}

// ---- Lock: written and told only when the value changes ----

TEST_F(AppFlagsTest, EnablelockWithUnchangedValuePrintsNullAndWritesNothing) {
    sim().nvram_put("enablelock", "1", true);
    EXPECT_EQ(run("enablelock=1"), "(null)<br>enablelock done");
    EXPECT_EQ(calls(), Calls{get_call("enablelock")});
    expect_committed("enablelock", "1");
}

TEST_F(AppFlagsTest, EnablelockWithNewValueCommitsThenTellsTheApplication) {
    EXPECT_EQ(run("enablelock=1"), "1<br>enablelock done");
    EXPECT_EQ(calls(), (Calls{get_call("enablelock"), set_call("enablelock", "1"), kCommit,
                              app_call("enablelock", "1")}));
    expect_committed("enablelock", "1");
}

TEST_F(AppFlagsTest, EnablelockComparesBytesExactly) {
    EXPECT_EQ(run("enablelock=0%20"), "0 <br>enablelock done");
    EXPECT_EQ(calls(), (Calls{get_call("enablelock"), set_call("enablelock", "0 "), kCommit,
                              app_call("enablelock", "0 ")}));
}

TEST_F(AppFlagsTest, EnablelockWithUnreadableValueStoresAndTells) {
    nvram_rule("get", R"("mode":"error")");
    EXPECT_EQ(run("enablelock=0"), "0<br>enablelock done");
    EXPECT_EQ(calls(), (Calls{get_call("enablelock"), set_call("enablelock", "0"), kCommit,
                              app_call("enablelock", "0")}));
}

TEST_F(AppFlagsTest, EnablelockWithApplicationAbsentIsDone) {
    sim().set_absent("com.korvex-labs.www.app", true);
    EXPECT_EQ(run("enablelock=1"), "1<br>enablelock done");
    expect_committed("enablelock", "1");
}

// ---- User data: stored, stamped, committed, the SDK told, the stamp printed ----

TEST_F(AppFlagsTest, JsonsetuserdataPrintsTheNewStampAndCommitsDataAndStamp) {
    std::string body = run("jsonsetuserdata=%7B%22favourites%22%3A%5B3%5D%7D");
    const std::string suffix = "<br>jsonsetuserdata done";
    ASSERT_GT(body.size(), suffix.size());
    ASSERT_EQ(body.substr(body.size() - suffix.size()), suffix) << body;
    std::string stamp = body.substr(0, body.size() - suffix.size());
    ASSERT_EQ(stamp.find_first_not_of("0123456789"), std::string::npos) << stamp;
    EXPECT_GE(std::stol(stamp), static_cast<long>(sent_at()));
    EXPECT_LE(std::stol(stamp), static_cast<long>(answered_at()));

    EXPECT_EQ(calls(), (Calls{set_call("jsonsetuserdata", "{\"favourites\":[3]}"),
                              set_call("jsongetuserdata_number", stamp), kCommit, kUserDataChange}));
    expect_committed("jsonsetuserdata", "{\"favourites\":[3]}");
    expect_committed("jsongetuserdata_number", stamp);
}

TEST_F(AppFlagsTest, JsonsetuserdataStampReachesTheNextStatusSnapshot) {
    std::string body = run("jsonsetuserdata=x");
    std::string stamp = body.substr(0, body.find("<br>"));
    std::string snapshot = run("jsongetupdate=");
    const std::string member = "\"jsongetuserdata_number\":" + stamp;
    size_t at = snapshot.find(member);
    ASSERT_NE(at, std::string::npos) << snapshot;
    EXPECT_NE(std::string(",}").find(snapshot[at + member.size()]), std::string::npos) << snapshot;
    EXPECT_EQ(snapshot.substr(snapshot.size() - 22), "<br>jsongetupdate done");
}

TEST_F(AppFlagsTest, JsonsetuserdataWithEveryDaemonFailingStillPrintsTheStamp) {
    nvram_rule("set", R"("mode":"error")");
    sim().set_absent("com.korvex-labs.www.sdk", true);
    std::string body = run("jsonsetuserdata=");
    EXPECT_EQ(body.size(), std::string("1760000000<br>jsonsetuserdata done").size()) << body;
    EXPECT_EQ(body.find_first_not_of("0123456789"), 10u) << body;
    EXPECT_EQ(sim().nvram_committed("jsonsetuserdata"), "{\"favourites\":[2,5]}");
}

}  // namespace
}  // namespace korvex::test
