// Time and NTP through Apache and the bus: the NTP client's switch, server and interval,
// the zone chosen by number from the platform's table, the clock and the NTP restart (the
// astronomical clock's position is in app_told_setter_test.cpp).
#include <ctime>
#include <ostream>
#include <regex>
#include <string>

#include "korvex_utils.h"
#include "tests/support/command_test.h"

namespace korvex::test {
namespace {

class TimeTest : public CommandTest {
protected:
    // The zone string and offset name of zone number k (from 1).
    static std::string zone(int k) { return sdk_tz_get(k - 1); }
    static std::string zone_name(int k) { return sdk_gmt_get(k - 1); }
};

// ---- NTP client switch ----

TEST_F(TimeTest, DisablentpclientOneStopsTheClientAndKeepsItOff) {
    EXPECT_EQ(run("disablentpclient=1"), "disablentpclient done");
    EXPECT_EQ(calls(), (Calls{shell_call("killall ntpclient"), set_call("NTPDisable", "1"), kCommit}));
    expect_stored("NTPDisable", "1", "1");
}

struct SwitchOn {
    const char *command;
    const char *query_value;
};
void PrintTo(const SwitchOn &p, std::ostream *os) { *os << p.command; }

class TimeSwitchOnTest : public TimeTest, public ::testing::WithParamInterface<SwitchOn> {};

// Only "1" switches the client off: "0", the empty value and any other text switch it on
// and run the start script in the foreground.
TEST_P(TimeSwitchOnTest, EveryOtherValueSwitchesTheClientOn) {
    sim().nvram_put("NTPDisable", "1", true);
    EXPECT_EQ(run(std::string("disablentpclient=") + GetParam().query_value), "disablentpclient done");
    EXPECT_EQ(calls(), (Calls{shell_call("killall ntpclient"), set_call("NTPDisable", "0"), shell_call("ntp.sh"),
                              kCommit}));
    expect_stored("NTPDisable", "0", "0");
}

INSTANTIATE_TEST_SUITE_P(Values, TimeSwitchOnTest,
                         ::testing::Values(SwitchOn{"zero", "0"}, SwitchOn{"empty", ""}, SwitchOn{"yes", "yes"},
                                           SwitchOn{"one_with_blank", "1%20"}, SwitchOn{"eleven", "11"}),
                         CommandName());

TEST_F(TimeTest, DisablentpclientIsDoneWhenThePlatformDoesNotAnswer) {
    platform_rule("com.KorvexLabs.platform.admin", "doSystem", R"("mode":"error")");
    platform_rule("com.KorvexLabs.platform.nvram", "commit", R"("mode":"error")");
    EXPECT_EQ(run("disablentpclient=0"), "disablentpclient done");
    EXPECT_EQ(calls().size(), 4u);
}

// The stop waits at most 3 s for the platform, not the 5 s of the NTP restart.
TEST_F(TimeTest, DisablentpclientWaitsThreeSecondsForEachShellLine) {
    platform_rule("com.KorvexLabs.platform.admin", "doSystem", R"("mode":"silent")");
    EXPECT_EQ(run("disablentpclient=1"), "disablentpclient done");
    EXPECT_GE(elapsed_ms(), 2900);
    EXPECT_LT(elapsed_ms(), 4800);
}

// ---- Server and interval ----

// The server's setter is in nvram_setter_test.cpp.

TEST_F(TimeTest, SetntpsynctimeStoresTheValueAsGivenWhenItsLeadingIntegerIsPositive) {
    EXPECT_EQ(run("setntpsynctime=5min"), "setntpsynctime done");
    EXPECT_EQ(run("setntpsynctime=1"), "setntpsynctime done");
    EXPECT_EQ(calls(), (Calls{set_call("NTPSync", "5min"), set_call("NTPSync", "1")}));
    expect_stored("NTPSync", "1", "24");
}

TEST_F(TimeTest, SetntpsynctimeRefusesZeroNegativeAndText) {
    EXPECT_EQ(run("setntpsynctime=0"), "setntpsynctime failed");
    EXPECT_EQ(run("setntpsynctime=-5"), "setntpsynctime failed");
    EXPECT_EQ(run("setntpsynctime=min5"), "setntpsynctime failed");
    EXPECT_EQ(run("setntpsynctime="), "setntpsynctime failed");
    EXPECT_EQ(calls(), Calls{});
    expect_stored("NTPSync", "24", "24");
}

// ---- Time zone ----

TEST_F(TimeTest, SettimezoneStoresTheZoneStringAndItsNameWithoutCommitting) {
    EXPECT_EQ(run("settimezone=1"), "settimezone done");
    EXPECT_EQ(calls(), (Calls{set_call("TimeZone", zone(1)), set_call("TZ_name", zone_name(1))}));
    expect_stored("TimeZone", zone(1), "MET_001");
    expect_stored("TZ_name", zone_name(1), "(GMT+01:00) Amsterdam, Berlin, Rome, Stockholm, Vienna");
}

TEST_F(TimeTest, SettimezoneAtTheCountStoresTheLastZone) {
    const int count = sdk_tz_count();
    EXPECT_EQ(run("settimezone=" + std::to_string(count)), "settimezone done");
    EXPECT_EQ(calls(), (Calls{set_call("TimeZone", zone(count)), set_call("TZ_name", zone_name(count))}));
}

TEST_F(TimeTest, SettimezoneOutsideOneToTheCountFails) {
    EXPECT_EQ(run("settimezone=0"), "settimezone failed");
    EXPECT_EQ(run("settimezone=" + std::to_string(sdk_tz_count() + 1)), "settimezone failed");
    EXPECT_EQ(run("settimezone=-3"), "settimezone failed");
    EXPECT_EQ(run("settimezone=Berlin"), "settimezone failed");
    EXPECT_EQ(calls(), Calls{});
    expect_stored("TimeZone", "MET_001", "MET_001");
}

TEST_F(TimeTest, SettimezoneReadsTheLeadingInteger) {
    EXPECT_EQ(run("settimezone=17abc"), "settimezone done");
    EXPECT_EQ(calls(), (Calls{set_call("TimeZone", zone(17)), set_call("TZ_name", zone_name(17))}));
}

TEST_F(TimeTest, GettimezonePrintsTheNumberOfTheZoneJustSet) {
    EXPECT_EQ(run("settimezone=3&gettimezone="), "settimezone done3<br>gettimezone done");
    EXPECT_EQ(calls(),
              (Calls{set_call("TimeZone", zone(3)), set_call("TZ_name", zone_name(3)), get_call("TimeZone")}));
}

// Mountain Time and Arizona share one zone string: the lower number is reported.
TEST_F(TimeTest, GettimezoneReportsTheFirstOfTwoZonesSharingAString) {
    int first = 0, second = 0;
    for (int k = 1; k <= sdk_tz_count() && second == 0; ++k) {
        for (int j = 1; j < k; ++j) {
            if (zone(j) == zone(k)) {
                first = j;
                second = k;
                break;
            }
        }
    }
    ASSERT_NE(second, 0) << "the platform table has no two zones sharing a string";
    EXPECT_EQ(run("settimezone=" + std::to_string(second) + "&gettimezone="),
              "settimezone done" + std::to_string(first) + "<br>gettimezone done");
    EXPECT_EQ(sim().nvram("TZ_name"), zone_name(second));
}

TEST_F(TimeTest, GettimezoneOfAStringNotInTheTableFailsSilently) {
    sim().nvram_put("TimeZone", "Europe/Berlin", true);
    EXPECT_EQ(run("gettimezone="), "gettimezone failed");
    EXPECT_EQ(calls(), Calls{get_call("TimeZone")});
}

TEST_F(TimeTest, GettimezoneWithoutAnAnswerFailsSilently) {
    platform_rule("com.KorvexLabs.platform.nvram", "get", R"("mode":"error")");
    EXPECT_EQ(run("gettimezone="), "gettimezone failed");
}

TEST_F(TimeTest, GettimezoneOfTheFactoryZone) {
    EXPECT_EQ(run("gettimezone="), "17<br>gettimezone done");
}

// ---- Clock ----

TEST_F(TimeTest, GettimePrintsTheCtimeTextWithItsLineFeedBeforeTheBreak) {
    const std::string body = run("gettime=");
    const std::regex form(R"(^(Sun|Mon|Tue|Wed|Thu|Fri|Sat) (Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) )"
                          R"([ 123][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9] [0-9]{4}\n<br>gettime done$)");
    EXPECT_TRUE(std::regex_match(body, form)) << body;
    EXPECT_EQ(calls(), Calls{});
    // The text is within the request's time: the server's zone is the test's (both UTC or
    // both from the same TZ), so compare with ctime of the bounds.
    char earliest[26], latest[26];
    const std::time_t sent = sent_at(), answered = answered_at();
    ctime_r(&sent, earliest);
    ctime_r(&answered, latest);
    const std::string shown = body.substr(0, 25);
    EXPECT_TRUE(shown == earliest || shown == latest) << shown << " not in [" << earliest << ", " << latest << "]";
}

// ---- NTP restart ----

TEST_F(TimeTest, NtpcommitRestartsTheClientAndCommits) {
    sim().nvram_put("NTPDisable", "1", true);
    EXPECT_EQ(run("setntpserver=ntp.example&ntpcommit="), "setntpserver donentpcommit done");
    EXPECT_EQ(calls(), (Calls{set_call("NTPServerIP", "ntp.example"), shell_call("killall ntpclient"),
                              shell_call("ntp.sh &"), kCommit}));
    expect_stored("NTPServerIP", "ntp.example", "ntp.example");
}

}  // namespace
}  // namespace korvex::test
