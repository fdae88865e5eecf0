// Remote access through Apache and the bus: the TUTK tunnel and the Orbweb client switched
// on and off by their device identifiers, the shell lines that start them (every value one
// shell word, whatever it holds), the P2P account, the super-user password and the commit
// that restarts P2P with the new account.
#include <cctype>
#include <cstdio>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/command_test.h"
#include "tests/support/shell_words.h"

namespace korvex::test {
namespace {

const std::string kPlatform = "com.korvex-labs.www.platform ";
const std::string kRestartP2P = kPlatform + "com.KorvexLabs.platform.admin restartP2P(s:restart)";

// Factory settings the services read.
const std::string kFactoryTutkUuid = "E7KA9ZB1XH4WTRGU111A";
const std::string kFactoryOrbwebUuid = "4F61A2C95DE3B07810KQ";
const std::string kFactoryUser = "admin";
const std::string kFactorySsid = "Korvex-QTR58-3457";
// An identifier of the right length (20) that differs from both factory identifiers.
const std::string kNewId = "QX3M7PZR2KD9WB4TNA5E";

// The rendezvous server as the server's configuration names it.
const std::string kRendezvous = "rendezvous.example.test";
const std::string kRendezvousConfig = "KorvexOrbwebHost " + kRendezvous + "\n";

// Account texts a shell would take apart if they reached it unquoted; each injection
// prints INJECTED.
const std::string kHostileUser = "ad min';echo INJECTED;'";
const std::string kHostileUserWord = R"('ad min'\'';echo INJECTED;'\''')";
const std::string kHostilePassword = "$(echo INJECTED)\n`echo INJECTED`|echo INJECTED";
const std::string kHostilePasswordWord = "'" + kHostilePassword + "'";
const std::string kHostileSsid = "My Wi-Fi; echo INJECTED &";
const std::string kHostileSsidWord = "'" + kHostileSsid + "'";

class P2pTest : public CommandTest {
protected:
    static void SetUpTestSuite() {
        GatewayEnv::Options options;
        options.site_config = kRendezvousConfig;
        use_env(options);
    }
    void admin_rule(const std::string &member, const std::string &mode) {
        sim().set_rule(R"({"destination":"com.korvex-labs.www.platform","interface":)"
                       R"("com.KorvexLabs.platform.admin","member":")" +
                       member + R"(",)" + mode + "}");
    }
    void put_hostile_account() {
        sim().nvram_put("TUTK_USERNAME", kHostileUser, true);
        sim().nvram_put("TUTK_PASSWORD", kHostilePassword, true);
        sim().nvram_put("SSID1", kHostileSsid, true);
    }
    static Calls tutk_start(const std::string &stored, const std::string &start_line) {
        return Calls{shell_call("killall P2PTunnelServer"), get_call("TUTK_USERNAME"), get_call("TUTK_PASSWORD"),
                     get_call("SSID1"), set_call("TUTK_UUID", stored), kCommit, shell_call(start_line)};
    }
    static Calls orbweb_start(const std::string &stored, const std::string &start_line) {
        return Calls{shell_call("killall orbwebm2m"), get_call("TUTK_USERNAME"), get_call("TUTK_PASSWORD"),
                     set_call("UUID", stored), kCommit, shell_call(start_line)};
    }
};

// ---- TUTK tunnel ----

TEST_F(P2pTest, SetTutkUuidWithTwentyCharactersRestartsTheTunnel) {
    const std::string id = kNewId;
    EXPECT_EQ(run("setTUTKuuid=" + id), id + "<br>setTUTKuuid done");
    EXPECT_EQ(calls(), tutk_start(id, "P2PTunnelServer " + id + " admin 888888 " + kFactorySsid + "&"));
    expect_stored("TUTK_UUID", id, id);
}

// The tunnel starts with the identifier as the platform answered the set, and that answer
// is what is printed.
TEST_F(P2pTest, SetTutkUuidStartsAndPrintsWithTheSetReply) {
    nvram_rule("set", R"("mode":"values","signature":"s","values":["PLATFORM0STORED0ID00"])");
    const std::string id = kNewId;
    EXPECT_EQ(run("setTUTKuuid=" + id), "PLATFORM0STORED0ID00<br>setTUTKuuid done");
    EXPECT_EQ(calls(), tutk_start(id, "P2PTunnelServer PLATFORM0STORED0ID00 admin 888888 " + kFactorySsid + "&"));
}

