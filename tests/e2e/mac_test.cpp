// MAC addresses through Apache and the bus: the "setmac" lines that program the Ethernet
// and Wi-Fi addresses, the device name and default SSID derived from them (working and
// committed copies), the restart after setting both, the refusal of malformed addresses,
// and the report of the interfaces' addresses.
#include <chrono>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/command_test.h"
#include "tests/support/log_lines.h"

namespace korvex::test {
namespace {

const std::string kPlatform = "com.korvex-labs.www.platform";
const std::string kIfAdmin = "com.KorvexLabs.platform.admin";
const std::string kIfNet = "com.KorvexLabs.platform.net";
const std::string kGetModel = kPlatform + " " + kIfAdmin + " getModel(s:getModel)";
const std::string kReboot = kPlatform + " " + kIfAdmin + " doSystem(s:reboot &)";

std::string get_mac_call(const std::string &interface) {
    return kPlatform + " " + kIfNet + " getMac(s:" + interface + ")";
}

// The keys the MAC commands may write, with values that differ from anything they write.
const char *const kIdentityKeys[] = {"macType", "DeviceName", "SSID1", "WAN_MAC_ADDR"};

class MacTest : public CommandTest {
  protected:
    void SetUp() override {
        CommandTest::SetUp();
        // Earlier values, stored and committed, so that every write shows.
        sim().nvram_put("macType", "Factory", true);
        sim().nvram_put("DeviceName", "old-device", true);
        sim().nvram_put("SSID1", "old-ssid", true);
        sim().nvram_put("WAN_MAC_ADDR", "02:00:00:00:00:01", true);
        log_before_ = env().error_log_size();
    }

    void expect_committed(const std::string &key, const std::string &value) { expect_stored(key, value, value); }
    void expect_unchanged(const std::string &key) {
        const std::string before = key == "macType"      ? "Factory"
                                   : key == "DeviceName" ? "old-device"
                                   : key == "SSID1"      ? "old-ssid"
                                                         : "02:00:00:00:00:01";
        expect_committed(key, before);
    }
    void expect_all_unchanged() {
        for (const char *key : kIdentityKeys) expect_unchanged(key);
    }

    void model_rule(const std::string &mode) {
        sim().set_rule(R"({"destination":")" + kPlatform + R"(","interface":")" + kIfAdmin +
                       R"(","member":"getModel",)" + mode + "}");
    }

    std::vector<std::string> log_lines(const std::string &containing) {
        return module_log_lines(env().error_log_since(log_before_), containing);
    }

    size_t log_before_ = 0;
};

// ---- Both addresses ----

TEST_F(MacTest, SetMacProgramsBothAddressesNamesTheDeviceAndRestarts) {
    EXPECT_EQ(run("setMAC=00:4f:61:12:34:56"), "eth: 00:4f:61:12:34:56<br>wifi: 00:4f:61:12:34:57<br>setMAC done");
    EXPECT_EQ(calls(), (Calls{shell_call("setmac -l 00:4f:61:12:34:56 -w 00:4f:61:12:34:57"),
                              set_call("macType", "Korvex"), kGetModel,
                              set_call("DeviceName", "QTR58-00:4f:61:12:34:56"),
                              set_call("SSID1", "skylane-00-4f-61-12-34-57"), kCommit,
                              set_call("WAN_MAC_ADDR", "00:4f:61:12:34:56"), kCommit, kReboot}));
    expect_committed("macType", "Korvex");
    expect_committed("DeviceName", "QTR58-00:4f:61:12:34:56");
    expect_committed("SSID1", "skylane-00-4f-61-12-34-57");
    expect_committed("WAN_MAC_ADDR", "00:4f:61:12:34:56");
}

// The Wi-Fi address is the Ethernet one plus one in the last field, without a carry into
// the field before: "ff" becomes "100".
TEST_F(MacTest, SetMacEndingInFfGivesAWifiAddressEndingIn100) {
    EXPECT_EQ(run("setMAC=00:11:22:33:44:ff"), "eth: 00:11:22:33:44:ff<br>wifi: 00:11:22:33:44:100<br>setMAC done");
    EXPECT_EQ(calls(), (Calls{shell_call("setmac -l 00:11:22:33:44:ff -w 00:11:22:33:44:100"),
                              set_call("macType", "Korvex"), kGetModel,
                              set_call("DeviceName", "QTR58-00:11:22:33:44:ff"),
                              set_call("SSID1", "QTR58-00:11:22:33:44:100"), kCommit,
                              set_call("WAN_MAC_ADDR", "00:11:22:33:44:ff"), kCommit, kReboot}));
    expect_committed("SSID1", "QTR58-00:11:22:33:44:100");
    expect_committed("DeviceName", "QTR58-00:11:22:33:44:ff");
}

