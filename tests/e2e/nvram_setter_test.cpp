// The plain setters of "network.cgi": each stores its decoded value under one key of the
// platform's working nvram (and commits it, for some), then prints nothing, the value, the
// reply to the set or the value read back, followed by "<command> done". Some refuse an
// empty value or one longer than their limit, with the refusal text before "failed", and
// store nothing then. One table holds every such command with its rules and its factory value
// (sim/nvram_defaults.conf).
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/command_test.h"
#include "tests/support/shell_words.h"

namespace korvex::test {
namespace {

// What a setter prints before "<command> done".
enum class Prints {
    kNothing,
    kValue,      // the value given, then "<br>"
    kSetReply,   // the platform's reply to the set ("(null)" without one), then "<br>"
    kReadBack,   // the key read back after the set ("(null)" without an answer), then "<br>"
};

struct NvramSetter {
    const char *command;
    const char *key;
    const char *factory;
    bool commits;
    Prints prints;
    const char *then = "";        // a call made after the commit, "" for none
    size_t max_bytes = 0;         // 0: no limit
    const char *refusal = "";     // printed before "failed" for a value over the limit
    bool refuses_empty = false;   // an empty value fails without a call
};
void PrintTo(const NvramSetter &p, std::ostream *os) { *os << p.command; }

const std::string kSsidTooLong = "ssid string length must small than 32<br>";
const std::string kUserDataChange = "com.korvex-labs.www.sdk com.KorvexLabs.easy.command name(s:userdata_change)";
const std::string kPlatformReboot = "com.korvex-labs.www.platform com.KorvexLabs.platform.admin reboot(i:3)";

const std::vector<NvramSetter> kSetters = {
    // Wi-Fi: the working copy only, until "wificommit"; one refusal text for SSIDs and
    // passphrases alike.
    {"setapssid", "SSID1", "Korvex-QTR58-3457", false, Prints::kSetReply, "", 32, kSsidTooLong.c_str()},
    {"setstassid", "STA_SSID1", "Vodafone-7A21", false, Prints::kSetReply, "", 32, kSsidTooLong.c_str()},
    {"setappwd", "WPAPSK", "k0rvex3457", false, Prints::kValue, "", 32, kSsidTooLong.c_str()},
    {"setstapwd", "STA_WPAPSK", "wohnzimmer2024", false, Prints::kValue, "", 32, kSsidTooLong.c_str()},
    // P2P account and super-user password: the working copy only, until "p2paccountcommit".
    {"setp2pusername", "TUTK_USERNAME", "admin", false, Prints::kNothing, "", 63, "username length > 63<br>"},
    {"setp2ppwd", "TUTK_PASSWORD", "888888", false, Prints::kNothing, "", 63, "password length > 63"},
    {"setSUpwd", "SU_PASSWORD", "su7Qx2rT", false, Prints::kNothing, "", 63, "password length > 63"},
    // PPPoE account: the name until "pppoecommit", the password committed at once.
    {"setpppoeusername", "PPPoE_UserName", "", false, Prints::kNothing, "", 0, "", true},
    {"setpppoepassword", "PPPoE_PassWord", "", true, Prints::kNothing, "", 0, "", true},
    // The customer name: committed, then the platform restarts the gateway.
    {"setcustomername", "customerName", "Korvex", true, Prints::kNothing, kPlatformReboot.c_str()},
    // The NTP server, until "ntpcommit".
    {"setntpserver", "NTPServerIP", "pool.ntp.org", false, Prints::kNothing, "", 0, "", true},
    // Application flags; the check boxes tell the SDK that the user data changed.
    {"jsonsetcheckbox", "jsonsetcheckbox", "3", true, Prints::kSetReply, kUserDataChange.c_str()},
    {"jsonsetcheckbox2", "jsonsetcheckbox2", "0", true, Prints::kSetReply, kUserDataChange.c_str()},
    {"setsavingtime", "setsavingtime", "0", true, Prints::kSetReply},
    {"enableswitchall", "enableswitchall", "1", true, Prints::kSetReply},
    {"enabletimer", "enabletimer", "1", true, Prints::kSetReply},
    // Cloud socket settings and the test-mode flag.
    {"setsocketaddr", "socketAddr", "203.0.113.25", true, Prints::kReadBack},
    {"setsocketport", "socketPort", "8883", true, Prints::kReadBack},
    {"setsocketsec", "socketSec", "1", false, Prints::kReadBack},
    {"settestmode", "testmode", "0", true, Prints::kReadBack},
};

std::vector<NvramSetter> limited_setters() {
    std::vector<NvramSetter> limited;
    for (const NvramSetter &setter : kSetters) {
        if (setter.max_bytes != 0) limited.push_back(setter);
    }
    return limited;
}

class NvramSetterTest : public CommandTest, public ::testing::WithParamInterface<NvramSetter> {
protected:
    std::string command() const { return GetParam().command; }
    std::string key() const { return GetParam().key; }

