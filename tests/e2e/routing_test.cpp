// The content handler's routing: which resource names it serves, with which methods,
// what "sdk.cgi", "send.dat" and "get.dat" forward and print, and which requests it
// leaves to the rest of the server.
#include <algorithm>
#include <chrono>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/access_log.h"
#include "tests/support/gateway_env.h"
#include "tests/support/http_client.h"
#include "tests/support/log_lines.h"
#include "tests/support/record_text.h"
#include "tests/support/sim_client.h"

namespace korvex::test {
namespace {

const std::string kContentType = "text/html;charset=utf-8";
const std::string kSdkCall = "method_call com.korvex-labs.www.sdk com.KorvexLabs.json.command command";
const std::string kAppCall = "method_call com.korvex-labs.www.app com.KorvexLabs.app ";
const std::string kDeviceJson = "{\"cmd\":\"getdevice\",\"uid\":7}";
const std::string kDeviceJsonEscaped = "%7B%22cmd%22%3A%22getdevice%22%2C%22uid%22%3A7%7D";
const std::string kSdkReply = "{\"cmd\":\"getdevice\",\"result\":\"ok\"}";

// What the Allow header of a 405 answer lists for each resource: the methods it serves
// (HEAD with GET: Apache serves a HEAD as a GET without the body) and TRACE, which the
// server answers itself for every path (TraceEnable, on by default).
const std::string kAllowGetAndPost = "GET,HEAD,POST,TRACE";
const std::string kAllowPostOnly = "POST,TRACE";
const std::string kAllowGetOnly = "GET,HEAD,TRACE";

// An Allow header's methods, sorted: Apache lists them in the order of its hashed table of
// method names, which changes from one start of the server to the next.
std::string sorted_methods(const std::string &allow) {
    std::vector<std::string> methods;
    std::istringstream items(allow);
    for (std::string item; std::getline(items, item, ',');) {
        item.erase(0, item.find_first_not_of(' '));
        item.erase(item.find_last_not_of(' ') + 1);
        methods.push_back(item);
    }
    std::sort(methods.begin(), methods.end());
    std::string text;
    for (const std::string &method : methods) text += (text.empty() ? "" : ",") + method;
    return text;
}

// A 405 answer whose Allow header names exactly `allow` (sorted, comma-separated).
void expect_not_allowed(const HttpResponse &response, const std::string &allow, const std::string &what) {
    EXPECT_EQ(response.status, 405) << what;
    EXPECT_TRUE(response.has_header("allow")) << what;
    EXPECT_EQ(sorted_methods(response.headers.count("allow") ? response.headers.at("allow") : ""), allow) << what;
}

class RoutingTest : public GatewayTest {
  protected:
    // "send.dat doing" is a notable-request record.
    static void SetUpTestSuite() { use_log_level(KORVEX_LOG_REQUEST); }

    void SetUp() override {
        GatewayTest::SetUp();
        sim_ = std::make_unique<SimClient>(env().bus_address());
        sim_->reset();
        access_before_ = access_log_size(env());
    }

    // Texts of the calls the daemons received, without the object path.
    std::vector<std::string> calls() {
        std::vector<std::string> texts;
        for (const SimRecord &record : sim_->records()) {
            std::string text = record_text(record);
            texts.push_back(text.substr(0, text.rfind(' ')));
        }
        return texts;
    }

    // The object path of every recorded call is the one of the child that served the
    // (single) request.
    void expect_paths_of_serving_child() {
        const std::vector<std::string> lines = wait_for_access_lines(env(), access_before_, 1);
        ASSERT_EQ(lines.size(), 1u);
        for (const SimRecord &record : sim_->records()) EXPECT_EQ(record.path, module_path(served_pid(lines[0])));
    }

    void no_bus_traffic() { EXPECT_EQ(calls(), std::vector<std::string>{}); }

    std::unique_ptr<SimClient> sim_;
    size_t access_before_ = 0;
};

// --- sdk.cgi ------------------------------------------------------------------------------

TEST_F(RoutingTest, SdkGetForwardsTheJsonArgumentAndPrintsTheReply) {
    HttpResponse response = get(port(), "/sdk.cgi?json=" + kDeviceJsonEscaped);
    ASSERT_EQ(response.error, "");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.headers["content-type"], kContentType);
    EXPECT_EQ(response.body, kSdkReply);
    EXPECT_EQ(calls(), std::vector<std::string>{kSdkCall + "(s:" + kDeviceJson + ")"});
    expect_paths_of_serving_child();
}

TEST_F(RoutingTest, SdkPostForwardsTheJsonArgumentAndPrintsTheReply) {
    HttpResponse response = post(port(), "/sdk.cgi", "json=" + kDeviceJsonEscaped + "&other=1");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.headers["content-type"], kContentType);
    EXPECT_EQ(response.body, kSdkReply);
    EXPECT_EQ(calls(), std::vector<std::string>{kSdkCall + "(s:" + kDeviceJson + ")"});
    expect_paths_of_serving_child();
}

