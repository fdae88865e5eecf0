// The setters of "network.cgi" that tell the application: each stores its decoded value under
// the key named like the command, sends it to the application's member of the same name, then
// commits, and prints nothing, its own value or the application's reply. Without the
// application the value is still stored and committed. One table holds every such command.
#include <ostream>
#include <string>

#include "tests/support/command_test.h"

namespace korvex::test {
namespace {

constexpr char kApp[] = "com.korvex-labs.www.app";
constexpr char kAppIf[] = "com.KorvexLabs.app";

// What a setter prints before "<command> done".
enum class Prints {
    kNothing,
    kValue,     // the value given, then "<br>"
    kAppReply,  // the application's reply ("(null)" without one), then "<br>"
};

struct AppToldSetter {
    const char *command;
    Prints prints;
    bool fails_without_app = false;  // without the application: "<command> failed", nothing printed
};
void PrintTo(const AppToldSetter &p, std::ostream *os) { *os << p.command; }

const AppToldSetter kSetters[] = {
    // The astronomical clock's position.
    {"setastclock_lon", Prints::kNothing},
    {"setastclock_lat", Prints::kNothing},
    // The clock's switch, the scene mode and the P2P reconnection.
    {"enableastclock", Prints::kAppReply},
    {"doscenemode", Prints::kAppReply, true},
    {"p2preconnect", Prints::kValue},
};

class AppToldSetterTest : public CommandTest, public ::testing::WithParamInterface<AppToldSetter> {
protected:
    std::string command() const { return GetParam().command; }

    std::string answer(const std::string &value, const std::string &app_reply) const {
        switch (GetParam().prints) {
            case Prints::kNothing:
                return command() + " done";
            case Prints::kValue:
                return value + "<br>" + command() + " done";
            case Prints::kAppReply:
                return app_reply + "<br>" + command() + " done";
        }
        return "";
    }
    std::string app_call(const std::string &value) const {
        return std::string(kApp) + " " + kAppIf + " " + command() + "(s:" + value + ")";
    }
};

// The application hears the value before the commit.
TEST_P(AppToldSetterTest, StoresTellsTheApplicationThenCommits) {
    rule(kApp, kAppIf, command(), R"("mode":"values","signature":"s","values":["told <i>"])");
    EXPECT_EQ(run(command() + "=-122.4194%20north"), answer("-122.4194 north", "told <i>"));
    EXPECT_EQ(calls(), (Calls{set_call(command(), "-122.4194 north"), app_call("-122.4194 north"), kCommit}));
    expect_stored(command(), "-122.4194 north", "-122.4194 north");
}

TEST_P(AppToldSetterTest, WithoutTheApplicationStillStoresAndCommits) {
    sim().set_absent(kApp, true);
    EXPECT_EQ(run(command() + "=1"), GetParam().fails_without_app ? command() + " failed" : answer("1", "(null)"));
    EXPECT_EQ(calls(), (Calls{set_call(command(), "1"), kCommit}));
    expect_stored(command(), "1", "1");
}

INSTANTIATE_TEST_SUITE_P(Commands, AppToldSetterTest, ::testing::ValuesIn(kSetters), CommandName());

}  // namespace
}  // namespace korvex::test
