// JSON pass-through commands through Apache and the bus: what goes to the Z-Wave SDK,
// application and socket daemons, what comes back to the client, and the change stamp
// "jsonsetall_number" that the data-changing commands write.
#include <algorithm>
#include <future>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/command_test.h"
#include "tests/support/http_client.h"
#include "tests/support/timed_request.h"

namespace korvex::test {
namespace {

const std::string kSdkJson = "com.korvex-labs.www.sdk com.KorvexLabs.json.command command";
const std::string kSdkEasy = "com.korvex-labs.www.sdk com.KorvexLabs.easy.command name";
const std::string kApp = "com.korvex-labs.www.app com.KorvexLabs.app ";
const std::string kSocket = "com.korvex-labs.www.socket com.KorvexLabs.socket.cmd command";
const std::string kNvramSet = "com.korvex-labs.www.platform com.KorvexLabs.platform.nvram set";
const std::string kStampSet = kNvramSet + "(s:jsonsetall_number, s:<stamp>)";
// The stamp in the factory settings of the simulator (committed and working).
const std::string kFactoryStamp = "1760518412";

class AppJsonTest : public CommandTest {
  protected:
    void normalise(SimRecord &record) override { take_stamp(record, "jsonsetall_number"); }
};

// ---- Z-Wave SDK daemon ----

TEST_F(AppJsonTest, JsonPassesTheValueUnchangedAndPrintsTheReply) {
    EXPECT_EQ(run("json=%7B%22cmd%22%3A%22getdevice%22%2C%22uid%22%3A256%7D"),
              "{\"cmd\":\"getdevice\",\"result\":\"ok\"}<br>json done");
    EXPECT_EQ(calls(), Calls{kSdkJson + "(s:{\"cmd\":\"getdevice\",\"uid\":256})"});
}

// Both commands wait out the SDK's time-out at once, each on its own connection: "json"
// prints nothing and is done, "easycmd" fails.
TEST_F(AppJsonTest, SilentDaemonCostsEachCommandItsTimeOutJsonIsDoneEasycmdFails) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.sdk","interface":"com.KorvexLabs.json.command",)"
                   R"("member":"command","mode":"silent"})");
    sim().set_rule(R"({"destination":"com.korvex-labs.www.sdk","interface":"com.KorvexLabs.easy.command",)"
                   R"("member":"name","mode":"silent"})");
    auto json = std::async(std::launch::async, [] { return timed_get(port(), "/network.cgi?json=%7B%7D"); });
    auto easycmd = std::async(std::launch::async, [] { return timed_get(port(), "/network.cgi?easycmd=NVM_backup"); });
    const TimedAnswer json_answer = json.get();
    const TimedAnswer easycmd_answer = easycmd.get();
    EXPECT_EQ(json_answer.response.status, 200);
    EXPECT_EQ(json_answer.response.body, "json done");
    EXPECT_GE(json_answer.ms, 4800);
    EXPECT_LT(json_answer.ms, 7000);
    EXPECT_EQ(easycmd_answer.response.status, 200);
    EXPECT_EQ(easycmd_answer.response.body, "easycmd failed");
    EXPECT_GE(easycmd_answer.ms, 4800);
    EXPECT_LT(easycmd_answer.ms, 7000);
    Calls received = calls(2);
    std::sort(received.begin(), received.end());
    EXPECT_EQ(received, (Calls{kSdkEasy + "(s:NVM_backup)", kSdkJson + "(s:{})"}));
}

TEST_F(AppJsonTest, JsonWithAbsentDaemonIsDone) {
    sim().set_absent("com.korvex-labs.www.sdk", true);
    EXPECT_EQ(run("json=%7B%7D"), "json done");
    EXPECT_EQ(calls(), Calls{});
}

TEST_F(AppJsonTest, EasycmdPrintsTheReply) {
    EXPECT_EQ(run("easycmd=NVM_backup"), "ok<br>easycmd done");
    EXPECT_EQ(calls(), Calls{kSdkEasy + "(s:NVM_backup)"});
}

// ---- Application daemon queries and the socket daemon's fixed requests ----

// Their relays' rules are in text_relay_test.cpp.

TEST_F(AppJsonTest, AuthcodeSendsItsOwnNameWhateverTheValue) {
    EXPECT_EQ(run("authcode=proctable"), "7K2Q-9XW4-PL3M<br>authcode done");
    EXPECT_EQ(calls(), Calls{kSocket + "(s:authcode)"});
}

TEST_F(AppJsonTest, GetEscapesReachTheDaemonDecodedAndPlusStays) {
    EXPECT_EQ(run("jsongettitles=a%20b+c"), std::string(
        R"({"titles":[{"id":2,"name":"Living room lamp"},{"id":3,"name":"Front door lock"},)"
        R"({"id":5,"name":"Hall motion sensor"}]}<br>jsongettitles done)"));
    EXPECT_EQ(calls(), Calls{kApp + "jsongettitles(s:a b+c)"});
}

