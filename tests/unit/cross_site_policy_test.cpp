// The cross-site check on header values: origin parsing and comparison, host names against
// DNS rebinding, and the order in which Sec-Fetch-Site, Origin and Referer are trusted.
#include <gtest/gtest.h>

#include <string>

#include "module/cross_site_policy.h"

namespace korvex::cross_site {
namespace {

Origin origin_of(const char *text) {
    Origin origin;
    EXPECT_TRUE(parse_origin(text, &origin)) << text;
    return origin;
}

TEST(CrossSiteOrigin, DefaultPortsAndLetterCaseCompareEqual) {
    EXPECT_TRUE(same_origin(origin_of("http://192.168.1.1"), origin_of("http://192.168.1.1:80")));
    EXPECT_TRUE(same_origin(origin_of("https://Gateway.Local"), origin_of("HTTPS://gateway.local:443")));
    EXPECT_FALSE(same_origin(origin_of("http://gateway.local"), origin_of("https://gateway.local")));
    EXPECT_FALSE(same_origin(origin_of("http://127.0.0.1:8080"), origin_of("http://127.0.0.1:8081")));
    EXPECT_FALSE(same_origin(origin_of("http://a.example"), origin_of("http://b.example")));
    EXPECT_FALSE(same_origin(origin_of("http://[::1]:8080"), origin_of("http://[0:0::1]:8080")))
        << "IPv6 literals compare as written: browsers serialise them canonically";
    EXPECT_TRUE(same_origin(origin_of("http://[fe80::1]"), origin_of("http://[FE80::1]:80")));
}

TEST(CrossSiteOrigin, MalformedOriginsAreRefused) {
    Origin origin;
    for (const char *bad : {"null", "", "http://", "gateway.local", "http://a.example/path", "http://user@a.example",
                            "http://a.example:0", "http://a.example:65536", "http://a.example:8x", "http://[::1",
                            "http://[not-v6]", "1http://a.example", "http://a example", "http://a.example?x"}) {
        EXPECT_FALSE(parse_origin(bad, &origin)) << bad;
    }
}

TEST(CrossSiteOrigin, RefererGivesItsOrigin) {
    Origin origin;
    ASSERT_TRUE(parse_url_origin("http://user:pw@Evil.Example:8080/page?x=1#y", &origin));
    EXPECT_EQ(origin.host, "Evil.Example");
    EXPECT_EQ(origin.port, 8080u);
    ASSERT_TRUE(parse_url_origin("https://a.example?q", &origin));
    EXPECT_EQ(origin.port, 443u);
    EXPECT_FALSE(parse_url_origin("/relative/path", &origin));
    EXPECT_FALSE(parse_url_origin("about:blank", &origin));
}

TEST(CrossSiteHost, IpLiterals) {
    EXPECT_TRUE(is_ip_literal("192.168.1.1"));
    EXPECT_TRUE(is_ip_literal("[::1]"));
    EXPECT_TRUE(is_ip_literal("[2001:db8::7]"));
    EXPECT_FALSE(is_ip_literal("::1")) << "unbracketed";
    EXPECT_FALSE(is_ip_literal("192.168.1"));
    EXPECT_FALSE(is_ip_literal("192.168.1.256"));
    EXPECT_FALSE(is_ip_literal("gateway.local"));
}

class CrossSiteJudge : public ::testing::Test {
protected:
    const char *const trusted_[1] = {"https://portal.example"};
    const char *const hosts_[3] = {"gateway.local", "*.home.arpa", "box"};
    Policy policy_{true, trusted_, 1, hosts_, 3};

