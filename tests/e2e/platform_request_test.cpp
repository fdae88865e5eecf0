// The commands of "network.cgi" that hand the platform daemon a fixed errand: commit nvram
// and restart a service, ask for a refresh, reset the configuration. Each makes the same
// calls whatever the platform answers, prints nothing and is done, even when the platform
// refuses every call or is not on the bus (then it makes none). One table holds every such
// command with its calls and the call that does its errand.
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/command_test.h"

namespace korvex::test {
namespace {

constexpr char kPlatform[] = "com.korvex-labs.www.platform";
constexpr char kAdminIf[] = "com.KorvexLabs.platform.admin";
constexpr char kNetIf[] = "com.KorvexLabs.platform.net";
constexpr char kWeBeHomeIf[] = "com.KorvexLabs.platform.webehome";
constexpr char kConfigIf[] = "com.KorvexLabs.platform.config";

// Stands for the decoded query value in a row's calls.
constexpr char kValue[] = "<value>";

struct PlatformRequest {
    const char *command;
    std::vector<std::string> calls;  // in order; kValue stands for the query value
    const char *errand_interface;    // the call that does the errand, refused in the tests
    const char *errand_member;
    bool commits;                    // commits nvram (the other calls are the errand's)
};
void PrintTo(const PlatformRequest &p, std::ostream *os) { *os << p.command; }

const std::string kAdmin = std::string(kPlatform) + " " + kAdminIf + " ";

const std::vector<PlatformRequest> kRequests = {
    // Commits, then restarts the WAN with what was committed.
    {"commit", {kCommit, std::string(kPlatform) + " " + kNetIf + " initInternet(i:1)"}, kNetIf, "initInternet", true},
    // Commits the P2P account, then restarts P2P.
    {"p2paccountcommit", {kCommit, kAdmin + "restartP2P(s:restart)"}, kAdminIf, "restartP2P", true},
    // Commits the cloud socket settings, then restarts the cloud service.
    {"socketcommit", {kCommit, kAdmin + "restart(s:icloud)"}, kAdminIf, "restart", true},
    // Restarts the NTP client, then commits.
    {"ntpcommit", {shell_call("killall ntpclient"), shell_call("ntp.sh &"), kCommit}, kAdminIf, "doSystem", true},
    // Asks WeBeHome for a refresh.
    {"refreshWeBeHome", {std::string(kPlatform) + " " + kWeBeHomeIf + " refresh(i:1)"}, kWeBeHomeIf, "refresh", false},
    // Resets the configuration, passing the value as given.
    {"resetconfig", {std::string(kPlatform) + " " + kConfigIf + " reset(s:<value>)"}, kConfigIf, "reset", false},
};

std::vector<PlatformRequest> committing_requests() {
    std::vector<PlatformRequest> committing;
    for (const PlatformRequest &request : kRequests) {
        if (request.commits) committing.push_back(request);
    }
    return committing;
}

// A key whose working copy differs from its committed one before each test.
const char kKey[] = "wan_gateway";

class PlatformRequestTest : public CommandTest, public ::testing::WithParamInterface<PlatformRequest> {
protected:
    void SetUp() override {
        CommandTest::SetUp();
        sim().nvram_put(kKey, "10.0.0.1", true);
        sim().nvram_put(kKey, "10.0.0.2", false);
    }

    std::string command() const { return GetParam().command; }

    // The row's calls for the decoded query value `value`.
    Calls expected_calls(const std::string &value) const {
        Calls calls;
        for (std::string call : GetParam().calls) {
            const size_t at = call.find(kValue);
            if (at != std::string::npos) call.replace(at, sizeof kValue - 1, value);
            calls.push_back(call);
        }
        return calls;
    }
    void refuse_errand() { platform_rule(GetParam().errand_interface, GetParam().errand_member, R"("mode":"error")"); }
};

TEST_P(PlatformRequestTest, MakesItsCallsAndPrintsNothing) {
    EXPECT_EQ(run(command() + "=keep%20network%26wifi"), command() + " done");
    EXPECT_EQ(calls(), expected_calls("keep network&wifi"));
    expect_stored(kKey, "10.0.0.2", GetParam().commits ? "10.0.0.2" : "10.0.0.1");
}

TEST_P(PlatformRequestTest, EmptyValueMakesTheSameCalls) {
    EXPECT_EQ(run(command() + "="), command() + " done");
    EXPECT_EQ(calls(), expected_calls(""));
}

TEST_P(PlatformRequestTest, IsDoneWhenThePlatformRefusesEveryCall) {
    refuse_errand();
    nvram_rule("commit", R"("mode":"error")");
    EXPECT_EQ(run(command() + "=1"), command() + " done");
    EXPECT_EQ(calls(), expected_calls("1"));
    expect_stored(kKey, "10.0.0.2", "10.0.0.1");
}

TEST_P(PlatformRequestTest, IsDoneWithoutCallsWhenThePlatformIsAbsent) {
    sim().set_absent(kPlatform, true);
    EXPECT_EQ(run(command() + "=x"), command() + " done");
    EXPECT_EQ(calls(), Calls{});
}

INSTANTIATE_TEST_SUITE_P(Commands, PlatformRequestTest, ::testing::ValuesIn(kRequests), CommandName());

// The commit does not wait on the errand's success.
class CommittingPlatformRequestTest : public PlatformRequestTest {};

TEST_P(CommittingPlatformRequestTest, CommitsEvenWhenTheErrandIsRefused) {
    refuse_errand();
    EXPECT_EQ(run(command() + "=1"), command() + " done");
    EXPECT_EQ(calls(), expected_calls("1"));
    expect_stored(kKey, "10.0.0.2", "10.0.0.2");
}

INSTANTIATE_TEST_SUITE_P(Commands, CommittingPlatformRequestTest, ::testing::ValuesIn(committing_requests()),
                         CommandName());

}  // namespace
}  // namespace korvex::test
