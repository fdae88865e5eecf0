// A real browser (Debian's headless Chromium) against the gateway: a page of another origin
// (another port on 127.0.0.1) that posts forms to network.cgi and update.cgi, loads a setter
// as an image and fetches one changes nothing; a page of the gateway itself changes a
// setting. The headers the browser really sent are printed from a log of the server's.
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>

#include "tests/support/command_test.h"
#include "tests/support/process_runner.h"

namespace korvex::test {
namespace {

constexpr char kChromium[] = "/usr/bin/chromium";

// The requests' browser headers, one line each, in RUN_DIR/logs/headers.log.
const char kHeaderLog[] = R"(
LogFormat "%r | Sec-Fetch-Site: %{Sec-Fetch-Site}i | Sec-Fetch-Mode: %{Sec-Fetch-Mode}i | Origin: %{Origin}i | Referer: %{Referer}i | %>s" browser_headers
CustomLog "logs/headers.log" browser_headers
)";

std::string read_all(const std::string &path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void write_page(const std::string &path, const std::string &html) {
    std::ofstream(path) << html;
    chmod(path.c_str(), 0644);
}

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
        const std::string profile = env().run_dir() + "/chromium-profile";
        ChildProcess browser({kChromium, "--headless", "--no-sandbox", "--disable-gpu", "--no-first-run",
                              "--user-data-dir=" + profile, "--virtual-time-budget=5000", "--dump-dom", url},
                             env().run_dir() + "/chromium.out");
        EXPECT_EQ(browser.wait_exit(60000), 0) << read_all(env().run_dir() + "/chromium.out");
        // Requests still on their way when the browser quit are answered by now.
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }

    void print_browser_headers() {
        std::printf("[browser headers]\n%s", read_all(env().run_dir() + "/logs/headers.log").c_str());
    }
};

TEST_F(BrowserCrossSiteTest, PageOfAnotherOriginChangesNothing) {
    const std::string site = env().run_dir() + "/other-site";
    mkdir(site.c_str(), 0755);
    write_page(site + "/attack.html", page("http://127.0.0.1:" + std::to_string(port()), true));
    ChildProcess server({"/usr/bin/python3", "-u", "-m", "http.server", "0", "--bind", "127.0.0.1", "--directory", site},
                        site + "/server.out");
    int other_port = 0;
    for (int i = 0; i < 100 && other_port == 0; ++i) {
        std::smatch match;
        const std::string out = read_all(site + "/server.out");
        if (std::regex_search(out, match, std::regex("port ([0-9]+)"))) other_port = std::stoi(match[1]);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    ASSERT_NE(other_port, 0) << "the other site's server did not start";
    const std::string before = sim().nvram("SSID1").value_or("");

    browse("http://127.0.0.1:" + std::to_string(other_port) + "/attack.html");
    print_browser_headers();

    EXPECT_EQ(sim().records().size(), 0u) << "a daemon was reached";
    EXPECT_EQ(sim().nvram("SSID1").value_or(""), before);
    const std::string headers = read_all(env().run_dir() + "/logs/headers.log");
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
    const std::string headers = read_all(env().run_dir() + "/logs/headers.log");
    EXPECT_NE(headers.find("POST /network.cgi HTTP/1.1 | Sec-Fetch-Site: same-origin"), std::string::npos) << headers;
}

}  // namespace
}  // namespace korvex::test