// How fields are read and written (two digits each) is in tests/unit/mac_address_test.cpp.
TEST_F(MacTest, SetMacWritesUpperCaseHexInLowerCase) {
    EXPECT_EQ(run("setMAC=00:1A:2b:3C:4d:5E"), "eth: 00:1a:2b:3c:4d:5e<br>wifi: 00:1a:2b:3c:4d:5f<br>setMAC done");
    const Calls got = calls();
    ASSERT_EQ(got.size(), 9u);
    EXPECT_EQ(got[0], shell_call("setmac -l 00:1a:2b:3c:4d:5e -w 00:1a:2b:3c:4d:5f"));
    expect_committed("DeviceName", "QTR58-00:1a:2b:3c:4d:5e");
    expect_committed("SSID1", "QTR58-00:1a:2b:3c:4d:5f");
    expect_committed("WAN_MAC_ADDR", "00:1a:2b:3c:4d:5e");
}

// The shell lines' answers are not looked at: everything is still stored and the restart
// still asked for.
TEST_F(MacTest, SetMacGoesOnWhenThePlatformDoesNotRunTheLines) {
    sim().set_rule(R"({"destination":")" + kPlatform + R"(","interface":")" + kIfAdmin +
                   R"(","member":"doSystem","mode":"error"})");
    EXPECT_EQ(run("setMAC=00:4f:61:12:34:56"), "eth: 00:4f:61:12:34:56<br>wifi: 00:4f:61:12:34:57<br>setMAC done");
    EXPECT_EQ(calls().size(), 9u);
    expect_committed("SSID1", "skylane-00-4f-61-12-34-57");
    expect_committed("WAN_MAC_ADDR", "00:4f:61:12:34:56");
}

// ---- Malformed addresses ----

struct BadAddress {
    const char *command;
    const char *log_text;
};
void PrintTo(const BadAddress &p, std::ostream *os) { *os << p.command; }

class MacBadAddressTest : public MacTest, public ::testing::WithParamInterface<BadAddress> {};

TEST_P(MacBadAddressTest, FailsSilentlyWithALogLineAndChangesNothing) {
    const std::string command = GetParam().command;
    const std::vector<std::string> values = {"00:11:22",          "",
                                             "zz:11:22:33:44:55", "00-11-22-33-44-55",
                                             "123:45:67:89:ab:cd", "00:11:22:33:44:%20"};
    for (const std::string &value : values) {
        EXPECT_EQ(run(command + "=" + value), command + " failed") << value;
    }
    EXPECT_EQ(calls(), Calls{});
    expect_all_unchanged();
    ASSERT_TRUE(env().wait_for_log(GetParam().log_text, std::chrono::seconds(5), log_before_));
    EXPECT_EQ(log_lines("[korvex:error]"),
              std::vector<std::string>(values.size(), "[korvex:error] [pid N] " + command +
                                                          ":L apache: " + GetParam().log_text));
}

INSTANTIATE_TEST_SUITE_P(Commands, MacBadAddressTest,
                         ::testing::Values(BadAddress{"setMAC", "setMac: ethMAC error."},
                                           BadAddress{"setEthMAC", "setMac: eth MAC error."},
                                           BadAddress{"setWifiMAC", "setMac: Wifi MAC error."}),
                         CommandName());

// ---- Ethernet address alone ----

TEST_F(MacTest, SetEthMacNamesTheDeviceWithTheFieldsReversedWithoutRestart) {
    EXPECT_EQ(run("setEthMAC=00:11:22:33:44:55"), "eth: 00:11:22:33:44:55<br>setEthMAC done");
    EXPECT_EQ(calls(), (Calls{shell_call("setmac -l 00:11:22:33:44:55"), kGetModel,
                              set_call("DeviceName", "QTR58-55:44:33:22:11:00"), kCommit}));
    expect_committed("DeviceName", "QTR58-55:44:33:22:11:00");
    expect_unchanged("WAN_MAC_ADDR");
    expect_unchanged("macType");
    expect_unchanged("SSID1");
}

TEST_F(MacTest, SetEthMacWritesTwoLowerCaseDigitsPerField) {
    EXPECT_EQ(run("setEthMAC=A:b:C:d:E:0f"), "eth: 0a:0b:0c:0d:0e:0f<br>setEthMAC done");
    EXPECT_EQ(calls(), (Calls{shell_call("setmac -l 0a:0b:0c:0d:0e:0f"), kGetModel,
                              set_call("DeviceName", "QTR58-0f:0e:0d:0c:0b:0a"), kCommit}));
}

// ---- Wi-Fi address alone ----

TEST_F(MacTest, SetWifiMacInTheSkylaneBlockStoresTheSkylaneSsidWithoutRestart) {
    EXPECT_EQ(run("setWifiMAC=00:4f:61:aa:bb:cc"), "wifi: 00:4f:61:aa:bb:cc<br>setWifiMAC done");
    EXPECT_EQ(calls(), (Calls{shell_call("setmac -w 00:4f:61:aa:bb:cc"), kGetModel,
                              set_call("SSID1", "skylane-00-4f-61-aa-bb-cc"), kCommit}));
    expect_committed("SSID1", "skylane-00-4f-61-aa-bb-cc");
    expect_unchanged("DeviceName");
    expect_unchanged("WAN_MAC_ADDR");
    expect_unchanged("macType");
}