    Verdict verdict(const char *host, const char *site, const char *origin, const char *referer,
                    const char *scheme = "http") {
        RequestHeaders request;
        request.scheme = scheme;
        request.host = host;
        request.sec_fetch_site = site;
        request.origin = origin;
        request.referer = referer;
        return judge(policy_, request).verdict;
    }
};

TEST_F(CrossSiteJudge, RequestsWithoutBrowserHeadersPass) {
    EXPECT_EQ(verdict("192.168.1.1", nullptr, nullptr, nullptr), Verdict::kPass);
    EXPECT_EQ(verdict(nullptr, nullptr, nullptr, nullptr), Verdict::kPass) << "HTTP/1.0 without Host";
}

TEST_F(CrossSiteJudge, HostNamesAgainstRebinding) {
    for (const char *host : {"192.168.1.1", "192.168.1.1:8080", "[::1]", "[::1]:8080", "localhost", "LOCALHOST:80",
                             "gateway.local", "Gateway.Local:8080", "kitchen.home.arpa", "box"}) {
        EXPECT_EQ(verdict(host, nullptr, nullptr, nullptr), Verdict::kPass) << host;
    }
    for (const char *host : {"evil.example", "evil.example:8080", "gateway.local.evil.example", "home.arpa", "",
                             "[::1", "a b", "box:99999"}) {
        EXPECT_EQ(verdict(host, nullptr, nullptr, nullptr), Verdict::kForeignHost) << host;
    }
}

TEST_F(CrossSiteJudge, FetchMetadataDecidesFirst) {
    EXPECT_EQ(verdict("192.168.1.1", "same-origin", "http://evil.example", nullptr), Verdict::kPass);
    EXPECT_EQ(verdict("192.168.1.1", "none", nullptr, nullptr), Verdict::kPass);
    EXPECT_EQ(verdict("192.168.1.1", "cross-site", nullptr, nullptr), Verdict::kForeignOrigin);
    EXPECT_EQ(verdict("192.168.1.1", "same-site", "http://192.168.1.1:81", nullptr), Verdict::kForeignOrigin);
    EXPECT_EQ(verdict("192.168.1.1", "cross-site", "https://portal.example", nullptr), Verdict::kPass) << "trusted";
    EXPECT_EQ(verdict("192.168.1.1", "cross-site", "https://portal.example:8443", nullptr), Verdict::kForeignOrigin);
}

TEST_F(CrossSiteJudge, OriginWithoutFetchMetadata) {
    EXPECT_EQ(verdict("192.168.1.1", nullptr, "http://192.168.1.1", nullptr), Verdict::kPass);
    EXPECT_EQ(verdict("192.168.1.1:80", nullptr, "http://192.168.1.1", nullptr), Verdict::kPass);
    EXPECT_EQ(verdict("192.168.1.1:8080", nullptr, "http://192.168.1.1", nullptr), Verdict::kForeignOrigin);
    EXPECT_EQ(verdict("192.168.1.1", nullptr, "https://192.168.1.1", nullptr), Verdict::kForeignOrigin);
    EXPECT_EQ(verdict("192.168.1.1", nullptr, "https://192.168.1.1", nullptr, "https"), Verdict::kPass)
        << "a Host without port has the default port of the request's own scheme";
    EXPECT_EQ(verdict("192.168.1.1:443", nullptr, "https://192.168.1.1", nullptr, "https"), Verdict::kPass);
    EXPECT_EQ(verdict("192.168.1.1", nullptr, "null", nullptr), Verdict::kForeignOrigin);
    EXPECT_EQ(verdict("192.168.1.1", nullptr, "http://evil.example", "http://192.168.1.1/"), Verdict::kForeignOrigin)
        << "the Origin decides, not the Referer";
    EXPECT_EQ(verdict("192.168.1.1", nullptr, "https://portal.example", nullptr), Verdict::kPass);
}

TEST_F(CrossSiteJudge, RefererWhenNothingElseIsSent) {
    EXPECT_EQ(verdict("192.168.1.1", nullptr, nullptr, "http://192.168.1.1/setup.html?x"), Verdict::kPass);
    EXPECT_EQ(verdict("192.168.1.1", nullptr, nullptr, "http://evil.example/page"), Verdict::kForeignOrigin);
    EXPECT_EQ(verdict("192.168.1.1", nullptr, nullptr, "garbage"), Verdict::kForeignOrigin);
}

TEST_F(CrossSiteJudge, EvidenceNamesOnlyTheOrigin) {
    RequestHeaders request;
    request.scheme = "http";
    request.host = "192.168.1.1";
    request.referer = "http://evil.example:8080/steal?password=x";
    const Decision decision = judge(policy_, request);
    EXPECT_EQ(decision.verdict, Verdict::kForeignOrigin);
    EXPECT_EQ(decision.evidence, "http://evil.example:8080");
}

TEST_F(CrossSiteJudge, SwitchedOffLetsEverythingThrough) {
    policy_.enabled = false;
    EXPECT_EQ(verdict("evil.example", "cross-site", "http://evil.example", nullptr), Verdict::kPass);
}

}  // namespace
}  // namespace korvex::cross_site
