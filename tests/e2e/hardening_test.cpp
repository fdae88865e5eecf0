// What keeps hostile or unlucky requests harmless: answers that a browser will not run
// (and no HTTP/0.9 answer without headers), a failure inside the module answered as 500, a
// bounded "test" loop that ends with its client (but not with a half-close), and secrets
// that never reach the log.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/command_test.h"
#include "tests/support/http_client.h"
#include "tests/support/log_lines.h"
#include "tests/support/multipart.h"

namespace korvex::test {
namespace {

const std::string kCsp = "default-src 'none'; frame-ancestors 'self'";

class HardeningTest : public CommandTest {
protected:
    // Every record the module writes, so that a secret in any trace line would show.
    static void SetUpTestSuite() { use_log_level(KORVEX_LOG_CHILD); }

    void expect_inert(const HttpResponse &response, const std::string &what) {
        EXPECT_EQ(response.error, "") << what;
        auto nosniff = response.headers.find("x-content-type-options");
        auto csp = response.headers.find("content-security-policy");
        ASSERT_NE(nosniff, response.headers.end()) << what;
        ASSERT_NE(csp, response.headers.end()) << what;
        EXPECT_EQ(nosniff->second, "nosniff") << what;
        EXPECT_EQ(csp->second, kCsp) << what;
    }
    // Module log lines written since `offset` that contain `text`.
    std::vector<std::string> lines_since(size_t offset, const std::string &text) {
        return module_log_lines(env().error_log_since(offset), text);
    }
};

// ---- Every answer of the five resources runs nothing in a browser ----

TEST_F(HardeningTest, EveryResourceAnswersWithTheTwoHeaders) {
    const int p = port();
    expect_inert(get(p, "/network.cgi?test=%3Cscript%3Ealert(1)%3C/script%3E"), "network.cgi");
    expect_inert(post(p, "/network.cgi", "test=0"), "network.cgi POST");
    expect_inert(get(p, "/sdk.cgi?json=%7B%7D"), "sdk.cgi");
    expect_inert(post(p, "/send.dat", "json=%7B%7D"), "send.dat");
    expect_inert(get(p, "/get.dat"), "get.dat");
    expect_inert(get_with_fault(p, "/update.cgi", kNoPurgePause, 10000), "update.cgi");
}

TEST_F(HardeningTest, RefusedMethodsCarryTheHeadersToo) {
    const HttpResponse response = request("DELETE", port(), "/network.cgi?test=0");
    EXPECT_EQ(response.status, 405);
    expect_inert(response, "405");
}

TEST_F(HardeningTest, ReflectedMarkupKeepsItsBytes) {
    const HttpResponse response = get(port(), "/network.cgi?test=%3Cscript%3Ex%3C/script%3E");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "in testAPI, value: <script>x</script><br>test done");
}

TEST_F(HardeningTest, OtherHandlersAreLeftAlone) {
    const HttpResponse response = get(port(), "/foreign.cgi");
    EXPECT_FALSE(response.has_header("content-security-policy"));
}

// ---- A failure inside the module is a 500, not a cut-off 200 ----

TEST_F(HardeningTest, AnExceptionInAResourceAnswers500WithTheReasonLogged) {
    const size_t before = env().error_log_size();
    const HttpResponse response = get_with_fault(port(), "/network.cgi?test=0", "throw-after-serve");
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(response.body.find("test done"), std::string::npos) << response.body;
    expect_inert(response, "500");
    EXPECT_EQ(lines_since(before, "unexpected failure"),
              std::vector<std::string>{"[korvex:error] [pid N] network.cgi:L apache: unexpected failure: injected fault"});
    // The child is still serving.
    EXPECT_EQ(get(port(), "/network.cgi?test=0").body, "in testAPI, value: 0<br>test done");
}

TEST_F(HardeningTest, EveryResourceAnswers500OnAnException) {
    for (const std::string target : {"/sdk.cgi?json=%7B%7D", "/get.dat", "/network.cgi?getwifimode="}) {
        EXPECT_EQ(get_with_fault(port(), target, "throw-after-serve").status, 500) << target;
    }
}

// ---- "test" is bounded and ends with its client ----

TEST_F(HardeningTest, TestAtTheBoundAnswers) {
    EXPECT_EQ(run("test=10000"), "in testAPI, value: 10000<br>test done");
    EXPECT_EQ(calls(10000).size(), 10000u);
}

TEST_F(HardeningTest, TestOverTheBoundIsRefusedWithoutACall) {
    const size_t before = env().error_log_size();
    EXPECT_EQ(run("test=10001"), "test failed");
    EXPECT_EQ(run("test=2147483647"), "test failed");
    EXPECT_EQ(calls(), Calls{});
    EXPECT_EQ(lines_since(before, "is over"),
              (std::vector<std::string>{"[korvex:error] [pid N] testAPI:L apache: test count 10001 is over 10000",
                                        "[korvex:error] [pid N] testAPI:L apache: test count 2147483647 is over 10000"}));
}

TEST_F(HardeningTest, TestStopsWhenItsClientHasGone) {
    // Each request takes 100 ms, so 5000 would hold the worker for more than eight minutes.
    sim().set_rule(R"({"destination":"com.korvex-labs.www.sdk","member":"command","mode":"default","delay_ms":100})");
    const size_t before = env().error_log_size();
    const int fd = open_loopback_connection(port());
    ASSERT_GE(fd, 0);
    const std::string request = "GET /network.cgi?test=5000 HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n";
    ASSERT_EQ(write(fd, request.data(), request.size()), static_cast<ssize_t>(request.size()));
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
    // Closing the socket (not just its sending side): the answer's head already sent is
    // refused with a reset, which is how the server learns that nobody reads any more.
    close(fd);
    ASSERT_TRUE(env().wait_for_log("client gone after", std::chrono::milliseconds(5000), before));
    const size_t sent = sim().records().size();
    EXPECT_LT(sent, 100u);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_EQ(sim().records().size(), sent);
}

TEST_F(HardeningTest, TestGoesOnForAClientThatOnlyFinishedSending) {
    // A client that shuts down its sending side after the request still reads: the loop
    // runs to its end and the whole answer arrives, whether chunked (HTTP/1.1) or
    // delimited by the server closing (HTTP/1.0).
    sim().set_rule(R"({"destination":"com.korvex-labs.www.sdk","member":"command","mode":"default","delay_ms":2})");
    for (const std::string protocol : {"HTTP/1.1", "HTTP/1.0"}) {
        sim().clear_records();
        const size_t before = env().error_log_size();
        const std::string request =
            "GET /network.cgi?test=150 " + protocol + "\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n";
        const HttpResponse response = send_raw(port(), request, 30000, /*half_close=*/true);
        EXPECT_EQ(response.error, "") << protocol;
        EXPECT_EQ(response.status, 200) << protocol;
        EXPECT_EQ(response.body, "in testAPI, value: 150<br>test done") << protocol;
        const Calls sent = calls(150);
        ASSERT_EQ(sent.size(), 150u) << protocol;
        EXPECT_NE(sent.front().find("getdevice"), std::string::npos) << sent.front();
        for (const std::string &call : sent) EXPECT_EQ(call, sent.front()) << protocol;
        EXPECT_EQ(lines_since(before, "client gone"), std::vector<std::string>{}) << protocol;
    }
}

// ---- HTTP/0.9 is refused: its answer would be a bare body without any header ----

TEST_F(HardeningTest, AnHttp09RequestGetsNoBareBody) {
    const int fd = open_loopback_connection(port());
    ASSERT_GE(fd, 0);
    const timeval patience{10, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    const std::string request = "GET /network.cgi?test=1\r\n";
    ASSERT_EQ(write(fd, request.data(), request.size()), static_cast<ssize_t>(request.size()));
    std::string answer;
    char buffer[4096];
    for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) > 0;) answer.append(buffer, static_cast<size_t>(n));
    close(fd);
    // Apache answers with a status line and headers of its own, not the module's body.
    EXPECT_EQ(answer.rfind("HTTP/1.1 400 ", 0), 0u) << answer;
    EXPECT_EQ(answer.find("test done"), std::string::npos) << answer;
    EXPECT_EQ(calls(), Calls{});
}