TEST_F(P2pTest, SetTutkUuidQuotesASetReplyThatIsNoPlainWord) {
    nvram_rule("set", R"("mode":"values","signature":"s","values":["two words;echo INJECTED"])");
    const std::string id = kNewId;
    EXPECT_EQ(run("setTUTKuuid=" + id), "two words;echo INJECTED<br>setTUTKuuid done");
    EXPECT_EQ(calls(), tutk_start(id, "P2PTunnelServer 'two words;echo INJECTED' admin 888888 " + kFactorySsid + "&"));
    EXPECT_EQ(shell_words_of_line(start_line_of("P2PTunnelServer"), "P2PTunnelServer"),
              "[two words;echo INJECTED][admin][888888][" + kFactorySsid + "]");
}

struct WrongLength {
    const char *name;
    const char *command;
    const char *value;
};
void PrintTo(const WrongLength &p, std::ostream *os) { *os << p.name; }

class P2pWrongLengthTest : public P2pTest, public ::testing::WithParamInterface<WrongLength> {};

// A wrong length is refused before anything is stopped: the running service stays as it is.
TEST_P(P2pWrongLengthTest, IsRefusedWithoutAnyCall) {
    const std::string command = GetParam().command;
    EXPECT_EQ(run(command + "=" + GetParam().value), command + " failed");
    EXPECT_EQ(calls(), Calls{});
    expect_stored("TUTK_UUID", kFactoryTutkUuid, kFactoryTutkUuid);
    expect_stored("UUID", kFactoryOrbwebUuid, kFactoryOrbwebUuid);
}

INSTANTIATE_TEST_SUITE_P(Values, P2pWrongLengthTest,
                         ::testing::Values(WrongLength{"tutk19", "setTUTKuuid", "QX3M7PZR2KD9WB4TNA5"},
                                           WrongLength{"tutk21", "setTUTKuuid", "QX3M7PZR2KD9WB4TNA5EF"},
                                           WrongLength{"tutk1", "setTUTKuuid", "0"},
                                           WrongLength{"orbweb19", "setOrbwebuuid", "QX3M7PZR2KD9WB4TNA5"},
                                           WrongLength{"orbweb21", "setOrbwebuuid", "QX3M7PZR2KD9WB4TNA5EF"},
                                           WrongLength{"orbweb1", "setOrbwebuuid", "0"}),
                         [](const ::testing::TestParamInfo<WrongLength> &info) { return info.param.name; });

TEST_F(P2pTest, SetTutkUuidEmptyClearsTheKeyAndStopsTheTunnel) {
    EXPECT_EQ(run("setTUTKuuid="), "setTUTKuuid done");
    EXPECT_EQ(calls(), (Calls{set_call("TUTK_UUID", ""), kCommit, shell_call("killall P2PTunnelServer")}));
    expect_stored("TUTK_UUID", "", "");
}

TEST_F(P2pTest, SetTutkUuidWithoutSetReplyFailsAndStartsNothing) {
    nvram_rule("set", R"("mode":"error")");
    const std::string id = kNewId;
    EXPECT_EQ(run("setTUTKuuid=" + id), "setTUTKuuid failed");
    EXPECT_EQ(calls(), (Calls{shell_call("killall P2PTunnelServer"), get_call("TUTK_USERNAME"),
                              get_call("TUTK_PASSWORD"), get_call("SSID1"), set_call("TUTK_UUID", id), kCommit}));
    expect_stored("TUTK_UUID", kFactoryTutkUuid, kFactoryTutkUuid);
}

