// Requests that a browser sends on behalf of another site's page, and requests under a host
// name that the server does not know (DNS rebinding), are refused with 403 before anything
// reaches a daemon; the header sets are those that browsers really send. Requests without
// any of those headers (the apps) are served as before.
#include <string>
#include <vector>

#include "tests/support/command_test.h"
#include "tests/support/http_client.h"
#include "tests/support/log_lines.h"
#include "tests/support/multipart.h"

namespace korvex::test {
namespace {

using Headers = std::vector<std::string>;

// What browsers send (besides Host) for a request that another site's page makes.
const Headers kImageFromOtherSite = {"Sec-Fetch-Site: cross-site", "Sec-Fetch-Mode: no-cors",
                                     "Sec-Fetch-Dest: image", "Referer: http://evil.example/page.html"};
const Headers kFormFromOtherSite = {"Sec-Fetch-Site: cross-site", "Sec-Fetch-Mode: navigate",
                                    "Sec-Fetch-Dest: document", "Origin: http://evil.example"};
const Headers kFetchFromOtherSite = {"Sec-Fetch-Site: cross-site", "Sec-Fetch-Mode: cors", "Sec-Fetch-Dest: empty",
                                     "Origin: http://evil.example"};
const Headers kOldBrowserOrigin = {"Origin: http://evil.example"};
const Headers kOldBrowserReferer = {"Referer: http://evil.example/page.html"};
const Headers kOpaqueOrigin = {"Origin: null"};

// The first virtual host is the default one; the second switches the check off.
const char kSites[] = R"(
<VirtualHost *:*>
    ServerName 127.0.0.1
    ServerAlias gateway-alias.test
    KorvexAllowedHost gateway.test *.home.test
    KorvexTrustedOrigin https://portal.test
</VirtualHost>
<VirtualHost *:*>
    ServerName unchecked.test
    KorvexCrossSiteCheck off
</VirtualHost>
)";

class CrossSiteTest : public CommandTest {
protected:
    static void SetUpTestSuite() {
        GatewayEnv::Options options;
        options.site_config = kSites;
        use_env(options);
    }

    std::string own_origin() const { return "http://127.0.0.1:" + std::to_string(port()); }

    HttpResponse get_with(const std::string &target, const Headers &headers) {
        HttpRequest request;
        request.target = target;
        request.headers = headers;
        request.body_mode = BodyMode::kNone;
        return send(port(), request);
    }

    // The request was refused: 403 with the short text, nothing reached any daemon, and one
    // notice names method, resource and origin (never an argument value).
    void expect_refused(const HttpResponse &response, const std::string &record) {
        EXPECT_EQ(response.status, 403);
        EXPECT_NE(response.body.find("cross-site request refused"), std::string::npos) << response.body;
        EXPECT_EQ(sim().records().size(), 0u) << "a daemon was reached";
        const std::vector<std::string> lines = module_log_lines(env().error_log_since(log_start_), "refused");
        EXPECT_EQ(lines, std::vector<std::string>{"[korvex:notice] [pid N] cross_site_check:L apache: " + record});
    }

    void SetUp() override {
        CommandTest::SetUp();
        log_start_ = env().error_log_size();
    }