TEST_F(AppJsonTest, PostedValueIsPassedOn) {
    HttpResponse response = post(port(), "/network.cgi", "doscene=%7B%22scene%22%3A1%7D");
    EXPECT_EQ(response.body, "{\"result\":\"ok\"}<br>doscene done");
    EXPECT_EQ(calls(), Calls{kApp + "doscene(s:{\"scene\":1})"});
}

// ---- Data-changing commands and the change stamp ----

struct Change {
    const char *command;
    const char *member;
    bool stamps_after;  // a second stamp once the application answered
};

void PrintTo(const Change &p, std::ostream *os) { *os << p.command; }

class AppChangeTest : public AppJsonTest, public ::testing::WithParamInterface<Change> {
  protected:
    Calls expected(const std::string &value) const {
        const Change &p = GetParam();
        Calls expected{kStampSet, kApp + p.member + "(s:" + value + ")"};
        if (p.stamps_after) expected.push_back(kStampSet);
        return expected;
    }
    void answer(const std::string &mode_and_values) {
        sim().set_rule(std::string(R"({"destination":"com.korvex-labs.www.app","interface":"com.KorvexLabs.app",)"
                                   R"("member":")") +
                       GetParam().member + R"(",)" + mode_and_values + "}");
    }
    // Working copy holds the last stamp written; nothing was committed.
    void expect_stamp_in_working_copy_only() {
        ASSERT_FALSE(stamps().empty());
        EXPECT_EQ(sim().nvram("jsonsetall_number"), stamps().back());
        EXPECT_EQ(sim().nvram_committed("jsonsetall_number"), kFactoryStamp);
    }
};

TEST_P(AppChangeTest, ReplyOnePrintsNothingAndIsDone) {
    EXPECT_EQ(run(std::string(GetParam().command) + "=%7B%22id%22%3A2%7D"),
              std::string(GetParam().command) + " done");
    EXPECT_EQ(calls(), expected("{\"id\":2}"));
    expect_stamp_in_working_copy_only();
}

TEST_P(AppChangeTest, ReplyZeroFails) {
    answer(R"("mode":"values","signature":"i","values":[0])");
    EXPECT_EQ(run(std::string(GetParam().command) + "=x"), std::string(GetParam().command) + " failed");
    EXPECT_EQ(calls(), expected("x"));
    expect_stamp_in_working_copy_only();
}

TEST_P(AppChangeTest, ReplyMinusOneFromErrorIsDone) {
    answer(R"("mode":"error")");
    EXPECT_EQ(run(std::string(GetParam().command) + "=x"), std::string(GetParam().command) + " done");
    EXPECT_EQ(calls(), expected("x"));
    expect_stamp_in_working_copy_only();
}

TEST_P(AppChangeTest, ReplyWithoutArgumentIsDone) {
    answer(R"("mode":"noarg")");
    EXPECT_EQ(run(std::string(GetParam().command) + "=x"), std::string(GetParam().command) + " done");
}

TEST_P(AppChangeTest, OtherNonZeroRepliesAreDone) {
    answer(R"("mode":"values","signature":"i","values":[-7])");
    EXPECT_EQ(run(std::string(GetParam().command) + "=x"), std::string(GetParam().command) + " done");
}

TEST_P(AppChangeTest, AbsentApplicationIsDoneAndStillStamps) {
    sim().set_absent("com.korvex-labs.www.app", true);
    EXPECT_EQ(run(std::string(GetParam().command) + "=x"), std::string(GetParam().command) + " done");
    Calls stamps{kStampSet};
    if (GetParam().stamps_after) stamps.push_back(kStampSet);
    EXPECT_EQ(calls(), stamps);
    expect_stamp_in_working_copy_only();
}

TEST_P(AppChangeTest, EmptyValueIsSentAsEmptyText) {
    run(std::string(GetParam().command) + "=");
    EXPECT_EQ(calls(), expected(""));
}

INSTANTIATE_TEST_SUITE_P(Commands, AppChangeTest,
                         ::testing::Values(Change{"jsonsetall", "jsonsetall", true},
                                           Change{"jsonrename", "jsonrename", true},
                                           Change{"jsondel", "jsondel", false}),
                         CommandName());

TEST_F(AppJsonTest, JsonsetallSecondStampIsTakenAfterTheApplicationAnswered) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.app","member":"jsonsetall","mode":"default",)"
                   R"("delay_ms":1500})");
    EXPECT_EQ(run("jsonsetall=x"), "jsonsetall done");
    calls();
    ASSERT_EQ(stamps().size(), 2u);
    EXPECT_GE(std::stol(stamps()[1]) - std::stol(stamps()[0]), 1);
}

TEST_F(AppJsonTest, JsonsetallWaitsThreeSecondsForTheApplication) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.app","member":"jsonsetall","mode":"silent"})");
    EXPECT_EQ(run("jsonsetall=x"), "jsonsetall done");
    EXPECT_GE(elapsed_ms(), 2800);
    EXPECT_LT(elapsed_ms(), 4500);
}

}  // namespace
}  // namespace korvex::test
