// PPPoE settings through Apache and the bus: the switch, the account name and the password
// (the only setter that commits by itself), their getters, and "pppoecommit", which restarts
// pppoecd on the WAN VLAN with the stored account. The account goes into a shell line, so
// each of its values must stay one shell word whatever it holds, and the password must
// never reach the error log.
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/command_test.h"
#include "tests/support/shell_words.h"
#include "tests/support/log_lines.h"

namespace korvex::test {
namespace {

const std::string kPlatform = "com.korvex-labs.www.platform";
const std::string kAdmin = kPlatform + " com.KorvexLabs.platform.admin ";

const std::string kEnableKey = "PPPoE_Enable";
const std::string kUserNameKey = "PPPoE_UserName";
const std::string kPasswordKey = "PPPoE_PassWord";

const std::string kStopClientLine = "killall pppoecd";
const std::string kMasqueradeLine = "iptables -t nat -A POSTROUTING -o ppp0 -j MASQUERADE";


// The client's line with name and password already in their shell form.
std::string start_line(const std::string &user_word, const std::string &password_word) {
    return "pppoecd eth2.2 -P 1 -u " + user_word + " -p " + password_word +
           " -r 1492 -t 1492 -i 0 -I 30 -N 5 -T 5 -C pppoe_down -k -R";
}

std::string bracketed(const std::vector<std::string> &words) {
    std::string text;
    for (const std::string &word : words) text += "[" + word + "]";
    return text;
}

class PppoeTest : public CommandTest {
  protected:
    // The commit's trace line (with the masked password) is asserted.
    static void SetUpTestSuite() { use_log_level(KORVEX_LOG_TRACE); }