TEST_F(P2pTest, SetTutkUuidKeepsEveryAccountTextOneShellWord) {
    put_hostile_account();
    const std::string id = kNewId;
    EXPECT_EQ(run("setTUTKuuid=" + id), id + "<br>setTUTKuuid done");
    const std::string line =
        "P2PTunnelServer " + id + " " + kHostileUserWord + " " + kHostilePasswordWord + " " + kHostileSsidWord + "&";
    EXPECT_EQ(calls(), tutk_start(id, line));
    EXPECT_EQ(shell_words_of_line(start_line_of("P2PTunnelServer"), "P2PTunnelServer"),
              "[" + id + "][" + kHostileUser + "][" + kHostilePassword + "][" + kHostileSsid + "]");
}

TEST_F(P2pTest, SetTutkUuidKeepsAHostileIdentifierOneShellWord) {
    const std::string id = "ID;echo INJECTED 'x'";
    ASSERT_EQ(id.size(), 20u);
    EXPECT_EQ(run("setTUTKuuid=" + query_escape(id)), id + "<br>setTUTKuuid done");
    EXPECT_EQ(calls(), tutk_start(id, R"(P2PTunnelServer 'ID;echo INJECTED '\''x'\''' admin 888888 )" +
                                          kFactorySsid + "&"));
    EXPECT_EQ(shell_words_of_line(start_line_of("P2PTunnelServer"), "P2PTunnelServer"),
              "[" + id + "][admin][888888][" + kFactorySsid + "]");
    expect_stored("TUTK_UUID", id, id);
}

TEST_F(P2pTest, SetTutkUuidPassesAnEmptyPasswordAsAnEmptyWord) {
    sim().nvram_put("TUTK_PASSWORD", "", true);
    const std::string id = kNewId;
    EXPECT_EQ(run("setTUTKuuid=" + id), id + "<br>setTUTKuuid done");
    EXPECT_EQ(calls(), tutk_start(id, "P2PTunnelServer " + id + " admin '' " + kFactorySsid + "&"));
    EXPECT_EQ(shell_words_of_line(start_line_of("P2PTunnelServer"), "P2PTunnelServer"),
              "[" + id + "][admin][][" + kFactorySsid + "]");
}

// Settings the platform does not answer reach the line as the text "(null)", quoted.
TEST_F(P2pTest, SetTutkUuidWithUnreadableAccountPassesNullWords) {
    nvram_rule("get", R"("mode":"error")");
    const std::string id = kNewId;
    EXPECT_EQ(run("setTUTKuuid=" + id), id + "<br>setTUTKuuid done");
    EXPECT_EQ(calls(), tutk_start(id, "P2PTunnelServer " + id + " '(null)' '(null)' '(null)'&"));
    EXPECT_EQ(shell_words_of_line(start_line_of("P2PTunnelServer"), "P2PTunnelServer"),
              "[" + id + "][(null)][(null)][(null)]");
}

// ---- Orbweb client ----

TEST_F(P2pTest, SetOrbwebUuidWithTwentyCharactersRestartsTheClient) {
    const std::string id = kNewId;
    EXPECT_EQ(run("setOrbwebuuid=" + id), id + "<br>setOrbwebuuid done");
    EXPECT_EQ(calls(), orbweb_start(id, "orbwebm2m -H " + id + " " + kRendezvous + " -B -U admin -P 888888 &"));
    expect_stored("UUID", id, id);
    expect_stored("TUTK_UUID", kFactoryTutkUuid, kFactoryTutkUuid);
}

// Unlike the tunnel, the client starts with the identifier as given; the set's reply is
// only printed.
TEST_F(P2pTest, SetOrbwebUuidPrintsTheSetReplyButStartsWithTheGivenValue) {
    nvram_rule("set", R"("mode":"values","signature":"s","values":["PLATFORM0STORED0ID00"])");
    const std::string id = kNewId;
    EXPECT_EQ(run("setOrbwebuuid=" + id), "PLATFORM0STORED0ID00<br>setOrbwebuuid done");
    EXPECT_EQ(calls(), orbweb_start(id, "orbwebm2m -H " + id + " " + kRendezvous + " -B -U admin -P 888888 &"));
}

TEST_F(P2pTest, SetOrbwebUuidEmptyClearsTheKeyAndStopsTheClient) {
    EXPECT_EQ(run("setOrbwebuuid="), "setOrbwebuuid done");
    EXPECT_EQ(calls(), (Calls{set_call("UUID", ""), kCommit, shell_call("killall orbwebm2m")}));
    expect_stored("UUID", "", "");
}