// ---- The simulator alone can be stopped and started again under a running server ----

TEST_F(HardeningTest, TheSimulatorAloneRestartsAndTheNextRequestWorks) {
    sim().nvram_put("NTPServerIP", "kept.example", true);
    close_sim();
    env().sim_stop();
    // Its names are off the bus: the call fails at once, as for an absent daemon.
    EXPECT_EQ(get(port(), "/network.cgi?getip=").body, "getip failed");
    env().sim_start();
    SimClient fresh(env().bus_address());
    EXPECT_EQ(get(port(), "/network.cgi?getip=&getntpserver=").body,
              "192.168.1.57<br>getip donekept.example<br>getntpserver done");
}

// ---- Secrets never reach the log ----

TEST_F(HardeningTest, TheSnapshotLogsNoPassword) {
    sim().nvram_put("SU_PASSWORD", "Sup3r-S3cret!", true);
    const size_t before = env().error_log_size();
    const std::string body = run("jsongetupdate=");
    EXPECT_NE(body.find("\"SU_PASSWORD\":\"Sup3r-S3cret!\""), std::string::npos) << body;
    const std::string log = env().error_log_since(before);
    EXPECT_EQ(log.find("Sup3r-S3cret!"), std::string::npos);
    EXPECT_EQ(module_log_lines(log, "12.").size(), 1u);
    EXPECT_EQ(module_log_lines(log, "12.").front(), "[korvex:info] [pid N] jsonGetUpdate:L apache: 12.********");
    const std::vector<std::string> closing = module_log_lines(log, "20. ");
    ASSERT_EQ(closing.size(), 1u);
    EXPECT_NE(closing.front().find("\"SU_PASSWORD\":\"********\""), std::string::npos) << closing.front();
}

TEST_F(HardeningTest, SecretsSetAndReadByCommandsStayOutOfTheLog) {
    const size_t before = env().error_log_size();
    run("setappwd=Wpa-0ne&getappwd=&setstapwd=Wpa-Tw0&getstapwd=&setpppoeusername=bob&setpppoepassword=Pp-Thr33"
        "&getpppoepassword=&pppoecommit=&setp2ppwd=P2p-F0ur&getp2ppwd=&setSUpwd=Su-F1ve&getSUpwd="
        "&setTelldusSecret=Te11dus-10&getTelldusSecret=");
    const std::string log = env().error_log_since(before);
    for (const std::string secret : {"Wpa-0ne", "Wpa-Tw0", "Pp-Thr33", "P2p-F0ur", "Su-F1ve", "Te11dus-10"}) {
        EXPECT_EQ(log.find(secret), std::string::npos) << secret;
    }
}

}  // namespace
}  // namespace korvex::test