    // Name and password in the working copy only: pppoecommit's own commit must store them.
    void put_account(const std::string &user_name, const std::string &password) {
        sim().nvram_put(kUserNameKey, user_name, false);
        sim().nvram_put(kPasswordKey, password, false);
    }
    // The calls of a pppoecommit whose client line is `start` ("" when none is started).
    static Calls commit_calls(const std::string &start) {
        Calls expected{get_call(kPasswordKey), get_call(kUserNameKey), shell_call(kStopClientLine)};
        if (!start.empty()) expected.push_back(shell_call(start));
        expected.push_back(shell_call(kMasqueradeLine));
        expected.push_back(kCommit);
        return expected;
    }
    // Runs pppoecommit with an account that needs quoting and checks that the shell turns
    // the client line into exactly the expected argv, with nothing run besides.
    void expect_one_word_each(const std::string &user_name, const std::string &password) {
        put_account(user_name, password);
        EXPECT_EQ(run("pppoecommit="), "pppoecommit done");
        expect_client_words(user_name, password);
    }
    // Checks the shell lines recorded so far: stop, start, masquerade, with the start line
    // splitting into the client's argv with `user_name` and `password` as one word each.
    void expect_client_words(const std::string &user_name, const std::string &password) {
        const std::vector<std::string> lines = shell_lines();
        ASSERT_EQ(lines.size(), 3u);
        EXPECT_EQ(lines[0], kStopClientLine);
        EXPECT_EQ(lines[2], kMasqueradeLine);
        const std::string prefix = "pppoecd ";
        ASSERT_EQ(lines[1].rfind(prefix, 0), 0u) << lines[1];
        EXPECT_EQ(shell_words(lines[1].substr(prefix.size())),
                  bracketed({"eth2.2", "-P", "1", "-u", user_name, "-p", password, "-r", "1492", "-t", "1492", "-i",
                             "0", "-I", "30", "-N", "5", "-T", "5", "-C", "pppoe_down", "-k", "-R"}));
    }
};

// ---- The switch: any text whose leading integer is 0 or 1, stored as given ----

class PppoeEnableAcceptedTest : public PppoeTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(PppoeEnableAcceptedTest, StoresTheTextAsGivenWithoutCommitting) {
    sim().nvram_put(kEnableKey, "before", true);
    EXPECT_EQ(run("pppoeenable=" + GetParam()), "pppoeenable done");
    EXPECT_EQ(calls(), Calls{set_call(kEnableKey, GetParam())});
    expect_stored(kEnableKey, GetParam(), "before");
}

// "abc" and "" read as 0, "1x" as 1.
INSTANTIATE_TEST_SUITE_P(Values, PppoeEnableAcceptedTest, ::testing::Values("abc", "1", "0", "1x", "", "00"),
                         [](const ::testing::TestParamInfo<std::string> &info) {
                             return "Value" + std::to_string(info.index);
                         });

class PppoeEnableRefusedTest : public PppoeTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(PppoeEnableRefusedTest, FailsAndStoresNothing) {
    EXPECT_EQ(run("pppoeenable=" + GetParam()), "pppoeenable failed");
    EXPECT_EQ(calls(), Calls{});
    expect_stored(kEnableKey, "0", "0");
}

// 4294967297 is 2^32 + 1: its leading integer is far from 1, however an int would wrap it.
INSTANTIATE_TEST_SUITE_P(Values, PppoeEnableRefusedTest, ::testing::Values("2", "-1", "10", "4294967297"),
                         [](const ::testing::TestParamInfo<std::string> &info) {
                             return "Value" + std::to_string(info.index);
                         });

// ---- Account: the name is stored only, the password is committed at once ----

// The setters' rules are in nvram_setter_test.cpp; the password's commit takes the whole
// working copy along.
TEST_F(PppoeTest, SetpppoepasswordCommitsTheNameStoredBefore) {
    sim().nvram_put(kUserNameKey, "pending", false);
    EXPECT_EQ(run("setpppoepassword=s3cret"), "setpppoepassword done");
    EXPECT_EQ(calls(), (Calls{set_call(kPasswordKey, "s3cret"), kCommit}));
    expect_stored(kPasswordKey, "s3cret", "s3cret");
    expect_stored(kUserNameKey, "pending", "pending");
}

// ---- Restarting the client ----

// The switch stays at its factory 0: a stored name and password are enough to start.
TEST_F(PppoeTest, PppoecommitRestartsTheClientWithTheStoredAccount) {
    put_account("alice", "s3cret");
    EXPECT_EQ(run("pppoecommit="), "pppoecommit done");
    EXPECT_EQ(calls(), commit_calls(start_line("alice", "s3cret")));
    expect_stored(kUserNameKey, "alice", "alice");
    expect_stored(kPasswordKey, "s3cret", "s3cret");
}

TEST_F(PppoeTest, PppoecommitPutsOrdinaryValuesInUnquoted) {
    put_account("user_1@isp.example", "Pa55:w/o%rd+x=y,z-");
    EXPECT_EQ(run("pppoecommit="), "pppoecommit done");
    EXPECT_EQ(calls(), commit_calls(start_line("user_1@isp.example", "Pa55:w/o%rd+x=y,z-")));
}

TEST_F(PppoeTest, PppoecommitWithEmptyPasswordOnlyStopsTheClient) {
    put_account("alice", "");
    EXPECT_EQ(run("pppoecommit="), "pppoecommit done");
    EXPECT_EQ(calls(), commit_calls(""));
    expect_stored(kUserNameKey, "alice", "alice");
}

TEST_F(PppoeTest, PppoecommitWithEmptyNameOnlyStopsTheClient) {
    put_account("", "s3cret");
    EXPECT_EQ(run("pppoecommit="), "pppoecommit done");
    EXPECT_EQ(calls(), commit_calls(""));
    expect_stored(kPasswordKey, "s3cret", "s3cret");
}

TEST_F(PppoeTest, PppoecommitWithFactoryAccountOnlyStopsTheClient) {
    EXPECT_EQ(run("pppoecommit="), "pppoecommit done");
    EXPECT_EQ(calls(), commit_calls(""));
}

TEST_F(PppoeTest, PppoecommitTreatsUnreadableAccountAsEmpty) {
    put_account("alice", "s3cret");
    nvram_rule("get", R"("mode":"error")");
    EXPECT_EQ(run("pppoecommit="), "pppoecommit done");
    EXPECT_EQ(calls(), commit_calls(""));
}

TEST_F(PppoeTest, PppoecommitWithPlatformAbsentIsDone) {
    put_account("alice", "s3cret");
    sim().set_absent(kPlatform, true);
    EXPECT_EQ(run("pppoecommit="), "pppoecommit done");
    EXPECT_EQ(calls(), Calls{});
}

TEST_F(PppoeTest, PppoecommitIgnoresFailingShellCommands) {
    put_account("alice", "s3cret");
    sim().set_rule(R"({"destination":"com.korvex-labs.www.platform","interface":"com.KorvexLabs.platform.admin",)"
                   R"("member":"doSystem","mode":"error"})");
    EXPECT_EQ(run("pppoecommit="), "pppoecommit done");
    EXPECT_EQ(calls(), commit_calls(start_line("alice", "s3cret")));
    expect_stored(kPasswordKey, "s3cret", "s3cret");
}

TEST_F(PppoeTest, PppoecommitQuotesEachValueAsOneShellWord) {
    put_account("a b", "p'w;$(id)");
    EXPECT_EQ(run("pppoecommit="), "pppoecommit done");
    EXPECT_EQ(calls(), commit_calls(start_line("'a b'", R"('p'\''w;$(id)')")));
}

TEST_F(PppoeTest, PppoecommitQuotedLineSplitsIntoTheExpectedArguments) {
    expect_one_word_each("a b", "p'w;$(id)");
}

TEST_F(PppoeTest, PppoecommitValuesCannotAddShellCommands) {
    expect_one_word_each("x;echo INJECTED-1 'q' \"d\"", "p'w;echo INJECTED-2;$(echo INJECTED-3)`echo INJECTED-4`\n"
                                                        "echo INJECTED-5 &&' \\ $HOME *");
}

TEST_F(PppoeTest, PppoecommitValuesSetThroughTheSettersKeepTheirShellForm) {
    EXPECT_EQ(run("setpppoeusername=a%20b&setpppoepassword=p%27w%3B%24%28id%29%0Ax"),
              "setpppoeusername donesetpppoepassword done");
    sim().clear_records();
    EXPECT_EQ(run("pppoecommit="), "pppoecommit done");
    EXPECT_EQ(calls(), commit_calls(start_line("'a b'", "'p'\\''w;$(id)\nx'")));
    expect_client_words("a b", "p'w;$(id)\nx");
}

// ---- The password stays out of the error log ----

TEST_F(PppoeTest, PppoecommitTraceMasksThePassword) {
    put_account("alice", "s3cret");
    const size_t before = env().error_log_size();
    EXPECT_EQ(run("pppoecommit="), "pppoecommit done");
    ASSERT_TRUE(env().wait_for_log("leave pppoeCommit", std::chrono::seconds(5), before));
    const std::string log = env().error_log_since(before);
    EXPECT_EQ(module_log_lines(log, "user name:"),
              std::vector<std::string>{"[korvex:debug] [pid N] pppoeCommit:L apache: user name: alice, password: ********"});
    EXPECT_EQ(log.find("s3cret"), std::string::npos) << log;
}

TEST_F(PppoeTest, PasswordStaysOutOfTheLogWhenTheShellCallsFail) {
    put_account("alice", "s3cret");
    sim().set_rule(R"({"destination":"com.korvex-labs.www.platform","interface":"com.KorvexLabs.platform.admin",)"
                   R"("member":"doSystem","mode":"error"})");
    const size_t before = env().error_log_size();
    EXPECT_EQ(run("pppoecommit="), "pppoecommit done");
    ASSERT_TRUE(env().wait_for_log("leave pppoeCommit", std::chrono::seconds(5), before));
    const std::string log = env().error_log_since(before);
    EXPECT_EQ(module_log_lines(log, "user name:"),
              std::vector<std::string>{"[korvex:debug] [pid N] pppoeCommit:L apache: user name: alice, password: ********"});
    EXPECT_EQ(log.find("s3cret"), std::string::npos) << log;
}

TEST_F(PppoeTest, SetpppoepasswordLeavesThePasswordOutOfTheLog) {
    const size_t before = env().error_log_size();
    EXPECT_EQ(run("setpppoepassword=s3cret"), "setpppoepassword done");
    ASSERT_TRUE(env().wait_for_log("leave setPPPoEPassWord", std::chrono::seconds(5), before));
    const std::string log = env().error_log_since(before);
    EXPECT_EQ(log.find("s3cret"), std::string::npos) << log;
}

}  // namespace
}  // namespace korvex::test
