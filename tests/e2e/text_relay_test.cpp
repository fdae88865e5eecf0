// The relays of "network.cgi": each sends one text to one daemon (the decoded query value, or
// a fixed text of its own) and prints the reply as it stands followed by "<br>", then
// "<command> done". Without an answer (no daemon, an error reply) it prints nothing and
// fails. One table holds every such command with the call it makes.
#include <ostream>
#include <string>

#include "tests/support/command_test.h"

namespace korvex::test {
namespace {

constexpr char kApp[] = "com.korvex-labs.www.app";
constexpr char kAppIf[] = "com.KorvexLabs.app";
constexpr char kSdk[] = "com.korvex-labs.www.sdk";
constexpr char kSdkEasyIf[] = "com.KorvexLabs.easy.command";
constexpr char kSocket[] = "com.korvex-labs.www.socket";
constexpr char kSocketIf[] = "com.KorvexLabs.socket.cmd";
constexpr char kPlatform[] = "com.korvex-labs.www.platform";
constexpr char kNetIf[] = "com.KorvexLabs.platform.net";

struct TextRelay {
    const char *command;
    const char *destination;
    const char *interface;
    const char *member;
    const char *fixed_text = nullptr;  // sent instead of the query value, when given
};
void PrintTo(const TextRelay &p, std::ostream *os) { *os << p.command; }

const TextRelay kRelays[] = {
    // The application daemon's queries and scenes.
    {"jsongettitles", kApp, kAppIf, "jsongettitles"},
    {"jsongetgroup", kApp, kAppIf, "jsongetgroup"},
    {"jsongetall", kApp, kAppIf, "jsongetall"},
    {"jsongetevent", kApp, kAppIf, "jsongeteventbyseq"},
    {"jsongetmacroevent", kApp, kAppIf, "jsongetmacroeventbyseq"},
    {"doscene", kApp, kAppIf, "doscene"},
    // The Z-Wave SDK's named commands.
    {"easycmd", kSdk, kSdkEasyIf, "name"},
    // The socket daemon's fixed requests.
    {"authcode", kSocket, kSocketIf, "command", "authcode"},
    {"proctable", kSocket, kSocketIf, "command", "proctable"},
    {"sysinfo", kSocket, kSocketIf, "command", "sysinfo"},
    {"disconnect_icloud", kSocket, kSocketIf, "command", "disconnect_icloud"},
    // The WAN's live addresses, asked of the platform daemon for the interface given.
    {"getip", kPlatform, kNetIf, "getip"},
    {"getnetmask", kPlatform, kNetIf, "getnetmask"},
    {"getgateway", kPlatform, kNetIf, "getgateway"},
    {"getdnsserver", kPlatform, kNetIf, "getdns"},
};

class TextRelayTest : public CommandTest, public ::testing::WithParamInterface<TextRelay> {
protected:
    std::string command() const { return GetParam().command; }

    // The call the relay makes for the query value `value`.
    std::string call(const std::string &value) const {
        const TextRelay &p = GetParam();
        return std::string(p.destination) + " " + p.interface + " " + p.member + "(s:" +
               (p.fixed_text != nullptr ? std::string(p.fixed_text) : value) + ")";
    }
    // Makes the relay's daemon answer its member with `mode`.
    void relay_rule(const std::string &mode) {
        const TextRelay &p = GetParam();
        rule(p.destination, p.interface, p.member, mode);
    }
};

TEST_P(TextRelayTest, SendsTheDecodedValueAndPrintsTheReplyAsItStands) {
    relay_rule(R"("mode":"values","signature":"s","values":["answer \"42\" <i>"])");
    EXPECT_EQ(run(command() + "=%7B%22seq%22%3A1021%7D%20a%3Bb%27"),
              "answer \"42\" <i><br>" + command() + " done");
    EXPECT_EQ(calls(), Calls{call("{\"seq\":1021} a;b'")});
}

TEST_P(TextRelayTest, EmptyValueIsSentAsEmptyText) {
    relay_rule(R"("mode":"values","signature":"s","values":["x"])");
    EXPECT_EQ(run(command() + "="), "x<br>" + command() + " done");
    EXPECT_EQ(calls(), Calls{call("")});
}

TEST_P(TextRelayTest, ReplyWithoutArgumentPrintsNullAndIsDone) {
    relay_rule(R"("mode":"noarg")");
    EXPECT_EQ(run(command() + "=1"), "(null)<br>" + command() + " done");
    EXPECT_EQ(calls(), Calls{call("1")});
}

TEST_P(TextRelayTest, ErrorReplyPrintsNothingAndFails) {
    relay_rule(R"("mode":"error")");
    EXPECT_EQ(run(command() + "=1"), command() + " failed");
    EXPECT_EQ(calls(), Calls{call("1")});
}

TEST_P(TextRelayTest, AbsentDaemonPrintsNothingAndFails) {
    sim().set_absent(GetParam().destination, true);
    EXPECT_EQ(run(command() + "=1"), command() + " failed");
    EXPECT_EQ(calls(), Calls{});
}

INSTANTIATE_TEST_SUITE_P(Commands, TextRelayTest, ::testing::ValuesIn(kRelays), CommandName());

}  // namespace
}  // namespace korvex::test