TEST_F(P2pTest, SetOrbwebUuidWithoutSetReplyFailsAndStartsNothing) {
    nvram_rule("set", R"("mode":"error")");
    const std::string id = kNewId;
    EXPECT_EQ(run("setOrbwebuuid=" + id), "setOrbwebuuid failed");
    EXPECT_EQ(calls(), (Calls{shell_call("killall orbwebm2m"), get_call("TUTK_USERNAME"), get_call("TUTK_PASSWORD"),
                              set_call("UUID", id), kCommit}));
    expect_stored("UUID", kFactoryOrbwebUuid, kFactoryOrbwebUuid);
}

TEST_F(P2pTest, SetOrbwebUuidKeepsEveryAccountTextOneShellWord) {
    put_hostile_account();
    const std::string id = kNewId;
    EXPECT_EQ(run("setOrbwebuuid=" + id), id + "<br>setOrbwebuuid done");
    EXPECT_EQ(calls(), orbweb_start(id, "orbwebm2m -H " + id + " " + kRendezvous + " -B -U " + kHostileUserWord +
                                            " -P " + kHostilePasswordWord + " &"));
    EXPECT_EQ(shell_words_of_line(start_line_of("orbwebm2m"), "orbwebm2m"),
              "[-H][" + id + "][" + kRendezvous + "][-B][-U][" + kHostileUser + "][-P][" + kHostilePassword + "]");
}

TEST_F(P2pTest, SetOrbwebUuidKeepsAHostileIdentifierOneShellWord) {
    const std::string id = "$(echo INJECTED)&123";
    ASSERT_EQ(id.size(), 20u);
    EXPECT_EQ(run("setOrbwebuuid=" + query_escape(id)), id + "<br>setOrbwebuuid done");
    EXPECT_EQ(calls(), orbweb_start(id, "orbwebm2m -H '" + id + "' " + kRendezvous + " -B -U admin -P 888888 &"));
    EXPECT_EQ(shell_words_of_line(start_line_of("orbwebm2m"), "orbwebm2m"),
              "[-H][" + id + "][" + kRendezvous + "][-B][-U][admin][-P][888888]");
    expect_stored("UUID", id, id);
}

// ---- Account and super-user password ----

// The setters are in nvram_setter_test.cpp.

// ---- Account commit ----

TEST_F(P2pTest, P2paccountcommitCommitsTheAccountThenRestartsP2p) {
    EXPECT_EQ(run("setp2pusername=bob&setp2ppwd=s3cret&setSUpwd=root1"),
              "setp2pusername donesetp2ppwd donesetSUpwd done");
    expect_stored("TUTK_USERNAME", "bob", kFactoryUser);
    sim().clear_records();
    EXPECT_EQ(run("p2paccountcommit=1"), "p2paccountcommit done");
    EXPECT_EQ(calls(), (Calls{kCommit, kRestartP2P}));
    expect_stored("TUTK_USERNAME", "bob", "bob");
    expect_stored("TUTK_PASSWORD", "s3cret", "s3cret");
    expect_stored("SU_PASSWORD", "root1", "root1");
}

// A new account reaches the tunnel's start line once it is stored, committed or not.
TEST_F(P2pTest, TunnelStartsWithTheAccountJustStored) {
    const std::string id = kNewId;
    EXPECT_EQ(run("setp2pusername=bob&setp2ppwd=" + query_escape("pass word") + "&setTUTKuuid=" + id),
              "setp2pusername donesetp2ppwd done" + id + "<br>setTUTKuuid done");
    Calls expected{set_call("TUTK_USERNAME", "bob"), set_call("TUTK_PASSWORD", "pass word")};
    for (const std::string &call : tutk_start(id, "P2PTunnelServer " + id + " bob 'pass word' " + kFactorySsid + "&")) {
        expected.push_back(call);
    }
    EXPECT_EQ(calls(), expected);
}

}  // namespace
}  // namespace korvex::test
