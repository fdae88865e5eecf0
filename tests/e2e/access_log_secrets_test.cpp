// The access log of a request to the module shows no secret value: the six setters that
// carry passwords and secrets are logged with "********" in place of their values, in the
// request line (%r), the query (%q) and the path with its query (%U%q), with Debian's
// "combined" format as with the test server's own. Command names and every other argument
// stay as sent, and the commands themselves still get the real values.
#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/command_test.h"
#include "tests/support/http_client.h"

namespace korvex::test {
namespace {

// Debian's "combined" format, word for word, and one line of the three fields.
const char kLogs[] = R"(
LogFormat "%h %l %u %t \"%r\" %>s %O \"%{Referer}i\" \"%{User-Agent}i\"" debian_combined
CustomLog "logs/combined.log" debian_combined
CustomLog "logs/fields.log" "%r|%q|%U%q"
)";

const std::string kSecretQuery =
    "setappwd=Sunny1234&setstapwd=Rainy5678&setpppoepassword=Pppoe9876&setp2ppwd=P2p4321&setSUpwd=Super2468&"
    "setTelldusSecret=TS01234567&setstassid=Home%20Net";
const std::string kMaskedQuery =
    "setappwd=********&setstapwd=********&setpppoepassword=********&setp2ppwd=********&setSUpwd=********&"
    "setTelldusSecret=********&setstassid=Home%20Net";
const char *const kSecretValues[] = {"Sunny1234", "Rainy5678", "Pppoe9876", "P2p4321", "Super2468", "TS01234567"};

class AccessLogSecretsTest : public CommandTest {
protected:
    static void SetUpTestSuite() {
        GatewayEnv::Options options;
        options.site_config = kLogs;
        use_env(options);
    }

    std::string read(const std::string &log) const {
        std::ifstream in(env().run_dir() + "/logs/" + log, std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        return text.str();
    }
    // The last line of `log` once it has more than `lines` lines (the server writes it after
    // the answer).
    std::string line_after(const std::string &log, size_t lines) const {
        for (int i = 0; i < 250; ++i) {
            std::vector<std::string> all;
            std::istringstream text(read(log));
            for (std::string line; std::getline(text, line);) all.push_back(line);
            if (all.size() > lines) return all.back();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return "<no line>";
    }
    size_t lines_of(const std::string &log) const {
        const std::string text = read(log);
        return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
    }
    void expect_no_secret_anywhere() const {
        for (const char *log : {"access.log", "combined.log", "fields.log", "error.log"}) {
            const std::string text = read(log);
            for (const char *secret : kSecretValues) EXPECT_EQ(text.find(secret), std::string::npos) << log;
        }
    }
};

TEST_F(AccessLogSecretsTest, SecretValuesAreMaskedInEveryFormat) {
    const size_t combined = lines_of("combined.log"), fields = lines_of("fields.log");
    const size_t own = lines_of("access.log");
    get(port(), "/network.cgi?" + kSecretQuery);

    const std::string request_line = "GET /network.cgi?" + kMaskedQuery + " HTTP/1.1";
    const std::string combined_line = line_after("combined.log", combined);
    EXPECT_NE(combined_line.find(" \"" + request_line + "\" 200 "), std::string::npos) << combined_line;
    EXPECT_EQ(line_after("fields.log", fields),
              request_line + "|?" + kMaskedQuery + "|/network.cgi?" + kMaskedQuery);
    EXPECT_NE(line_after("access.log", own).find("\"" + request_line + "\""), std::string::npos);
    expect_no_secret_anywhere();
    // The commands ran with what the client sent.
    EXPECT_EQ(sim().nvram("WPAPSK"), "Sunny1234");
    EXPECT_EQ(sim().nvram("SU_PASSWORD"), "Super2468");
    EXPECT_EQ(sim().nvram("STA_SSID1"), "Home Net");
}

TEST_F(AccessLogSecretsTest, ANameWrittenWithEscapesIsMaskedToo) {
    const size_t fields = lines_of("fields.log");
    get(port(), "/network.cgi?set%61ppwd=Sunny1234&test=1");
    EXPECT_EQ(line_after("fields.log", fields),
              "GET /network.cgi?set%61ppwd=********&test=1 HTTP/1.1|?set%61ppwd=********&test=1|"
              "/network.cgi?set%61ppwd=********&test=1");
    expect_no_secret_anywhere();
}

// Every resource of the module, whatever its answer: an unknown command, a POST with a
// query, a refused method.
TEST_F(AccessLogSecretsTest, EveryResourceOfTheModuleIsCovered) {
    for (const std::string target : {"/sdk.cgi?setSUpwd=Super2468", "/get.dat?setp2ppwd=P2p4321",
                                     "/network.cgi?nosuchcommand=1&setappwd=Sunny1234"}) {
        const size_t fields = lines_of("fields.log");
        get(port(), target);
        const std::string line = line_after("fields.log", fields);
        EXPECT_NE(line.find("=********"), std::string::npos) << line;
    }
    const size_t fields = lines_of("fields.log");
    post(port(), "/network.cgi?setstapwd=Rainy5678", "test=1", "application/x-www-form-urlencoded");
    // A POST's arguments are its body, which the module reads into the request's arguments
    // (and splits where it stands: %q shows the first name only); the query of its request
    // line, which runs nothing, is masked all the same.
    EXPECT_EQ(line_after("fields.log", fields), "POST /network.cgi?setstapwd=******** HTTP/1.1|?test|/network.cgi?test");
    expect_no_secret_anywhere();
}

// Requests to anything else are logged as the server always does.
TEST_F(AccessLogSecretsTest, OtherRequestsAreLoggedAsSent) {
    const size_t fields = lines_of("fields.log");
    get(port(), "/index.html?setappwd=plain");
    EXPECT_EQ(line_after("fields.log", fields),
              "GET /index.html?setappwd=plain HTTP/1.1|?setappwd=plain|/index.html?setappwd=plain");
}

}  // namespace
}  // namespace korvex::test