    // The calls of a stored `value`: the set, the commit, the read-back, the call after.
    Calls stored_calls(const std::string &value) const {
        Calls calls{set_call(key(), value)};
        if (GetParam().commits) calls.push_back(kCommit);
        if (GetParam().prints == Prints::kReadBack) calls.push_back(get_call(key()));
        if (*GetParam().then != '\0') calls.push_back(GetParam().then);
        return calls;
    }
    // The answer to a stored `value` when the set replies `set_reply` and the read-back
    // gives `read_back`.
    std::string answer(const std::string &value, const std::string &set_reply, const std::string &read_back) const {
        switch (GetParam().prints) {
            case Prints::kNothing:
                return command() + " done";
            case Prints::kValue:
                return value + "<br>" + command() + " done";
            case Prints::kSetReply:
                return set_reply + "<br>" + command() + " done";
            case Prints::kReadBack:
                return read_back + "<br>" + command() + " done";
        }
        return "";
    }
    // Stored `value` in the working copy, and in the committed one when the setter commits.
    void expect_kept(const std::string &value) {
        expect_stored(key(), value, GetParam().commits ? value : GetParam().factory);
    }
};

// Blanks, quotes and shell characters are stored as the decoded value stands.
TEST_P(NvramSetterTest, StoresTheDecodedValueAsItStands) {
    const std::string value = "a b'c\"d;$(e)";
    EXPECT_EQ(run(command() + "=" + query_escape(value)), answer(value, value, value));
    EXPECT_EQ(calls(), stored_calls(value));
    expect_kept(value);
}

TEST_P(NvramSetterTest, EmptyValueIsStoredUnlessTheSetterRefusesIt) {
    sim().nvram_put(key(), "before", true);
    if (GetParam().refuses_empty) {
        EXPECT_EQ(run(command() + "="), command() + " failed");
        EXPECT_EQ(calls(), Calls{});
        expect_stored(key(), "before", "before");
    } else {
        EXPECT_EQ(run(command() + "="), answer("", "", ""));
        EXPECT_EQ(calls(), stored_calls(""));
        expect_stored(key(), "", GetParam().commits ? "" : "before");
    }
}

TEST_P(NvramSetterTest, PrintsTheSetReplyOrTheReadBackAsThePlatformGivesThem) {
    nvram_rule("set", R"("mode":"values","signature":"s","values":["stored <elsewhere>"])");
    nvram_rule("get", R"("mode":"values","signature":"s","values":["read <elsewhere>"])");
    EXPECT_EQ(run(command() + "=Home"), answer("Home", "stored <elsewhere>", "read <elsewhere>"));
    EXPECT_EQ(calls(), stored_calls("Home"));
}

TEST_P(NvramSetterTest, AFailedReadBackPrintsNullAndKeepsTheValue) {
    nvram_rule("get", R"("mode":"error")");
    EXPECT_EQ(run(command() + "=7"), answer("7", "7", "(null)"));
    EXPECT_EQ(calls(), stored_calls("7"));
    expect_kept("7");
}

TEST_P(NvramSetterTest, IsDoneWhenThePlatformRefusesEverything) {
    nvram_rule("set", R"("mode":"error")");
    nvram_rule("commit", R"("mode":"error")");
    nvram_rule("get", R"("mode":"error")");
    EXPECT_EQ(run(command() + "=7"), answer("7", "(null)", "(null)"));
    EXPECT_EQ(calls(), stored_calls("7"));
    expect_stored(key(), GetParam().factory, GetParam().factory);
}

INSTANTIATE_TEST_SUITE_P(Commands, NvramSetterTest, ::testing::ValuesIn(kSetters), CommandName());

// The limit counts bytes of the decoded value.
class LimitedNvramSetterTest : public NvramSetterTest {};

TEST_P(LimitedNvramSetterTest, StoresTheLongestValueItTakes) {
    const std::string value(GetParam().max_bytes, 'u');
    EXPECT_EQ(run(command() + "=" + value), answer(value, value, value));
    EXPECT_EQ(calls(), stored_calls(value));
    expect_kept(value);
}

TEST_P(LimitedNvramSetterTest, RefusesOneByteMoreWithItsReason) {
    EXPECT_EQ(run(command() + "=" + std::string(GetParam().max_bytes + 1, 'u')),
              GetParam().refusal + command() + " failed");
    EXPECT_EQ(calls(), Calls{});
    expect_stored(key(), GetParam().factory, GetParam().factory);
}

// Two-byte letters and single bytes up to the limit pass; a two-byte letter in place of the
// last byte does not.
TEST_P(LimitedNvramSetterTest, CountsBytesNotLetters) {
    const size_t limit = GetParam().max_bytes;
    std::string fits;
    while (fits.size() + 2 <= limit - 1) fits += "\xC3\xA9";
    fits.resize(limit, 'x');
    const std::string too_long = fits.substr(0, limit - 1) + "\xC3\xA9";
    ASSERT_EQ(too_long.size(), limit + 1);
    EXPECT_EQ(run(command() + "=" + query_escape(too_long)), GetParam().refusal + command() + " failed");
    EXPECT_EQ(run(command() + "=" + query_escape(fits)), answer(fits, fits, fits));
    EXPECT_EQ(calls(), stored_calls(fits));
}

INSTANTIATE_TEST_SUITE_P(Commands, LimitedNvramSetterTest, ::testing::ValuesIn(limited_setters()), CommandName());

}  // namespace
}  // namespace korvex::test
