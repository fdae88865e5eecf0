// WAN settings through Apache and the bus: the live addresses the platform daemon reports,
// the stored addressing (connection mode, address, netmask, gateway, DNS servers) with the
// values each setter accepts, and "commit", which commits nvram and restarts the WAN.
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/command_test.h"

namespace korvex::test {
namespace {

const std::string kPlatform = "com.korvex-labs.www.platform";
const std::string kNet = kPlatform + " com.KorvexLabs.platform.net ";
const std::string kInitInternet = kNet + "initInternet(i:1)";

std::string net_call(const std::string &member, const std::string &value) {
    return kNet + member + "(s:" + value + ")";
}

class WanTest : public CommandTest {
  protected:
    void net_rule(const std::string &member, const std::string &mode) {
        sim().set_rule(R"({"destination":"com.korvex-labs.www.platform","interface":"com.KorvexLabs.platform.net",)"
                       R"("member":")" + member + R"(",)" + mode + "}");
    }
    // Stores `value` as both the working and the committed text, so that a later change of
    // either copy shows.
    void put_committed(const std::string &key, const std::string &value) { sim().nvram_put(key, value, true); }
};

// ---- Live values: the query value goes to the platform daemon as it stands ----

// The relays' rules are in text_relay_test.cpp; these are the simulator's leases.
TEST_F(WanTest, LiveValuesOfTheSimulator) {
    EXPECT_EQ(run("getip=eth2.2&getnetmask=eth2.2&getgateway=eth2.2&getdnsserver=eth2.2"),
              "192.168.1.57<br>getip done255.255.255.0<br>getnetmask done192.168.1.1<br>getgateway done"
              "192.168.1.1<br>getdnsserver done");
    EXPECT_EQ(calls(), (Calls{net_call("getip", "eth2.2"), net_call("getnetmask", "eth2.2"),
                              net_call("getgateway", "eth2.2"), net_call("getdns", "eth2.2")}));
}

// ---- Connection mode ----

TEST_F(WanTest, SetconnectmodeStoresStaticWithoutCommitting) {
    EXPECT_EQ(run("setconnectmode=STATIC"), "setconnectmode done");
    EXPECT_EQ(calls(), Calls{set_call("wanConnectionMode", "STATIC")});
    expect_stored("wanConnectionMode", "STATIC", "DHCP");
}

TEST_F(WanTest, SetconnectmodeStoresDhcpWithoutCommitting) {
    put_committed("wanConnectionMode", "STATIC");
    EXPECT_EQ(run("setconnectmode=DHCP"), "setconnectmode done");
    EXPECT_EQ(calls(), Calls{set_call("wanConnectionMode", "DHCP")});
    expect_stored("wanConnectionMode", "DHCP", "STATIC");
}

class WanConnectModeRefusalTest : public WanTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(WanConnectModeRefusalTest, FailsWithoutSetCall) {
    put_committed("wanConnectionMode", "STATIC");
    EXPECT_EQ(run("setconnectmode=" + GetParam()), "setconnectmode failed");
    EXPECT_EQ(calls(), Calls{});
    expect_stored("wanConnectionMode", "STATIC", "STATIC");
}

// The mode is compared byte for byte: case matters and nothing is trimmed.
INSTANTIATE_TEST_SUITE_P(Values, WanConnectModeRefusalTest,
                         ::testing::Values("dhcp", "Static", "", "DHCP%20", "PPPOE"),
                         [](const ::testing::TestParamInfo<std::string> &info) {
                             return "Value" + std::to_string(info.index);
                         });

// ---- Address setters: inet_addr decides, the text is stored as given, nothing committed ----

struct AddressSetter {
    const char *command;
    const char *key;
    const char *factory;  // the key's value in the factory settings
};

void PrintTo(const AddressSetter &p, std::ostream *os) { *os << p.command; }

class WanAddressSetterTest : public WanTest, public ::testing::WithParamInterface<AddressSetter> {
  protected:
    std::string command() const { return GetParam().command; }
    std::string key() const { return GetParam().key; }
    std::string factory() const { return GetParam().factory; }
};

TEST_P(WanAddressSetterTest, ShortFormIsStoredAsGivenWithoutCommitting) {
    EXPECT_EQ(run(command() + "=10.1"), command() + " done");
    EXPECT_EQ(calls(), Calls{set_call(key(), "10.1")});
    expect_stored(key(), "10.1", factory());
}

TEST_P(WanAddressSetterTest, DottedQuadIsStored) {
    EXPECT_EQ(run(command() + "=172.16.0.9"), command() + " done");
    EXPECT_EQ(calls(), Calls{set_call(key(), "172.16.0.9")});
    expect_stored(key(), "172.16.0.9", factory());
}

TEST_P(WanAddressSetterTest, HexadecimalAndOctalPartsAreAccepted) {
    for (const std::string value : {"0x0a.0.0.1", "012.1.1.1"}) {
        SCOPED_TRACE(value);
        sim().clear_records();
        EXPECT_EQ(run(command() + "=" + value), command() + " done");
        EXPECT_EQ(calls(), Calls{set_call(key(), value)});
        expect_stored(key(), value, factory());
    }
}

TEST_P(WanAddressSetterTest, RefusedValuesFailWithoutSetCall) {
    // "255.255.255.255" cannot be told from inet_addr's error value, so it is refused too.
    for (const std::string value : {"255.255.255.255", "abc", "", "1.2.3.4.5", "256.1.1.1"}) {
        SCOPED_TRACE(value);
        EXPECT_EQ(run(command() + "=" + value), command() + " failed");
        EXPECT_EQ(calls(), Calls{});
        expect_stored(key(), factory(), factory());
    }
}

INSTANTIATE_TEST_SUITE_P(Commands, WanAddressSetterTest,
                         ::testing::Values(AddressSetter{"setstaticip", "wan_ipaddr", "192.168.1.100"},
                                           AddressSetter{"setnetmask", "wan_netmask", "255.255.255.0"},
                                           AddressSetter{"setgateway", "wan_gateway", "192.168.1.1"},
                                           AddressSetter{"setdns", "wan_primary_dns", "8.8.8.8"},
                                           AddressSetter{"setdns2nd", "wan_secondary_dns", "8.8.4.4"}),
                         CommandName());

// ---- Both DNS servers from "primary;secondary" ----

class WanDnsServerTest : public WanTest {
  protected:
    void SetUp() override {
        WanTest::SetUp();
        put_committed("wan_primary_dns", "1.0.0.1");
        put_committed("wan_secondary_dns", "1.0.0.2");
    }
    void expect_servers(const std::string &primary, const std::string &secondary) {
        expect_stored("wan_primary_dns", primary, "1.0.0.1");
        expect_stored("wan_secondary_dns", secondary, "1.0.0.2");
    }
};

TEST_F(WanDnsServerTest, StoresBothServersWithoutCommitting) {
    EXPECT_EQ(run("setdnsserver=8.8.8.8;8.8.4.4"), "setdnsserver done");
    EXPECT_EQ(calls(), (Calls{set_call("wan_primary_dns", "8.8.8.8"), set_call("wan_secondary_dns", "8.8.4.4")}));
    expect_servers("8.8.8.8", "8.8.4.4");
}

TEST_F(WanDnsServerTest, EscapedSeparatorWorksTheSame) {
    EXPECT_EQ(run("setdnsserver=9.9.9.9%3B149.112.112.112"), "setdnsserver done");
    EXPECT_EQ(calls(),
              (Calls{set_call("wan_primary_dns", "9.9.9.9"), set_call("wan_secondary_dns", "149.112.112.112")}));
    expect_servers("9.9.9.9", "149.112.112.112");
}

TEST_F(WanDnsServerTest, BadSecondaryStoresThePrimaryAndFails) {
    EXPECT_EQ(run("setdnsserver=8.8.8.8;bad"), "setdnsserver failed");
    EXPECT_EQ(calls(), Calls{set_call("wan_primary_dns", "8.8.8.8")});
    expect_servers("8.8.8.8", "1.0.0.2");
}

TEST_F(WanDnsServerTest, BadPrimaryStillStoresTheSecondaryAndFails) {
    EXPECT_EQ(run("setdnsserver=bad;9.9.9.9"), "setdnsserver failed");
    EXPECT_EQ(calls(), Calls{set_call("wan_secondary_dns", "9.9.9.9")});
    expect_servers("1.0.0.1", "9.9.9.9");
}

TEST_F(WanDnsServerTest, EmptyValueStoresNothingAndIsDone) {
    EXPECT_EQ(run("setdnsserver="), "setdnsserver done");
    EXPECT_EQ(calls(), Calls{});
    expect_servers("1.0.0.1", "1.0.0.2");
}

TEST_F(WanDnsServerTest, SeparatorsAloneStoreNothingAndAreDone) {
    EXPECT_EQ(run("setdnsserver=;;"), "setdnsserver done");
    EXPECT_EQ(calls(), Calls{});
    expect_servers("1.0.0.1", "1.0.0.2");
}

TEST_F(WanDnsServerTest, EmptyFieldsAreSkippedSoTheFirstAddressIsThePrimary) {
    EXPECT_EQ(run("setdnsserver=;;1.1.1.1"), "setdnsserver done");
    EXPECT_EQ(calls(), Calls{set_call("wan_primary_dns", "1.1.1.1")});
    expect_servers("1.1.1.1", "1.0.0.2");
}

TEST_F(WanDnsServerTest, EmptyFieldBetweenTheAddressesIsSkipped) {
    EXPECT_EQ(run("setdnsserver=1.1.1.1;;;2.2.2.2;"), "setdnsserver done");
    EXPECT_EQ(calls(), (Calls{set_call("wan_primary_dns", "1.1.1.1"), set_call("wan_secondary_dns", "2.2.2.2")}));
    expect_servers("1.1.1.1", "2.2.2.2");
}

TEST_F(WanDnsServerTest, ThirdAddressIsIgnored) {
    EXPECT_EQ(run("setdnsserver=1.1.1.1;2.2.2.2;3.3.3.3"), "setdnsserver done");
    EXPECT_EQ(calls(), (Calls{set_call("wan_primary_dns", "1.1.1.1"), set_call("wan_secondary_dns", "2.2.2.2")}));
    expect_servers("1.1.1.1", "2.2.2.2");
}

TEST_F(WanDnsServerTest, BadThirdFieldDoesNotFail) {
    EXPECT_EQ(run("setdnsserver=1.1.1.1;2.2.2.2;bad"), "setdnsserver done");
    EXPECT_EQ(calls(), (Calls{set_call("wan_primary_dns", "1.1.1.1"), set_call("wan_secondary_dns", "2.2.2.2")}));
    expect_servers("1.1.1.1", "2.2.2.2");
}

TEST_F(WanDnsServerTest, SingleAddressSetsOnlyThePrimary) {
    EXPECT_EQ(run("setdnsserver=10.1"), "setdnsserver done");
    EXPECT_EQ(calls(), Calls{set_call("wan_primary_dns", "10.1")});
    expect_servers("10.1", "1.0.0.2");
}

TEST_F(WanDnsServerTest, BothBadFailsAndStoresNothing) {
    EXPECT_EQ(run("setdnsserver=255.255.255.255;x"), "setdnsserver failed");
    EXPECT_EQ(calls(), Calls{});
    expect_servers("1.0.0.1", "1.0.0.2");
}

// ---- Commit: nvram first, then the WAN restarts with what was committed ----

TEST_F(WanTest, CommitCommitsThenRestartsTheWan) {
    EXPECT_EQ(run("setconnectmode=STATIC&setstaticip=10.1&setdnsserver=9.9.9.9;1.1.1.1"),
              "setconnectmode donesetstaticip donesetdnsserver done");
    expect_stored("wan_ipaddr", "10.1", "192.168.1.100");
    sim().clear_records();

    EXPECT_EQ(run("commit="), "commit done");
    EXPECT_EQ(calls(), (Calls{kCommit, kInitInternet}));
    expect_stored("wanConnectionMode", "STATIC", "STATIC");
    expect_stored("wan_ipaddr", "10.1", "10.1");
    expect_stored("wan_primary_dns", "9.9.9.9", "9.9.9.9");
    expect_stored("wan_secondary_dns", "1.1.1.1", "1.1.1.1");
}

TEST_F(WanTest, CommitIgnoresTheRestartsAnswer) {
    net_rule("initInternet", R"("mode":"values","signature":"i","values":[-1])");
    EXPECT_EQ(run("commit="), "commit done");
    EXPECT_EQ(calls(), (Calls{kCommit, kInitInternet}));
}

}  // namespace
}  // namespace korvex::test
