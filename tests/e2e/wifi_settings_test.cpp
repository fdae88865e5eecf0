// Wi-Fi settings through Apache and the bus: the radio's role, the access-point and station
// SSIDs and passphrases (stored in the platform's working nvram, never committed by the
// setters) and the country region (the platform's own nvram library, committed at once).
#include <chrono>
#include <fstream>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/command_test.h"
#include "tests/support/log_lines.h"

namespace korvex::test {
namespace {

// The factory settings the simulator starts every test with.
const char kFactoryWifiMode[] = "AP";

class WifiTest : public CommandTest {
  protected:
    // The radio role is asserted through its trace line too.
    static void SetUpTestSuite() { use_log_level(KORVEX_LOG_TRACE); }
};

// ---- SSID and passphrase: the setters are in nvram_setter_test.cpp ----

TEST_F(WifiTest, SetThenGetRoundTripsThroughTheWorkingCopy) {
    EXPECT_EQ(run("setstassid=Cafe%20Wlan&getstassid="), "Cafe Wlan<br>setstassid doneCafe Wlan<br>getstassid done");
    EXPECT_EQ(calls(), (Calls{set_call("STA_SSID1", "Cafe Wlan"), get_call("STA_SSID1")}));
}

// ---- Radio role ----

struct Role {
    const char *name;   // test name
    const char *value;  // query value
    const char *stored;
};

void PrintTo(const Role &p, std::ostream *os) { *os << p.name; }

struct RoleName {
    std::string operator()(const ::testing::TestParamInfo<Role> &info) const { return info.param.name; }
};

class WifiModeTest : public WifiTest, public ::testing::WithParamInterface<Role> {};

TEST_P(WifiModeTest, StoresTheRoleWithoutCommitAndPrintsNothing) {
    EXPECT_EQ(run(std::string("setwifimode=") + GetParam().value), "setwifimode done");
    EXPECT_EQ(calls(), Calls{set_call("WifiMode", GetParam().stored)});
    EXPECT_EQ(sim().nvram("WifiMode"), GetParam().stored);
    EXPECT_EQ(sim().nvram_committed("WifiMode"), kFactoryWifiMode);
}

INSTANTIATE_TEST_SUITE_P(Values, WifiModeTest,
                         ::testing::Values(Role{"MixedCaseSta", "Sta", "STA"}, Role{"LowerAp", "ap", "AP"},
                                           Role{"UpperOff", "OFF", "OFF"}, Role{"LowerOff", "off", "OFF"},
                                           Role{"UnknownIsAp", "bogus", "AP"}, Role{"EmptyIsAp", "", "AP"},
                                           Role{"PaddedIsUnknown", "%20sta", "AP"}),
                         RoleName());

TEST_F(WifiModeTest, UnknownRoleOverwritesAnEarlierOne) {
    sim().nvram_put("WifiMode", "STA", false);
    EXPECT_EQ(run("setwifimode=station"), "setwifimode done");
    EXPECT_EQ(sim().nvram("WifiMode"), "AP");
}

TEST_F(WifiModeTest, TraceShowsTheLowerCasedValue) {
    const size_t since = env().error_log_size();
    EXPECT_EQ(run("setwifimode=StA"), "setwifimode done");
    ASSERT_TRUE(env().wait_for_log("enter setWifiMode", std::chrono::seconds(2), since));
    EXPECT_EQ(module_log_lines(env().error_log_since(since), "enter setWifiMode"),
              std::vector<std::string>{"[korvex:debug] [pid N] setWifiMode:L apache: enter setWifiMode, value: 'sta'"});
    EXPECT_EQ(sim().nvram("WifiMode"), "STA");
}

TEST_F(WifiModeTest, NoSetReplyIsStillDone) {
    nvram_rule("set", R"("mode":"error")");
    EXPECT_EQ(run("setwifimode=off"), "setwifimode done");
    EXPECT_EQ(calls(), Calls{set_call("WifiMode", "OFF")});
    EXPECT_EQ(sim().nvram("WifiMode"), kFactoryWifiMode);
}

// ---- Country region: the platform's nvram library, section 1, committed at once ----

class CountryRegionTest : public WifiTest {
  protected:
    static std::string section_file() {
        std::ifstream in(env().run_dir() + "/nvram-sections/section1.conf");
        std::ostringstream text;
        text << in.rdbuf();
        return text.str();
    }
    // The region store outlives the simulator's reset: every test starts from a known value.
    void start_from(const std::string &region) {
        ASSERT_EQ(run("set_wifi_country_region=" + region), "set_wifi_country_region done");
        ASSERT_EQ(section_file(), "CountryRegion=" + region + "\n");
    }
};

struct Region {
    const char *name;
    const char *value;   // query value
    const char *stored;  // "" when refused
};

void PrintTo(const Region &p, std::ostream *os) { *os << p.name; }

struct RegionName {
    std::string operator()(const ::testing::TestParamInfo<Region> &info) const { return info.param.name; }
};

class CountryRegionValueTest : public CountryRegionTest, public ::testing::WithParamInterface<Region> {};

TEST_P(CountryRegionValueTest, AcceptedValueIsCommittedAtOnceAsItsNumber) {
    start_from("3");
    EXPECT_EQ(run(std::string("set_wifi_country_region=") + GetParam().value), "set_wifi_country_region done");
    EXPECT_EQ(section_file(), std::string("CountryRegion=") + GetParam().stored + "\n");
    EXPECT_EQ(run("get_wifi_country_region="), std::string(GetParam().stored) + "<br>get_wifi_country_region done");
    EXPECT_EQ(calls(), Calls{});
}

INSTANTIATE_TEST_SUITE_P(Accepted, CountryRegionValueTest,
                         ::testing::Values(Region{"ThirtyOne", "31", "31"}, Region{"Seven", "7", "7"},
                                           Region{"Zero", "0", "0"}, Region{"LeadingZero", "05", "5"},
                                           Region{"LeadingBlank", "%205", "5"}),
                         RegionName());

class CountryRegionRefusedTest : public CountryRegionTest, public ::testing::WithParamInterface<Region> {};

TEST_P(CountryRegionRefusedTest, RefusedValueFailsAndWritesNothing) {
    start_from("3");
    EXPECT_EQ(run(std::string("set_wifi_country_region=") + GetParam().value), "set_wifi_country_region failed");
    EXPECT_EQ(section_file(), "CountryRegion=3\n");
    EXPECT_EQ(run("get_wifi_country_region="), "3<br>get_wifi_country_region done");
    EXPECT_EQ(calls(), Calls{});
}

INSTANTIATE_TEST_SUITE_P(Refused, CountryRegionRefusedTest,
                         ::testing::Values(Region{"Eight", "8", ""}, Region{"MinusOne", "-1", ""},
                                           Region{"Letters", "abc", ""}, Region{"ThirtyTwo", "32", ""},
                                           Region{"Thirty", "30", ""}, Region{"Empty", "", ""}),
                         RegionName());

TEST_F(CountryRegionTest, GetterPrintsWhatTheSetterCommitted) {
    start_from("1");
    EXPECT_EQ(run("get_wifi_country_region=ignored"), "1<br>get_wifi_country_region done");
    EXPECT_EQ(run("set_wifi_country_region=31&get_wifi_country_region="),
              "set_wifi_country_region done31<br>get_wifi_country_region done");
    EXPECT_EQ(calls(), Calls{});
}

}  // namespace
}  // namespace korvex::test
