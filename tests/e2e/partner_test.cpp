// Partner services through Apache and the bus: the Telldus bridge (its secret, the Wi-Fi
// radio it switches off and the shell line that starts it), the Vivotek camera proxy and the
// 433 MHz test transmission (the WeBeHome refresh is in platform_request_test.cpp).
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/command_test.h"
#include "tests/support/shell_words.h"

namespace korvex::test {
namespace {

const std::string kPlatform = "com.korvex-labs.www.platform ";
const std::string kGetMac = kPlatform + "com.KorvexLabs.platform.net getMac(s:eth2.2)";
const std::string kTelldus = "com.korvex-labs.www.Telldus";
const std::string kTest433 = kTelldus + " com.KorvexLabs.Telldus.send433 test(s:";

// The simulated gateway's Ethernet address (eth2.2).
const std::string kMac = "00:4f:61:12:34:56";
const std::string kSecret = "a1B2c3D4e5";

// ---- 433 MHz frames, built here bit by bit ----

constexpr std::uint32_t kOnCode = 0xBAD7D511;
constexpr std::uint32_t kOffCode = 0xBAD7D501;

std::string rf_frame(std::uint32_t code) {
    std::vector<std::string> bytes{"01", "00", "14", "18", "ff", "18"};
    for (int bit = 31; bit >= 0; --bit) {
        const bool one = (code & (std::uint32_t{1} << bit)) != 0;
        const std::vector<std::string> symbol =
            one ? std::vector<std::string>{"7f", "18", "18", "18"} : std::vector<std::string>{"18", "18", "7f", "18"};
        bytes.insert(bytes.end(), symbol.begin(), symbol.end());
    }
    std::string text;
    for (size_t i = 0; i < bytes.size(); ++i) text += (i ? "," : "") + bytes[i];
    return text;
}

std::vector<std::string> split_bytes(const std::string &frame) {
    std::vector<std::string> bytes;
    std::stringstream in(frame);
    std::string byte;
    while (std::getline(in, byte, ',')) bytes.push_back(byte);
    return bytes;
}

class PartnerTest : public CommandTest {
protected:
    static Calls telldus_start(const std::string &secret, const std::string &read_back) {
        return Calls{shell_call("killall Telldus"), set_call("TelldusSecret", secret), set_call("WifiMode", "OFF"),
                     kCommit, kGetMac, get_call("TelldusSecret"), shell_call("Telldus " + kMac + " " + read_back)};
    }
};

// ---- Telldus bridge ----

TEST_F(PartnerTest, SetTelldusSecretWithTenCharactersStartsTheBridgeAndSwitchesWifiOff) {
    EXPECT_EQ(run("setTelldusSecret=" + kSecret), kSecret + "<br>setTelldusSecret done");
    EXPECT_EQ(calls(), telldus_start(kSecret, kSecret));
    expect_stored("TelldusSecret", kSecret, kSecret);
    expect_stored("WifiMode", "OFF", "OFF");
}

// What is printed and passed to the bridge is the secret as the platform reads it back.
TEST_F(PartnerTest, SetTelldusSecretPrintsAndStartsWithTheSecretReadBack) {
    nvram_rule("get", R"("mode":"values","signature":"s","values":["zyxwvutsrq"])");
    EXPECT_EQ(run("setTelldusSecret=" + kSecret), "zyxwvutsrq<br>setTelldusSecret done");
    Calls expected = telldus_start(kSecret, "zyxwvutsrq");
    EXPECT_EQ(calls(), expected);
    expect_stored("TelldusSecret", kSecret, kSecret);
}

TEST_F(PartnerTest, SetTelldusSecretKeepsAHostileSecretOneShellWord) {
    const std::string secret = "x;echo 'Y'";
    ASSERT_EQ(secret.size(), 10u);
    EXPECT_EQ(run("setTelldusSecret=" + query_escape(secret)), secret + "<br>setTelldusSecret done");
    EXPECT_EQ(calls(), (Calls{shell_call("killall Telldus"), set_call("TelldusSecret", secret),
                              set_call("WifiMode", "OFF"), kCommit, kGetMac, get_call("TelldusSecret"),
                              shell_call("Telldus " + kMac + R"( 'x;echo '\''Y'\''')")}));
    EXPECT_EQ(shell_words_of_line(start_line_of("Telldus"), "Telldus"), "[" + kMac + "][" + secret + "]");
    expect_stored("TelldusSecret", secret, secret);
}

TEST_F(PartnerTest, SetTelldusSecretQuotesASecretReadBackThatIsNoPlainWord) {
    nvram_rule("get", R"("mode":"values","signature":"s","values":["$(echo INJECTED) && echo INJECTED"])");
    EXPECT_EQ(run("setTelldusSecret=" + kSecret), "$(echo INJECTED) && echo INJECTED<br>setTelldusSecret done");
    EXPECT_EQ(calls().back(), shell_call("Telldus " + kMac + " '$(echo INJECTED) && echo INJECTED'"));
    EXPECT_EQ(shell_words_of_line(start_line_of("Telldus"), "Telldus"), "[" + kMac + "][$(echo INJECTED) && echo INJECTED]");
}

TEST_F(PartnerTest, SetTelldusSecretWithoutEthernetAddressStartsNothingButIsDone) {
    platform_rule("com.KorvexLabs.platform.net", "getMac", R"("mode":"error")");
    EXPECT_EQ(run("setTelldusSecret=" + kSecret), kSecret + "<br>setTelldusSecret done");
    EXPECT_EQ(calls(), (Calls{shell_call("killall Telldus"), set_call("TelldusSecret", kSecret),
                              set_call("WifiMode", "OFF"), kCommit, kGetMac, get_call("TelldusSecret")}));
    expect_stored("TelldusSecret", kSecret, kSecret);
    expect_stored("WifiMode", "OFF", "OFF");
}

TEST_F(PartnerTest, SetTelldusSecretWithUnreadableSecretPrintsNullStartsNothingAndIsDone) {
    nvram_rule("get", R"("mode":"error")");
    EXPECT_EQ(run("setTelldusSecret=" + kSecret), "(null)<br>setTelldusSecret done");
    EXPECT_EQ(calls(), (Calls{shell_call("killall Telldus"), set_call("TelldusSecret", kSecret),
                              set_call("WifiMode", "OFF"), kCommit, kGetMac, get_call("TelldusSecret")}));
}

struct WrongSecret {
    const char *name;
    const char *value;
};
void PrintTo(const WrongSecret &p, std::ostream *os) { *os << p.name; }

class PartnerWrongSecretTest : public PartnerTest, public ::testing::WithParamInterface<WrongSecret> {};

TEST_P(PartnerWrongSecretTest, IsRefusedWithoutAnyCallOrChange) {
    sim().nvram_put("TelldusSecret", "0123456789", true);
    sim().nvram_put("WifiMode", "OFF", true);
    EXPECT_EQ(run(std::string("setTelldusSecret=") + GetParam().value), "setTelldusSecret failed");
    EXPECT_EQ(calls(), Calls{});
    expect_stored("TelldusSecret", "0123456789", "0123456789");
    expect_stored("WifiMode", "OFF", "OFF");
}

INSTANTIATE_TEST_SUITE_P(Lengths, PartnerWrongSecretTest,
                         ::testing::Values(WrongSecret{"nine", "a1B2c3D4e"}, WrongSecret{"eleven", "a1B2c3D4e5f"},
                                           WrongSecret{"one", "1"}),
                         [](const ::testing::TestParamInfo<WrongSecret> &info) { return info.param.name; });

TEST_F(PartnerTest, SetTelldusSecretEmptyStopsTheBridgeAndSwitchesTheAccessPointBackOn) {
    sim().nvram_put("TelldusSecret", kSecret, true);
    sim().nvram_put("WifiMode", "OFF", true);
    EXPECT_EQ(run("setTelldusSecret="), "<br>setTelldusSecret done");
    EXPECT_EQ(calls(), (Calls{set_call("TelldusSecret", ""), set_call("WifiMode", "AP"), kCommit,
                              get_call("TelldusSecret"), shell_call("killall Telldus")}));
    expect_stored("TelldusSecret", "", "");
    expect_stored("WifiMode", "AP", "AP");
}

TEST_F(PartnerTest, SetTelldusSecretEmptyWithUnreadableSecretPrintsNull) {
    nvram_rule("get", R"("mode":"error")");
    EXPECT_EQ(run("setTelldusSecret="), "(null)<br>setTelldusSecret done");
    EXPECT_EQ(calls(), (Calls{set_call("TelldusSecret", ""), set_call("WifiMode", "AP"), kCommit,
                              get_call("TelldusSecret"), shell_call("killall Telldus")}));
}

// ---- Vivotek camera proxy ----

TEST_F(PartnerTest, SetvivotekuuidStartsTheProxyThenCommits) {
    EXPECT_EQ(run("setvivotekuuid=ABC"), "ABC<br>setvivotekuuid done");
    EXPECT_EQ(calls(), (Calls{set_call("VivotekUuid", "ABC"), get_call("VivotekUuid"),
                              shell_call("p2pproxyserver ABC &"), kCommit}));
    expect_stored("VivotekUuid", "ABC", "ABC");
}

TEST_F(PartnerTest, SetvivotekuuidEmptyStopsTheProxyThenCommits) {
    sim().nvram_put("VivotekUuid", "ABC", true);
    EXPECT_EQ(run("setvivotekuuid="), "<br>setvivotekuuid done");
    EXPECT_EQ(calls(), (Calls{set_call("VivotekUuid", ""), get_call("VivotekUuid"),
                              shell_call("killall p2pproxyserver"), kCommit}));
    expect_stored("VivotekUuid", "", "");
}

// The proxy starts with the identifier as the platform reads it back, and that is printed.
TEST_F(PartnerTest, SetvivotekuuidStartsAndPrintsWithTheValueReadBack) {
    nvram_rule("get", R"("mode":"values","signature":"s","values":["XYZ-42"])");
    EXPECT_EQ(run("setvivotekuuid=ABC"), "XYZ-42<br>setvivotekuuid done");
    EXPECT_EQ(calls(), (Calls{set_call("VivotekUuid", "ABC"), get_call("VivotekUuid"),
                              shell_call("p2pproxyserver XYZ-42 &"), kCommit}));
    expect_stored("VivotekUuid", "ABC", "ABC");
}

// A read-back that says the key is empty stops the proxy whatever was given.
TEST_F(PartnerTest, SetvivotekuuidStopsTheProxyWhenTheValueReadBackIsEmpty) {
    nvram_rule("get", R"("mode":"values","signature":"s","values":[""])");
    EXPECT_EQ(run("setvivotekuuid=ABC"), "<br>setvivotekuuid done");
    EXPECT_EQ(calls(), (Calls{set_call("VivotekUuid", "ABC"), get_call("VivotekUuid"),
                              shell_call("killall p2pproxyserver"), kCommit}));
}

TEST_F(PartnerTest, SetvivotekuuidWithUnreadableValuePrintsNullAndStopsTheProxy) {
    nvram_rule("get", R"("mode":"error")");
    EXPECT_EQ(run("setvivotekuuid=ABC"), "(null)<br>setvivotekuuid done");
    EXPECT_EQ(calls(), (Calls{set_call("VivotekUuid", "ABC"), get_call("VivotekUuid"),
                              shell_call("killall p2pproxyserver"), kCommit}));
    expect_stored("VivotekUuid", "ABC", "ABC");
}

TEST_F(PartnerTest, SetvivotekuuidKeepsAHostileIdentifierOneShellWord) {
    const std::string id = "cam 1';echo INJECTED;`echo INJECTED`\necho INJECTED";
    EXPECT_EQ(run("setvivotekuuid=" + query_escape(id)), id + "<br>setvivotekuuid done");
    EXPECT_EQ(calls(), (Calls{set_call("VivotekUuid", id), get_call("VivotekUuid"),
                              shell_call("p2pproxyserver 'cam 1'\\'';echo INJECTED;`echo INJECTED`\necho INJECTED' &"),
                              kCommit}));
    EXPECT_EQ(shell_words_of_line(start_line_of("p2pproxyserver"), "p2pproxyserver"), "[" + id + "]");
    expect_stored("VivotekUuid", id, id);
}

// ---- 433 MHz test transmission ----

// The frames as sent: 134 bytes each, equal but for the four bytes of bit 4 (the on/off bit).
TEST_F(PartnerTest, Test433OnAndOffFramesDifferOnlyInTheOnOffBit) {
    EXPECT_EQ(run("test433=1"), "test433 done");
    EXPECT_EQ(run("test433=0"), "test433 done");
    const std::vector<SimRecord> records = sim().records();
    ASSERT_EQ(records.size(), 2u);
    ASSERT_EQ(records[0].args.size(), 1u);
    ASSERT_EQ(records[1].args.size(), 1u);
    const std::string on = records[0].args[0].substr(2);
    const std::string off = records[1].args[0].substr(2);
    EXPECT_EQ(on, rf_frame(kOnCode));
    EXPECT_EQ(off, rf_frame(kOffCode));
    ASSERT_EQ(on.size(), 401u);
    ASSERT_EQ(off.size(), 401u);
    EXPECT_EQ(on.substr(0, 29), "01,00,14,18,ff,18,7f,18,18,18");
    const std::vector<std::string> on_bytes = split_bytes(on);
    const std::vector<std::string> off_bytes = split_bytes(off);
    ASSERT_EQ(on_bytes.size(), 134u);
    ASSERT_EQ(off_bytes.size(), 134u);
    // Bit 4 is the 28th bit sent: its four bytes follow the six of the header and start.
    const size_t first = 6 + (31 - 4) * 4;
    for (size_t i = 0; i < on_bytes.size(); ++i) {
        EXPECT_EQ(on_bytes[i].size(), 2u) << i;
        if (i < first || i >= first + 4) {
            EXPECT_EQ(on_bytes[i], off_bytes[i]) << i;
        }
    }
    EXPECT_EQ(std::vector<std::string>(on_bytes.begin() + first, on_bytes.begin() + first + 4),
              (std::vector<std::string>{"7f", "18", "18", "18"}));
    EXPECT_EQ(std::vector<std::string>(off_bytes.begin() + first, off_bytes.begin() + first + 4),
              (std::vector<std::string>{"18", "18", "7f", "18"}));
}

struct Rf433Value {
    const char *name;
    const char *query_value;
    bool on;
};
void PrintTo(const Rf433Value &p, std::ostream *os) { *os << p.name; }

class PartnerTest433 : public PartnerTest, public ::testing::WithParamInterface<Rf433Value> {};

TEST_P(PartnerTest433, SendsTheFrameOfTheLeadingInteger) {
    EXPECT_EQ(run(std::string("test433=") + GetParam().query_value), "test433 done");
    EXPECT_EQ(calls(), Calls{kTest433 + rf_frame(GetParam().on ? kOnCode : kOffCode) + ")"});
}

TEST_P(PartnerTest433, IsDoneWithTheTelldusDaemonAbsent) {
    sim().set_absent(kTelldus, true);
    EXPECT_EQ(run(std::string("test433=") + GetParam().query_value), "test433 done");
    EXPECT_EQ(calls(), Calls{});
}

INSTANTIATE_TEST_SUITE_P(Values, PartnerTest433,
                         ::testing::Values(Rf433Value{"one", "1", true}, Rf433Value{"zero", "0", false},
                                           Rf433Value{"text", "abc", false}, Rf433Value{"empty", "", false},
                                           Rf433Value{"minus_one", "-1", true}, Rf433Value{"seven_x", "7x", true},
                                           Rf433Value{"zero_one", "01", true}, Rf433Value{"blank_two", "%202", true}),
                         [](const ::testing::TestParamInfo<Rf433Value> &info) { return info.param.name; });

TEST_F(PartnerTest, Test433IgnoresAnErrorReply) {
    sim().set_rule(R"({"destination":"com.korvex-labs.www.Telldus","mode":"error"})");
    EXPECT_EQ(run("test433=1"), "test433 done");
    EXPECT_EQ(calls(), Calls{kTest433 + rf_frame(kOnCode) + ")"});
}

}  // namespace
}  // namespace korvex::test
