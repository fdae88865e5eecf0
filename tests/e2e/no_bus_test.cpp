// A server started while the system bus is down: its children keep serving, every bus
// call fails with "dbusData is NULL", and once the bus is up the next request works
// without restarting the server.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <future>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/access_log.h"
#include "tests/support/gateway_env.h"
#include "tests/support/http_client.h"
#include "tests/support/log_lines.h"
#include "tests/support/multipart.h"
#include "tests/support/process_runner.h"
#include "tests/support/record_text.h"
#include "tests/support/sim_client.h"

namespace korvex::test {
namespace {


// A client that sends its requests one after another on one keep-alive connection.
class KeepAliveClient {
public:
    explicit KeepAliveClient(int port) {
        fd_ = open_loopback_connection(port);
        if (fd_ < 0) ADD_FAILURE() << "cannot connect to port " << port;
    }
    ~KeepAliveClient() {
        if (fd_ >= 0) close(fd_);
    }
    // The body of the answer to GET target (with a Content-Length, or chunked).
    std::string get(const std::string &target) {
        const std::string request = "GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
        if (write(fd_, request.data(), request.size()) != static_cast<ssize_t>(request.size())) return "<write>";
        size_t header_end = std::string::npos;
        while ((header_end = text_.find("\r\n\r\n")) == std::string::npos) {
            if (!fill()) return "<closed>";
        }
        const std::string head = text_.substr(0, header_end);
        text_.erase(0, header_end + 4);
        const size_t at = head.find("Content-Length: ");
        if (at != std::string::npos) return take(static_cast<size_t>(std::stol(head.substr(at + 16))));
        if (head.find("Transfer-Encoding: chunked") == std::string::npos) return "<no length>";
        std::string body;
        for (;;) {
            size_t line_end;
            while ((line_end = text_.find("\r\n")) == std::string::npos) {
                if (!fill()) return "<closed>";
            }
            const size_t size = std::stoul(text_.substr(0, line_end), nullptr, 16);
            text_.erase(0, line_end + 2);
            const std::string chunk = take(size + 2);
            if (size == 0) return body;
            body += chunk.substr(0, size);
        }
    }

private:
    bool fill() {
        char buffer[4096];
        const ssize_t n = read(fd_, buffer, sizeof buffer);
        if (n <= 0) return false;
        text_.append(buffer, static_cast<size_t>(n));
        return true;
    }
    std::string take(size_t length) {
        while (text_.size() < length) {
            if (!fill()) return "<closed>";
        }
        std::string taken = text_.substr(0, length);
        text_.erase(0, length);
        return taken;
    }

    int fd_ = -1;
    std::string text_;  // received, not yet taken
};

class NoBusTest : public GatewayTest {
  protected:
    static void SetUpTestSuite() {
        GatewayEnv::Options options;
        options.with_bus = false;
        options.log_level = KORVEX_LOG_CHILD;  // child starts are asserted line by line
        use_env(options);
    }

    void SetUp() override {
        GatewayTest::SetUp();
        before_ = env().error_log_size();
    }

    std::string connection_error() const {
        return "[korvex:error] [pid N] dbus_init:L apache: Connection Error (Failed to connect to socket " +
               env().run_dir() + "/bus/socket: No such file or directory)";
    }
    static std::string no_data(const std::string &function) {
        return "[korvex:error] [pid N] " + function + ":L apache: dbusData is NULL";
    }
    std::vector<std::string> errors_since_setup() const {
        return module_log_lines(env().error_log_since(before_), "[korvex:error]");
    }

