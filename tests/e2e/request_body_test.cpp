// POST bodies read by the module: whole-body unescaping, chunked bodies, bodies spanning
// many pieces, and bodies that are missing or declare absurd lengths.
#include <chrono>
#include <map>
#include <string>

#include "tests/support/gateway_env.h"
#include "tests/support/http_client.h"

namespace korvex::test {
namespace {

class RequestBodyTest : public GatewayTest {
 protected:
    static std::string test_output(const std::string &value) {
        return "in testAPI, value: " + value + "<br>test done";
    }
    static std::string unknown_output(const std::string &name) { return name + " doesn't exist"; }
};

TEST_F(RequestBodyTest, PostBodyRunsItsCommands) {
    HttpResponse response = post(port(), "/network.cgi", "test=1&nosuch=2");
    ASSERT_EQ(response.error, "");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, test_output("1") + unknown_output("nosuch"));
}

TEST_F(RequestBodyTest, EscapedSeparatorsSplitAfterUnescaping) {
    // The whole body is unescaped before it is split, so %26 and %3D act as '&' and '='.
    HttpResponse response = post(port(), "/network.cgi", "test=a%26nosuch%3Db");
    ASSERT_EQ(response.error, "");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, test_output("a") + unknown_output("nosuch"));
}

TEST_F(RequestBodyTest, PlusIsNotABlank) {
    HttpResponse response = post(port(), "/network.cgi", "test=x+y%20z");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, test_output("x+y z"));
}

TEST_F(RequestBodyTest, ChunkedBodyIsRead) {
    HttpResponse response = post_chunked(port(), "/network.cgi", "test=chunked&nosuch=x");
    ASSERT_EQ(response.error, "");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, test_output("chunked") + unknown_output("nosuch"));
}

TEST_F(RequestBodyTest, LargeChunkedBodySpanningManyPieces) {
    const std::string value(300000, 'v');
    HttpResponse response = post_chunked(port(), "/network.cgi", "test=" + value);
    EXPECT_EQ(response.status, 200);
    EXPECT_TRUE(response.body == test_output(value)) << response.body.size() << " bytes";
}

TEST_F(RequestBodyTest, LargeBodySpanningManyPieces) {
    std::string value;
    for (int i = 0; value.size() < 1000000; ++i) value += std::to_string(i) + ",";
    HttpResponse response = post(port(), "/network.cgi", "test=" + value + "&nosuch=end");
    EXPECT_EQ(response.status, 200);
    EXPECT_TRUE(response.body == test_output(value) + unknown_output("nosuch")) << response.body.size() << " bytes";
}

TEST_F(RequestBodyTest, EmptyBodyRunsNothing) {
    HttpResponse response = post(port(), "/network.cgi", "");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "");
}

TEST_F(RequestBodyTest, MissingBodyIsLogged) {
    const size_t before = env().error_log_size();
    HttpRequest request;
    request.method = "POST";
    request.target = "/network.cgi";
    request.body_mode = BodyMode::kNone;
    HttpResponse response = send(port(), request);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "");
    EXPECT_TRUE(env().wait_for_log("[korvex:error]", std::chrono::seconds(5), before));
    EXPECT_EQ(env().count_log_lines("No request body.", before), 1u) << env().error_log_since(before);
}

TEST_F(RequestBodyTest, AbsurdContentLengthAllocatesNothing) {
    std::map<pid_t, long> rss_before;
    for (pid_t child : env().server_child_pids()) rss_before[child] = GatewayEnv::vm_rss_kb(child);
    const size_t before = env().error_log_size();

    // Declares 900 MB (below the server's limit, far over the module's) and sends a few
    // bytes: refused at once, before anything is read or kept.
    const std::string raw =
        "POST /network.cgi HTTP/1.1\r\nHost: 127.0.0.1\r\n"
        "Content-Type: application/x-www-form-urlencoded\r\n"
        "Content-Length: 900000000\r\n\r\ntest=absurd";
    HttpResponse response = send_raw(port(), raw, 5000);
    EXPECT_EQ(response.status, 413);

    EXPECT_TRUE(env().wait_for_log("Request body larger than 1048576 bytes.", std::chrono::seconds(10), before))
        << env().error_log_since(before);
    EXPECT_EQ(env().count_log_lines("in testAPI", before), 0u);
    // No child grew by anything like the declared length.
    for (const auto &[child, rss] : rss_before) {
        const long now = GatewayEnv::vm_rss_kb(child);
        if (now < 0 || rss < 0) continue;
        EXPECT_LT(now - rss, 4 * 1024) << "child " << child;
    }

    // Over the server's limit: refused before any body is read.
    const std::string huge =
        "POST /network.cgi HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n"
        "Content-Type: application/x-www-form-urlencoded\r\n"
        "Content-Length: 99999999999999999\r\n\r\ntest=huge";
    response = send_raw(port(), huge, 5000);
    EXPECT_NE(response.status, 200);
    EXPECT_EQ(env().count_log_lines("in testAPI", before), 0u);

    // The server serves on.
    EXPECT_EQ(post(port(), "/network.cgi", "test=after").body, test_output("after"));
}

TEST_F(RequestBodyTest, ShortBodyFailsTheRead) {
    const size_t before = env().error_log_size();
    // Declares more than it sends and closes its side: the read fails, nothing runs.
    const std::string raw =
        "POST /network.cgi HTTP/1.1\r\nHost: 127.0.0.1\r\n"
        "Content-Type: application/x-www-form-urlencoded\r\n"
        "Content-Length: 100\r\n\r\ntest=short";
    send_raw(port(), raw, 1000);
    EXPECT_TRUE(env().wait_for_log("Error reading request body.", std::chrono::seconds(10), before))
        << env().error_log_since(before);
    EXPECT_EQ(env().count_log_lines("in testAPI", before), 0u);
}

TEST_F(RequestBodyTest, SendDatWithoutBodyLogsTmpIsNull) {
    const size_t before = env().error_log_size();
    HttpRequest request;
    request.method = "POST";
    request.target = "/send.dat";
    request.body_mode = BodyMode::kNone;
    HttpResponse response = send(port(), request);
    EXPECT_EQ(response.status, 200);
    EXPECT_TRUE(env().wait_for_log("tmp is NULL", std::chrono::seconds(5), before))
        << env().error_log_since(before);
    EXPECT_EQ(env().count_log_lines("No request body.", before), 1u);
}

}  // namespace
}  // namespace korvex::test
