// A real browser (Debian's headless Chromium) against the gateway: a page of another origin
// (another port on 127.0.0.1) that posts forms to network.cgi and update.cgi, loads a setter
// as an image and fetches one changes nothing; a page of the gateway itself changes a
// setting. The headers the browser really sent are printed from a log of the server's.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>
#include <string>

#include "tests/support/browser.h"
#include "tests/support/command_test.h"

namespace korvex::test {
namespace {

// The requests' browser headers, one line each, in RUN_DIR/logs/headers.log.
const char kHeaderLog[] = R"(
LogFormat "%r | Sec-Fetch-Site: %{Sec-Fetch-Site}i | Sec-Fetch-Mode: %{Sec-Fetch-Mode}i | Origin: %{Origin}i | Referer: %{Referer}i | %>s" browser_headers
CustomLog "logs/headers.log" browser_headers
)";

// A page that posts its forms and fetches, then loads `marker` so the test knows it ran.
std::string page(const std::string &gateway, bool other_origin) {
    std::string html = "<!doctype html><html><body>\n";
    html += "<iframe name=a></iframe><iframe name=b></iframe>\n";
    html += "<form id=settings method=post action=\"" + gateway + "/network.cgi\" target=a>"
            "<input type=hidden name=setapssid value=" + std::string(other_origin ? "FromOtherSite" : "FromOwnPage") +
            "></form>\n";
    if (other_origin) {
        html += "<form id=firmware method=post enctype=multipart/form-data action=\"" + gateway +
                "/update.cgi\" target=b><input type=hidden name=file value=not-an-image></form>\n";
        html += "<img src=\"" + gateway + "/network.cgi?setntpserver=image.evil.example\">\n";
    }
    html += "<script>\n";
    html += "document.getElementById('settings').submit();\n";
    if (other_origin) {
        html += "document.getElementById('firmware').submit();\n";
        html += "fetch('" + gateway + "/network.cgi?setntpserver=fetch.evil.example', {mode: 'no-cors'});\n";
    }
    html += "</script></body></html>\n";
    return html;
}

class BrowserCrossSiteTest : public CommandTest {
protected:
    static void SetUpTestSuite() {
        GatewayEnv::Options options;
        options.site_config = kHeaderLog;
        use_env(options);
    }

    // Loads `url` in headless Chromium and gives its scripts five seconds (virtual time).
    void browse(const std::string &url) {
        ASSERT_EQ(access(kChromium, X_OK), 0) << "Debian's chromium is missing (scripts/install-deps.sh installs it)";
        std::string output;
        EXPECT_EQ(korvex::test::browse(env().run_dir(), url, &output), 0) << output;
    }

    void print_browser_headers() {
        std::printf("[browser headers]\n%s", read_file(env().run_dir() + "/logs/headers.log").c_str());
    }
};

TEST_F(BrowserCrossSiteTest, PageOfAnotherOriginChangesNothing) {
    const std::string site = env().run_dir() + "/other-site";
    mkdir(site.c_str(), 0755);
    write_page(site + "/attack.html", page("http://127.0.0.1:" + std::to_string(port()), true));
    OtherSite server(site);
    const int other_port = server.port();
    ASSERT_NE(other_port, 0) << "the other site's server did not start";
    const std::string before = sim().nvram("SSID1").value_or("");

    browse("http://127.0.0.1:" + std::to_string(other_port) + "/attack.html");
    print_browser_headers();

    EXPECT_EQ(sim().records().size(), 0u) << "a daemon was reached";
    EXPECT_EQ(sim().nvram("SSID1").value_or(""), before);
    const std::string headers = read_file(env().run_dir() + "/logs/headers.log");
    EXPECT_NE(headers.find("POST /network.cgi HTTP/1.1 | Sec-Fetch-Site: same-site"), std::string::npos) << headers;
    EXPECT_NE(headers.find("POST /update.cgi HTTP/1.1 | Sec-Fetch-Site: same-site"), std::string::npos) << headers;
    // Every request the other site's page made was refused.
    const std::string other = "Referer: http://127.0.0.1:" + std::to_string(other_port) + "/";
    int refused = 0;
    std::istringstream lines(headers);
    for (std::string line; std::getline(lines, line);) {
        if (line.find(other) == std::string::npos) continue;
        EXPECT_EQ(line.substr(line.size() - 5), "| 403") << line;
        ++refused;
    }
    EXPECT_EQ(refused, 4) << "two forms, an image and a fetch";
}

TEST_F(BrowserCrossSiteTest, PageOfTheGatewayItselfChangesASetting) {
    write_page(env().run_dir() + "/htdocs/own.html", page("", false));
    browse("http://127.0.0.1:" + std::to_string(port()) + "/own.html");
    print_browser_headers();
    EXPECT_EQ(sim().nvram("SSID1"), "FromOwnPage");
    const std::string headers = read_file(env().run_dir() + "/logs/headers.log");
    EXPECT_NE(headers.find("POST /network.cgi HTTP/1.1 | Sec-Fetch-Site: same-origin"), std::string::npos) << headers;
}

}  // namespace
}  // namespace korvex::test
