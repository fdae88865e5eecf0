// The simulated platform daemon's settings store: working copy, commit, listing.
#include <algorithm>
#include <fstream>
#include <sstream>

#include "tests/sim/simulator_fixture.h"

namespace korvex::test {
namespace {

using namespace korvex::peer;

class SimulatorNvramTest : public SimulatorTest {
  protected:
    CallOutcome nvram_get(const std::string &key) { return caller_->call(kPlatform, kIfNvram, "get", RawBusCaller::str(key)); }

    CallOutcome nvram_set(const std::string &key, const std::string &value) {
        return caller_->call(kPlatform, kIfNvram, "set", [&](DBusMessage *message) {
            const char *k = key.c_str();
            const char *v = value.c_str();
            dbus_message_append_args(message, DBUS_TYPE_STRING, &k, DBUS_TYPE_STRING, &v, DBUS_TYPE_INVALID);
        });
    }

    std::string committed_file_text() {
        std::ifstream in(bus_->nvram_file());
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }
};

TEST_F(SimulatorNvramTest, CommittedFileIsCreatedFromTheDefaults) {
    std::string text = committed_file_text();
    EXPECT_NE(text.find("SSID1=Korvex-QTR58-3457\n"), std::string::npos) << text;
    EXPECT_NE(text.find("TimeZone=MET_001\n"), std::string::npos) << text;
    EXPECT_EQ(text.find('#'), std::string::npos) << "comments of the defaults file are not settings";
}

TEST_F(SimulatorNvramTest, GetAnswersTheWorkingValueAndEmptyTextWhenUnset) {
    CallOutcome ssid = nvram_get("SSID1");
    ASSERT_EQ(ssid.error_name, "");
    EXPECT_EQ(ssid.signature, "s");
    EXPECT_EQ(ssid.string_arg(), "Korvex-QTR58-3457");
    EXPECT_EQ(nvram_get("TZ_name").string_arg(), "(GMT+01:00) Amsterdam, Berlin, Rome, Stockholm, Vienna");

    CallOutcome unset = nvram_get("NoSuchKey");
    ASSERT_EQ(unset.error_name, "");
    EXPECT_EQ(unset.string_arg(), "");
}

TEST_F(SimulatorNvramTest, SetChangesOnlyTheWorkingCopyAndAnswersTheStoredValue) {
    CallOutcome set = nvram_set("SSID1", "Holiday \"flat\" \xc3\xa9");
    ASSERT_EQ(set.error_name, "");
    EXPECT_EQ(set.signature, "s");
    EXPECT_EQ(set.string_arg(), "Holiday \"flat\" \xc3\xa9");

    EXPECT_EQ(nvram_get("SSID1").string_arg(), "Holiday \"flat\" \xc3\xa9");
    EXPECT_EQ(sim_->nvram("SSID1"), "Holiday \"flat\" \xc3\xa9");
    EXPECT_EQ(sim_->nvram_committed("SSID1"), "Korvex-QTR58-3457");
}

TEST_F(SimulatorNvramTest, CommitWritesTheWorkingCopyToTheFile) {
    nvram_set("NTPServerIP", "time.example.net");
    nvram_set("Note", "two\nlines \\ here");
    CallOutcome commit = caller_->call(kPlatform, kIfNvram, "commit", RawBusCaller::str(kNvramCommitArgument));
    ASSERT_EQ(commit.error_name, "");
    EXPECT_EQ(commit.signature, "i");
    EXPECT_EQ(commit.int_arg(), 0);

    EXPECT_EQ(sim_->nvram_committed("NTPServerIP"), "time.example.net");
    EXPECT_EQ(sim_->nvram_committed("Note"), "two\nlines \\ here");
    std::string text = committed_file_text();
    EXPECT_NE(text.find("NTPServerIP=time.example.net\n"), std::string::npos) << text;
    EXPECT_NE(text.find("Note=two\\nlines \\\\ here\n"), std::string::npos) << text;
}

TEST_F(SimulatorNvramTest, GetListAnswersSortedLinesOfThePrefix) {
    CallOutcome wan = caller_->call(kPlatform, kIfNvram, "getList", RawBusCaller::str("wan_"));
    ASSERT_EQ(wan.error_name, "");
    EXPECT_EQ(wan.signature, "as");
    EXPECT_EQ(wan.strings_arg(),
              (std::vector<std::string>{"wan_gateway=192.168.1.1", "wan_ipaddr=192.168.1.100",
                                        "wan_netmask=255.255.255.0", "wan_primary_dns=8.8.8.8",
                                        "wan_secondary_dns=8.8.4.4"}));

    nvram_set("PPPoE_UserName", "alice@isp");
    EXPECT_EQ(caller_->call(kPlatform, kIfNvram, "getList", RawBusCaller::str("PPPoE_User")).strings_arg(),
              (std::vector<std::string>{"PPPoE_UserName=alice@isp"}));
    EXPECT_TRUE(caller_->call(kPlatform, kIfNvram, "getList", RawBusCaller::str("zzz")).strings_arg().empty());
}

TEST_F(SimulatorNvramTest, GetListWithEmptyPrefixListsEverything) {
    std::vector<std::string> all =
        caller_->call(kPlatform, kIfNvram, "getList", RawBusCaller::str("")).strings_arg();
    ASSERT_GT(all.size(), 40u);
    std::vector<std::string> keys;
    for (const std::string &line : all)
        keys.push_back(line.substr(0, line.find('=')));
    EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
    EXPECT_NE(std::find(all.begin(), all.end(), "WifiMode=AP"), all.end());
}

TEST_F(SimulatorNvramTest, NvramPutSetsTheWorkingCopyAndCommitsOnRequest) {
    sim_->nvram_put("HostName", "attic", false);
    EXPECT_EQ(sim_->nvram("HostName"), "attic");
    EXPECT_EQ(sim_->nvram_committed("HostName"), "korvex-gateway");

    sim_->nvram_put("language", "2", true);
    EXPECT_EQ(sim_->nvram("language"), "2");
    EXPECT_EQ(sim_->nvram_committed("language"), "2");
    EXPECT_EQ(sim_->nvram_committed("HostName"), "korvex-gateway") << "other changes stay uncommitted";
    EXPECT_TRUE(sim_->records().empty()) << "set-up through the control interface is not recorded";
}

TEST_F(SimulatorNvramTest, ControlQueriesTellUnsetFromEmpty) {
    EXPECT_EQ(sim_->nvram("NoSuchKey"), std::nullopt);
    EXPECT_EQ(sim_->nvram_committed("NoSuchKey"), std::nullopt);
    EXPECT_EQ(sim_->nvram("VivotekUuid"), "");
    EXPECT_EQ(sim_->nvram_committed("VivotekUuid"), "");
}

TEST_F(SimulatorNvramTest, ResetBringsBackTheDefaultsInBothCopies) {
    nvram_set("WifiMode", "STA");
    caller_->call(kPlatform, kIfNvram, "commit", RawBusCaller::str("commit"));
    nvram_set("SSID1", "changed");
    ASSERT_EQ(sim_->nvram_committed("WifiMode"), "STA");

    sim_->reset();
    EXPECT_EQ(sim_->nvram("WifiMode"), "AP");
    EXPECT_EQ(sim_->nvram_committed("WifiMode"), "AP");
    EXPECT_EQ(sim_->nvram("SSID1"), "Korvex-QTR58-3457");
}

TEST_F(SimulatorNvramTest, WrongArgumentTypesAreRefused) {
    CallOutcome outcome = caller_->call(kPlatform, kIfNvram, "get", RawBusCaller::int32(3));
    EXPECT_EQ(outcome.error_name, "org.freedesktop.DBus.Error.InvalidArgs");
    CallOutcome missing_value = caller_->call(kPlatform, kIfNvram, "set", RawBusCaller::str("SSID1"));
    EXPECT_EQ(missing_value.error_name, "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(sim_->nvram("SSID1"), "Korvex-QTR58-3457");
}

}  // namespace
}  // namespace korvex::test