    size_t log_start_ = 0;
};

TEST_F(CrossSiteTest, SetterFromAnotherSitesPageChangesNothing) {
    const struct {
        const char *name;
        const Headers *headers;
        const char *from;
    } cases[] = {
        {"image", &kImageFromOtherSite, "http://evil.example/page.html"},
        {"form", &kFormFromOtherSite, "http://evil.example"},
        {"fetch", &kFetchFromOtherSite, "http://evil.example"},
        {"old browser, Origin", &kOldBrowserOrigin, "http://evil.example"},
        {"old browser, Referer", &kOldBrowserReferer, "http://evil.example"},
        {"opaque origin", &kOpaqueOrigin, "null"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        log_start_ = env().error_log_size();
        const HttpResponse response = get_with("/network.cgi?setapssid=Evil", *c.headers);
        // A Referer is named by its origin only, without its path.
        const std::string from = std::string(c.from) == "http://evil.example/page.html" ? "http://evil.example" : c.from;
        expect_refused(response, std::string("cross-site request refused: GET /network.cgi from ") + from);
        EXPECT_NE(sim().nvram("SSID1"), "Evil");
    }
}

TEST_F(CrossSiteTest, SiblingPortIsAnotherOrigin) {
    const HttpResponse response =
        get_with("/network.cgi?setapssid=Evil", {"Sec-Fetch-Site: same-site", "Origin: http://127.0.0.1:1"});
    expect_refused(response, "cross-site request refused: GET /network.cgi from http://127.0.0.1:1");
}

TEST_F(CrossSiteTest, EveryResourceIsCovered) {
    const std::vector<std::string> targets = {"/network.cgi?getdoscenemode=", "/sdk.cgi?json=x", "/get.dat",
                                              "/send.dat?json=x"};
    for (const std::string &target : targets) {
        SCOPED_TRACE(target);
        log_start_ = env().error_log_size();
        const HttpResponse response = get_with(target, kFetchFromOtherSite);
        const std::string resource = target.substr(0, target.find('?'));
        expect_refused(response, "cross-site request refused: GET " + resource + " from http://evil.example");
    }
}

TEST_F(CrossSiteTest, FirmwareFormFromAnotherSiteStartsNothing) {
    Headers headers = kFormFromOtherSite;
    headers.push_back("Content-Type: " + upload_content_type());
    HttpRequest request;
    request.method = "POST";
    request.target = "/update.cgi";
    request.body = upload_body(std::string(4096, 'I'));
    request.headers = headers;
    expect_refused(send(port(), request), "cross-site request refused: POST /update.cgi from http://evil.example");
    EXPECT_EQ(sim().records().size(), 0u) << "no alive broadcast, no updater";
}

TEST_F(CrossSiteTest, SameOriginTypedAddressesAndAppsAreServed) {
    const std::string own = own_origin();
    const std::vector<Headers> passing = {
        {},                                                                                   // the apps, curl
        {"Sec-Fetch-Site: none", "Sec-Fetch-Mode: navigate", "Sec-Fetch-Dest: document"},  // typed address
        {"Sec-Fetch-Site: same-origin", "Sec-Fetch-Mode: cors", "Origin: " + own},
        {"Origin: " + own},
        {"Referer: " + own + "/setup.html?tab=wifi"},
        {"Sec-Fetch-Site: cross-site", "Origin: https://portal.test"},  // KorvexTrustedOrigin
    };
    for (const Headers &headers : passing) {
        SCOPED_TRACE(headers.empty() ? "no headers" : headers.front());
        sim().clear_records();
        const HttpResponse response = get_with("/network.cgi?setntpserver=pass.example.org", headers);
        EXPECT_EQ(response.status, 200);
        EXPECT_EQ(response.body, "setntpserver done");
        EXPECT_EQ(calls().size(), 1u);
    }
    EXPECT_EQ(env().count_log_lines("refused", log_start_), 0u);
}

TEST_F(CrossSiteTest, HostNamesTheServerKnowsAreServed) {
    const std::string port_suffix = ":" + std::to_string(port());
    for (const std::string &host : {"127.0.0.1" + port_suffix, "[::1]" + port_suffix, "localhost" + port_suffix,
                                    std::string("LOCALHOST"), "gateway-alias.test" + port_suffix,
                                    std::string("gateway.test"), "kitchen.home.test" + port_suffix}) {
        SCOPED_TRACE(host);
        const HttpResponse response = get_with("/network.cgi?getdoscenemode=", {"Host: " + host});
        EXPECT_EQ(response.status, 200);
    }
    EXPECT_EQ(env().count_log_lines("refused", log_start_), 0u);
}

TEST_F(CrossSiteTest, ForeignHostNameIsRefused) {
    for (const std::string &host : {std::string("evil.example"), "evil.example:" + std::to_string(port()),
                                    std::string("gateway.test.evil.example")}) {
        SCOPED_TRACE(host);
        log_start_ = env().error_log_size();
        const HttpResponse response = get_with("/network.cgi?setapssid=Evil", {"Host: " + host});
        EXPECT_EQ(response.status, 403);
        EXPECT_NE(response.body.find("unknown host name refused"), std::string::npos) << response.body;
        EXPECT_EQ(sim().records().size(), 0u);
        EXPECT_EQ(module_log_lines(env().error_log_since(log_start_), "refused"),
                  std::vector<std::string>{"[korvex:notice] [pid N] cross_site_check:L apache: request for an "
                                           "unknown host refused: GET /network.cgi, Host: " + host});
    }
}

TEST_F(CrossSiteTest, SwitchedOffForOneVirtualHost) {
    const HttpResponse response =
        get_with("/network.cgi?setntpserver=off.example.org", {"Host: unchecked.test", "Origin: http://evil.example"});
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "setntpserver done");
    EXPECT_EQ(sim().nvram("NTPServerIP"), "off.example.org");
    EXPECT_NE(env().error_log_since(0).find("KorvexCrossSiteCheck is off for unchecked.test"), std::string::npos)
        << "the start-up warning";
}

}  // namespace
}  // namespace korvex::test