    size_t before_ = 0;
};

TEST_F(NoBusTest, ChildrenStartWithoutAConnection) {
    std::set<long> children;
    for (pid_t child : env().server_child_pids()) children.insert(GatewayEnv::namespace_pid(child));
    ASSERT_GE(children.size(), 1u);
    const std::string log = env().error_log();
    for (long child : children) {
        const std::string pid = "[pid " + std::to_string(child) + "] ";
        EXPECT_EQ(module_log_lines(log, pid + "dbus_init:"),
                  (std::vector<std::string>{"[korvex:trace1] [pid N] dbus_init:L apache: enter dbus_init",
                                            connection_error()}));
        EXPECT_EQ(module_log_lines(log, pid + "initialize_child:").at(1), no_data("initialize_child"));
        EXPECT_EQ(module_log_lines(log, pid + "initialize_child:").size(), 3u);
    }
}

TEST_F(NoBusTest, TestCommandStillAnswersAndEachCallFails) {
    HttpResponse response = get(port(), "/network.cgi?test=3");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "in testAPI, value: 3<br>test done");
    ASSERT_TRUE(env().wait_for_log("leave testAPI", std::chrono::seconds(5), before_));
    // Every call tries to connect once more and fails; with the log unthinned (the tests'
    // default) each attempt writes both records.
    const std::string failed = no_data("apache_dbus_string_message");
    std::vector<std::string> failures, connection_errors;
    for (const std::string &line : errors_since_setup()) {
        (line == failed ? failures : connection_errors).push_back(line);
    }
    EXPECT_EQ(failures.size(), 3u);
    EXPECT_EQ(connection_errors, std::vector<std::string>(3, connection_error()));
}

// Records thinned as in production, in children of their own whose only records so far
// are those of their start.
class FreshNoBusTest : public NoBusTest {
protected:
    static void SetUpTestSuite() {
        GatewayEnv::Options options;
        options.with_bus = false;
        options.log_level = KORVEX_LOG_CHILD;
        options.thin_log_records = true;
        use_env(options);
    }
};

// One keep-alive connection, so that both requests reach the same child.
TEST_F(FreshNoBusTest, RepeatedFailureRecordsAreWrittenOnceASecondWithACount) {
    KeepAliveClient client(port());
    // A second without errors first: the child's start wrote its connection error.
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    EXPECT_EQ(client.get("/network.cgi?test=3"), "in testAPI, value: 3<br>test done");
    const size_t middle = env().error_log_size();
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    EXPECT_EQ(client.get("/network.cgi?test=1"), "in testAPI, value: 1<br>test done");
    ASSERT_TRUE(env().wait_for_log("leave testAPI", std::chrono::seconds(5), middle));
    std::vector<std::string> second = module_log_lines(env().error_log_since(middle), "[korvex:error]");
    // The count quotes the record's own position; its line number is the code's business.
    for (std::string &line : second) line = std::regex_replace(line, std::regex(R"(left out: (\w+):\d+ )"), "left out: $1:L ");
    // Of the first request's three attempts only the first was written; the second request
    // says how many were left out before it writes its own.
    const std::string connection = connection_error().substr(std::string("[korvex:error] [pid N] ").size());
    const std::string failure = no_data("apache_dbus_string_message").substr(std::string("[korvex:error] [pid N] ").size());
    EXPECT_EQ(second, (std::vector<std::string>{"[korvex:error] [pid N] 2 more like this left out: " + connection,
                                                connection_error(),
                                                "[korvex:error] [pid N] 2 more like this left out: " + failure,
                                                no_data("apache_dbus_string_message")}));
}

TEST_F(NoBusTest, ForwardingResourcesAnswerWithoutReplies) {
    EXPECT_EQ(get(port(), "/get.dat").body, "(null)");
    EXPECT_EQ(get(port(), "/sdk.cgi?json=%7B%22cmd%22%3A%22x%22%7D").body, "");
    HttpResponse sent = post(port(), "/send.dat", "json=1");
    EXPECT_EQ(sent.status, 200);
    EXPECT_EQ(sent.body, "");
    EXPECT_EQ(module_log_lines(env().error_log_since(before_), "dbusData is NULL").size(), 3u);
}

// The image is stored, but nothing can start the updater: the answer says so.
TEST_F(NoBusTest, UpdateStoresTheImageAndAnswers503) {
    env().write_server_tmp("uImage", "");
    const std::string boundary = "----NoBusBoundary";
    const std::string body = "--" + boundary + "\r\nContent-Type: application/octet-stream\r\n\r\n" +
                             std::string(20000, 'i') + "\r\n--" + boundary + "--\r\n";
    HttpResponse response =
        post(port(), "/update.cgi", body, "multipart/form-data; boundary=" + boundary, {kNoPurgePauseHeader});
    EXPECT_EQ(response.status, 503);
    EXPECT_EQ(response.body, "update could not be started");
    EXPECT_EQ(read_file(env().server_tmp_path("uImage")), std::string(20000, 'i'));
    std::vector<std::string> failed;
    for (const std::string &line : errors_since_setup()) {
        if (line.find("dbusData is NULL") != std::string::npos) failed.push_back(line);
    }
    EXPECT_EQ(failed, (std::vector<std::string>{no_data("apache_dbus_string_message"),
                                                no_data("dbus_signal_update_alive"),
                                                no_data("apache_dbus_send_str_ret_int")}));
}

TEST_F(NoBusTest, ChildWithoutConnectionSaysSoWhenItEnds) {
    std::set<long> old_children;
    for (pid_t child : env().server_child_pids()) old_children.insert(GatewayEnv::namespace_pid(child));
    // A graceful restart ends the idle children of the old generation.
    ASSERT_EQ(::kill(env().server_pid(), SIGUSR1), 0);
    ASSERT_TRUE(env().wait_for_log("resuming normal operations", std::chrono::seconds(20), before_));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    size_t ended = 0;
    while (std::chrono::steady_clock::now() < deadline) {
        ended = env().count_log_lines("dbus_plain_cleanup_func:", before_);
        if (ended >= old_children.size()) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    const std::string log = env().error_log_since(before_);
    for (long child : old_children) {
        EXPECT_EQ(module_log_lines(log, "[pid " + std::to_string(child) + "] dbus_plain_cleanup_func:"),
                  std::vector<std::string>{no_data("dbus_plain_cleanup_func")})
            << "child " << child;
    }
    // The new generation starts without a bus as well, and serves.
    EXPECT_EQ(get(port(), "/network.cgi?test=0").body, "in testAPI, value: 0<br>test done");
}

// Runs last: the bus comes up under the running server.
TEST_F(NoBusTest, ZzOnceTheBusIsUpTheNextRequestWorks) {
    // Children of the generation the restart above started may still be starting (and
    // failing to connect); this test counts from when every child has started.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (;;) {
        const std::string log = env().error_log();
        bool all_started = true;
        for (pid_t child : env().server_child_pids()) {
            const std::string pid = "[pid " + std::to_string(GatewayEnv::namespace_pid(child)) + "] ";
            bool started = false;
            for (const std::string &line : module_log_lines(log, pid + "initialize_child:")) {
                started = started || line.find("apache: leave initialize_child") != std::string::npos;
            }
            all_started = all_started && started;
        }
        if (all_started || std::chrono::steady_clock::now() > deadline) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    before_ = env().error_log_size();
    env().bus_start();
    SimClient sim(env().bus_address());
    sim.reset();
    // Two requests at once, answered slowly, usually reach two children (one, when the
    // second child of the new generation is still starting): each connects now.
    sim.set_rule(R"({"destination":"com.korvex-labs.www.sdk","mode":"default","delay_ms":400})");
    const size_t access_before = access_log_size(env());
    std::vector<std::future<HttpResponse>> answers;
    for (int i = 0; i < 2; ++i)
        answers.push_back(std::async(std::launch::async, [] { return get(port(), "/network.cgi?test=1"); }));
    for (auto &answer : answers) EXPECT_EQ(answer.get().body, "in testAPI, value: 1<br>test done");

    const std::vector<std::string> lines = wait_for_access_lines(env(), access_before, 2);
    ASSERT_EQ(lines.size(), 2u);
    std::set<std::string> expected_paths = {module_path(served_pid(lines[0])), module_path(served_pid(lines[1]))};
    std::set<std::string> paths;
    for (const SimRecord &record : sim.records()) paths.insert(record.path);
    EXPECT_EQ(paths, expected_paths);
    EXPECT_EQ(module_log_lines(env().error_log_since(before_), "[korvex:error]"), std::vector<std::string>{});
    // Each serving child opened its connection once, on its own path.
    for (const std::string &line : lines) {
        const long child = served_pid(line);
        EXPECT_EQ(module_log_lines(env().error_log_since(before_), "[pid " + std::to_string(child) + "] dbus_init:"),
                  (std::vector<std::string>{"[korvex:debug] [pid N] dbus_init:L apache: dbus_bus_get_private success.",
                                            "[korvex:trace1] [pid N] dbus_init:L apache: objPath: " + module_path(child)}));
    }
}

}  // namespace
}  // namespace korvex::test