TEST_F(RoutingTest, SdkPrintsTheReplyAsItComes) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.sdk","mode":"values","signature":"s",)"
                   R"("values":["<b>not json</b> %s"]})");
    EXPECT_EQ(get(port(), "/sdk.cgi?json=x").body, "<b>not json</b> %s");
}

TEST_F(RoutingTest, SdkPostWithoutBodyLogsTmpIsNullAndSendsNothing) {
    const size_t before = env().error_log_size();
    HttpRequest request;
    request.method = "POST";
    request.target = "/sdk.cgi";
    request.body_mode = BodyMode::kNone;
    HttpResponse response = send(port(), request);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "");
    EXPECT_EQ(response.headers["content-type"], kContentType);
    ASSERT_TRUE(env().wait_for_log("tmp is NULL", std::chrono::seconds(5), before));
    EXPECT_EQ(module_log_lines(env().error_log_since(before), "[korvex:error]"),
              (std::vector<std::string>{"[korvex:error] [pid N] get_postdata:L apache: No request body.",
                                        "[korvex:error] [pid N] korvex_handler:L apache: tmp is NULL"}));
    no_bus_traffic();
}

TEST_F(RoutingTest, SdkWithoutJsonArgumentSendsNothing) {
    const size_t before = env().error_log_size();
    HttpResponse response = get(port(), "/sdk.cgi?other=1");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "");
    EXPECT_TRUE(env().wait_for_log("dbus_message_append_args fail", std::chrono::seconds(5), before));
    no_bus_traffic();
}

TEST_F(RoutingTest, SdkPrintsNothingWhenTheDaemonFails) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.sdk","mode":"error"})");
    const size_t before = env().error_log_size();
    HttpResponse response = get(port(), "/sdk.cgi?json=" + kDeviceJsonEscaped);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "");
    EXPECT_EQ(calls(), std::vector<std::string>{kSdkCall + "(s:" + kDeviceJson + ")"});
    ASSERT_TRUE(env().wait_for_log("No reply", std::chrono::seconds(5), before));
    EXPECT_EQ(module_log_lines(env().error_log_since(before), "No reply"),
              std::vector<std::string>{"[korvex:error] [pid N] apache_dbus_string_message:L apache: No reply, str: " +
                                       kDeviceJson +
                                       ", dest: com.korvex-labs.www.sdk, ifac: com.KorvexLabs.json.command, "
                                       "command: command"});
}

TEST_F(RoutingTest, SdkWithOtherMethodsIsNotAllowed) {
    for (const char *method : {"PUT", "DELETE"}) {
        HttpResponse response = request(method, port(), "/sdk.cgi?json=x", "json=y");
        expect_not_allowed(response, kAllowGetAndPost, method);
    }
    no_bus_traffic();
}

// --- send.dat -----------------------------------------------------------------------------

TEST_F(RoutingTest, SendDatForwardsToTheAppAndPrintsNothing) {
    const size_t before = env().error_log_size();
    HttpResponse response = post(port(), "/send.dat", "json=" + kDeviceJsonEscaped);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.headers["content-type"], kContentType);
    EXPECT_EQ(response.body, "");
    EXPECT_EQ(calls(), std::vector<std::string>{kAppCall + "sendDat(s:" + kDeviceJson + ")"});
    expect_paths_of_serving_child();
    EXPECT_EQ(module_log_lines(env().error_log_since(before), "send.dat"),
              std::vector<std::string>{"[korvex:info] [pid N] korvex_handler:L apache: send.dat doing"});
}

TEST_F(RoutingTest, SendDatDropsTheReply) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.app","member":"sendDat","mode":"values",)"
                   R"("signature":"s","values":["visible?"]})");
    HttpResponse response = post(port(), "/send.dat", "json=1");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "");
}

TEST_F(RoutingTest, SendDatWithGetIsNotAllowed) {
    const size_t before = env().error_log_size();
    HttpResponse response = get(port(), "/send.dat?json=" + kDeviceJsonEscaped);
    expect_not_allowed(response, kAllowPostOnly, "GET");
    EXPECT_TRUE(env().wait_for_log("send.dat doing", std::chrono::seconds(5), before));
    no_bus_traffic();
}

// --- get.dat ------------------------------------------------------------------------------