struct OtherBlock {
    const char *command;  // test name
    const char *address;
};
void PrintTo(const OtherBlock &p, std::ostream *os) { *os << p.command; }

class MacOtherBlockTest : public MacTest, public ::testing::WithParamInterface<OtherBlock> {};

// Any address outside 00:4f:61 gets the model and the address as its SSID.
TEST_P(MacOtherBlockTest, SetWifiMacStoresTheModelSsid) {
    const std::string address = GetParam().address;
    EXPECT_EQ(run("setWifiMAC=" + address), "wifi: " + address + "<br>setWifiMAC done");
    EXPECT_EQ(calls(), (Calls{shell_call("setmac -w " + address), kGetModel, set_call("SSID1", "QTR58-" + address),
                              kCommit}));
    expect_committed("SSID1", "QTR58-" + address);
}

INSTANTIATE_TEST_SUITE_P(Addresses, MacOtherBlockTest,
                         ::testing::Values(OtherBlock{"first_field", "01:4f:61:aa:bb:cc"},
                                           OtherBlock{"second_field", "00:4e:61:aa:bb:cc"},
                                           OtherBlock{"third_field", "00:4f:62:aa:bb:cc"},
                                           OtherBlock{"elsewhere", "a4:c1:38:00:00:01"}),
                         CommandName());

// ---- The model in the names ----

TEST_F(MacTest, WithoutAModelTheNamesCarryTheAbsentText) {
    model_rule(R"("mode":"error")");
    EXPECT_EQ(run("setMAC=00:11:22:33:44:55"), "eth: 00:11:22:33:44:55<br>wifi: 00:11:22:33:44:56<br>setMAC done");
    expect_committed("DeviceName", "(null)-00:11:22:33:44:55");
    expect_committed("SSID1", "(null)-00:11:22:33:44:56");
    expect_committed("WAN_MAC_ADDR", "00:11:22:33:44:55");
    EXPECT_EQ(run("setEthMAC=00:11:22:33:44:66"), "eth: 00:11:22:33:44:66<br>setEthMAC done");
    expect_committed("DeviceName", "(null)-66:44:33:22:11:00");
    EXPECT_EQ(run("setWifiMAC=00:11:22:33:44:77"), "wifi: 00:11:22:33:44:77<br>setWifiMAC done");
    expect_committed("SSID1", "(null)-00:11:22:33:44:77");
    EXPECT_EQ(calls().size(), 9u + 4u + 4u);
}

TEST_F(MacTest, WithoutAModelTheSkylaneSsidIsUnaffected) {
    model_rule(R"("mode":"error")");
    EXPECT_EQ(run("setMAC=00:4f:61:12:34:56"), "eth: 00:4f:61:12:34:56<br>wifi: 00:4f:61:12:34:57<br>setMAC done");
    expect_committed("DeviceName", "(null)-00:4f:61:12:34:56");
    expect_committed("SSID1", "skylane-00-4f-61-12-34-57");
}

TEST_F(MacTest, TheNamesCarryTheModelThePlatformReports) {
    model_rule(R"("mode":"values","signature":"s","values":["QTR60"])");
    EXPECT_EQ(run("setEthMAC=00:11:22:33:44:55"), "eth: 00:11:22:33:44:55<br>setEthMAC done");
    EXPECT_EQ(run("setWifiMAC=00:11:22:33:44:56"), "wifi: 00:11:22:33:44:56<br>setWifiMAC done");
    expect_committed("DeviceName", "QTR60-55:44:33:22:11:00");
    expect_committed("SSID1", "QTR60-00:11:22:33:44:56");
}

// ---- Report ----

TEST_F(MacTest, GetMacPrintsTheEthernetThenTheWifiAddress) {
    EXPECT_EQ(run("getMAC="), "eth: 00:4f:61:12:34:56<br>wifi: 00:4f:61:12:34:57<br>getMAC done");
    EXPECT_EQ(calls(), (Calls{get_mac_call("eth2.2"), get_mac_call("ra0")}));
}

TEST_F(MacTest, GetMacWithoutAnswersPrintsNullForBothAndIsDone) {
    sim().set_rule(R"({"destination":")" + kPlatform + R"(","interface":")" + kIfNet +
                   R"(","member":"getMac","mode":"error"})");
    EXPECT_EQ(run("getMAC=x"), "eth: (null)<br>wifi: (null)<br>getMAC done");
    EXPECT_EQ(calls(), (Calls{get_mac_call("eth2.2"), get_mac_call("ra0")}));
}

TEST_F(MacTest, GetMacPrintsThePlatformsTextsAsTheyAre) {
    sim().set_rule(R"({"destination":")" + kPlatform + R"(","interface":")" + kIfNet +
                   R"(","member":"getMac","mode":"values","signature":"s","values":["AA:BB <x>"],"times":1})");
    EXPECT_EQ(run("getMAC="), "eth: AA:BB <x><br>wifi: 00:4f:61:12:34:57<br>getMAC done");
}

}  // namespace
}  // namespace korvex::test
