// The system-bus policy shipped in the Debian package (conf/dbus/mod-korvex.conf) opens
// exactly what the module uses: method calls to the (destination, interface) pairs of its
// call table, the replies of the eight daemons, and the two update signals; nothing else.
#include "dbus/peer_catalog.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using Attributes = std::map<std::string, std::string>;
using Pair = std::pair<std::string, std::string>;

struct Rule {
    std::string kind;  // "allow" or "deny"
    Attributes attributes;
};

struct Policy {
    Attributes attributes;
    std::vector<Rule> rules;
};

std::string read_policy_text() {
    std::ifstream in(std::string(KORVEX_SOURCE_DIR) + "/conf/dbus/mod-korvex.conf");
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

Attributes parse_attributes(const std::string &text) {
    static const std::regex attribute(R"re(([A-Za-z_]+)\s*=\s*"([^"]*)")re");
    Attributes attributes;
    for (std::sregex_iterator it(text.begin(), text.end(), attribute), end; it != end; ++it) {
        const bool fresh = attributes.emplace((*it)[1].str(), (*it)[2].str()).second;
        EXPECT_TRUE(fresh) << "attribute given twice: " << (*it)[1].str();
    }
    return attributes;
}

// The <policy> elements of a bus configuration with their <allow>/<deny> rules.
std::vector<Policy> parse_policies(std::string text) {
    text = std::regex_replace(text, std::regex("<!--[\\s\\S]*?-->"), "");
    static const std::regex policy(R"re(<policy\b([^>]*)>([\s\S]*?)</policy>)re");
    static const std::regex rule(R"re(<(allow|deny)\b([^>]*)/>)re");
    std::vector<Policy> policies;
    for (std::sregex_iterator it(text.begin(), text.end(), policy), end; it != end; ++it) {
        Policy parsed{parse_attributes((*it)[1].str()), {}};
        const std::string body = (*it)[2].str();
        for (std::sregex_iterator r(body.begin(), body.end(), rule); r != end; ++r)
            parsed.rules.push_back({(*r)[1].str(), parse_attributes((*r)[2].str())});
        policies.push_back(std::move(parsed));
    }
    return policies;
}

std::set<Pair> catalog_pairs() {
    std::set<Pair> pairs;
    for (const korvex::peer::PeerCall &call : korvex::peer::kAllCalls) pairs.emplace(call.spec->dest, call.spec->ifac);
    return pairs;
}

class BusPolicy : public ::testing::Test {
  protected:
    void SetUp() override {
        const std::string text = read_policy_text();
        ASSERT_FALSE(text.empty()) << "conf/dbus/mod-korvex.conf is missing or empty";
        policies_ = parse_policies(text);
        ASSERT_EQ(policies_.size(), 1u);
    }
    const std::vector<Rule> &rules() const { return policies_[0].rules; }

    // The (first, second) attribute pairs of the rules that carry `selector`; *count is the
    // number of such rules, so that a pair allowed twice shows.
    std::set<Pair> pairs_of(const std::string &selector, const std::string &first, const std::string &second,
                            size_t *count) const {
        std::set<Pair> pairs;
        *count = 0;
        for (const Rule &rule : rules()) {
            if (rule.attributes.count(selector) == 0) continue;
            pairs.emplace(rule.attributes.at(first), rule.attributes.at(second));
            ++*count;
        }
        return pairs;
    }

    std::vector<Policy> policies_;
};

TEST_F(BusPolicy, AppliesToTheServerAccountOnly) {
    EXPECT_EQ(policies_[0].attributes, (Attributes{{"user", "www-data"}}));
}

TEST_F(BusPolicy, OnlyAllowsAndEveryRuleHasOneOfThreeShapes) {
    for (const Rule &rule : rules()) {
        EXPECT_EQ(rule.kind, "allow");
        std::set<std::string> keys;
        for (const auto &[key, value] : rule.attributes) keys.insert(key);
        const bool call = keys == std::set<std::string>{"send_destination", "send_interface", "send_type"} &&
                          rule.attributes.at("send_type") == "method_call";
        const bool reply = keys == std::set<std::string>{"receive_sender", "receive_type"};
        const bool signal = keys == std::set<std::string>{"send_type", "send_interface", "send_member"} &&
                            rule.attributes.at("send_type") == "signal";
        EXPECT_TRUE(call || reply || signal) << "unexpected rule with " << keys.size() << " attributes";
    }
}

TEST_F(BusPolicy, MethodCallsAreExactlyThePairsOfTheCallTable) {
    size_t count = 0;
    const std::set<Pair> allowed = pairs_of("send_destination", "send_destination", "send_interface", &count);
    EXPECT_EQ(allowed, catalog_pairs());
    EXPECT_EQ(count, allowed.size()) << "a pair is allowed twice";
    EXPECT_EQ(allowed.size(), 22u);
}

TEST_F(BusPolicy, RepliesComeFromTheEightDaemonsOnly) {
    size_t count = 0;
    const std::set<Pair> allowed = pairs_of("receive_sender", "receive_sender", "receive_type", &count);
    std::set<Pair> expected;
    for (const char *name : korvex::peer::kAllBusNames) {
        expected.emplace(name, "method_return");
        expected.emplace(name, "error");
    }
    EXPECT_EQ(allowed, expected);
    EXPECT_EQ(count, 16u);
}

TEST_F(BusPolicy, SignalsAreExactlyAliveAndRewriteEntire) {
    size_t count = 0;
    const std::set<Pair> allowed = pairs_of("send_member", "send_interface", "send_member", &count);
    const std::set<Pair> expected = {{korvex::peer::kIfSignalUpdate, korvex::peer::kSignalAlive},
                                     {korvex::peer::kIfSignalUpdate, korvex::peer::kSignalRewriteEntire}};
    EXPECT_EQ(allowed, expected);
    EXPECT_EQ(count, 2u);
}

// The parser itself: a rule inside a comment does not count, attributes in any order.
TEST(BusPolicyParser, SkipsCommentsAndReadsAttributes) {
    const auto policies = parse_policies(
        "<busconfig><policy user=\"u\"><!-- <allow own=\"x\"/> -->\n"
        "<allow send_type=\"method_call\" send_destination=\"a.b\"\n send_interface=\"c.d\"/>"
        "<deny own=\"*\"/></policy></busconfig>");
    ASSERT_EQ(policies.size(), 1u);
    ASSERT_EQ(policies[0].rules.size(), 2u);
    EXPECT_EQ(policies[0].rules[0].kind, "allow");
    EXPECT_EQ(policies[0].rules[0].attributes,
              (Attributes{{"send_destination", "a.b"}, {"send_interface", "c.d"}, {"send_type", "method_call"}}));
    EXPECT_EQ(policies[0].rules[1].kind, "deny");
    EXPECT_EQ(policies[0].rules[1].attributes, (Attributes{{"own", "*"}}));
}

}  // namespace