TEST_F(RoutingTest, GetDatAsksTheAppAndPrintsTheReply) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.app","member":"getDat","mode":"values",)"
                   R"("signature":"s","values":["{\"dat\":[1,2,3]}"]})");
    HttpResponse response = get(port(), "/get.dat?json=ignored");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.headers["content-type"], kContentType);
    EXPECT_EQ(response.body, "{\"dat\":[1,2,3]}");
    EXPECT_EQ(calls(), std::vector<std::string>{kAppCall + "getDat(s:getDat)"});
    expect_paths_of_serving_child();
}

TEST_F(RoutingTest, GetDatPrintsNullWhenTheAppGivesNoReply) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.app","member":"getDat","mode":"error"})");
    EXPECT_EQ(get(port(), "/get.dat").body, "(null)");
    sim_->set_absent("com.korvex-labs.www.app", true);
    EXPECT_EQ(get(port(), "/get.dat").body, "(null)");
    sim_->set_absent("com.korvex-labs.www.app", false);
}

TEST_F(RoutingTest, GetDatPrintsNullForAReplyWithoutText) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.app","member":"getDat","mode":"noarg"})");
    EXPECT_EQ(get(port(), "/get.dat").body, "(null)");
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.app","member":"getDat","mode":"wrongtype"})");
    EXPECT_EQ(get(port(), "/get.dat").body, "(null)");
}

TEST_F(RoutingTest, GetDatWithPostIsNotAllowed) {
    HttpResponse response = post(port(), "/get.dat", "json=1");
    expect_not_allowed(response, kAllowGetOnly, "POST");
    no_bus_traffic();
}

// --- network.cgi and update.cgi methods ---------------------------------------------------

TEST_F(RoutingTest, NetworkWithOtherMethodsIsNotAllowed) {
    for (const char *method : {"PUT", "DELETE", "OPTIONS"}) {
        HttpResponse response = request(method, port(), "/network.cgi?test=1", "test=1");
        expect_not_allowed(response, kAllowGetAndPost, method);
    }
    no_bus_traffic();
}

TEST_F(RoutingTest, UpdateWithOtherMethodsIsNotAllowed) {
    const size_t before = env().error_log_size();
    HttpResponse response = request("PUT", port(), "/update.cgi", "x");
    expect_not_allowed(response, kAllowGetAndPost, "PUT");
    EXPECT_EQ(env().count_log_lines("purging", before), 0u);
    no_bus_traffic();
}

TEST_F(RoutingTest, EveryRefusedMethodIsAnsweredWithTheResourcesAllowList) {
    const struct {
        const char *target;
        const std::string &allow;
        std::vector<const char *> refused;
    } resources[] = {
        {"/network.cgi", kAllowGetAndPost, {"PUT", "DELETE", "OPTIONS", "PATCH"}},
        {"/sdk.cgi", kAllowGetAndPost, {"PUT", "DELETE", "OPTIONS", "PATCH"}},
        {"/update.cgi", kAllowGetAndPost, {"PUT", "DELETE", "OPTIONS", "PATCH"}},
        {"/send.dat", kAllowPostOnly, {"GET", "HEAD", "PUT", "DELETE", "OPTIONS", "PATCH"}},
        {"/get.dat", kAllowGetOnly, {"POST", "PUT", "DELETE", "OPTIONS", "PATCH"}},
    };
    for (const auto &resource : resources) {
        for (const char *method : resource.refused) {
            const std::string body = std::string(method) == "GET" || std::string(method) == "HEAD" ? "" : "json=1";
            const HttpResponse response = request(method, port(), resource.target, body);
            expect_not_allowed(response, resource.allow, std::string(method) + " " + resource.target);
        }
    }
    no_bus_traffic();
}

// --- requests the module declines ---------------------------------------------------------

TEST_F(RoutingTest, ForeignHandlerNameIsLeftToItsHandler) {
    HttpResponse response = get(port(), "/foreign.cgi?test=1");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "static file behind a foreign handler\n");
    no_bus_traffic();
}

TEST_F(RoutingTest, HandlerNameNobodyHasIsNotFound) {
    HttpResponse response = get(port(), "/unknown.cgi?test=1");
    EXPECT_EQ(response.status, 404);
    EXPECT_EQ(response.body.find("testAPI"), std::string::npos);
    no_bus_traffic();
}

TEST_F(RoutingTest, RequestWithoutHandlerNameIsServedAsAFile) {
    std::ifstream file(env().run_dir() + "/htdocs/index.html");
    std::stringstream index;
    index << file.rdbuf();
    HttpResponse response = get(port(), "/index.html?test=1");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, index.str());
    EXPECT_EQ(get(port(), "/missing.html").status, 404);
    // Resource names are matched by handler, not by file name: no location, no module.
    EXPECT_EQ(get(port(), "/sub/network.cgi?test=0").status, 404);
    no_bus_traffic();
}

}  // namespace
}  // namespace korvex::test
