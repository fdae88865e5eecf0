// Fixture of the hostile-input sweeps: whatever comes in, every answer must be a well-formed
// HTTP response of the resource asked (or, where the client itself gives up, none), no server
// child may die, and the children serving at the start must still be the ones serving at the
// end. Each test's requests are counted and checked once more as the test ends.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <initializer_list>
#include <string>
#include <vector>

#include "korvex_log.h"
#include "tests/support/gateway_env.h"
#include "tests/support/http_client.h"
#include "tests/support/multipart.h"
#include "tests/support/process_runner.h"

namespace korvex::test {

inline constexpr char kHtml[] = "text/html;charset=utf-8";
inline constexpr long kGiveUpMs = 400;  // how long a client that lies about its body waits

namespace hostile {

// Text in the server's logs that only a dying or misbehaving child writes.
inline const char *const kCrashMarkers[] = {
    "exit signal",    "Segmentation fault", "AddressSanitizer", "LeakSanitizer", "runtime error:",
    "Aborted",        "double free",        "free(): ",         "malloc(): ",    "corrupted",
    "stack smashing", "D-Bus library",      "arguments to dbus_",
};

inline std::size_t file_size(const std::string &path) { return read_file(path, 0).size(); }

inline bool alive(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    std::getline(stat, text);
    const std::size_t close = text.rfind(')');
    return close != std::string::npos && close + 2 < text.size() && text[close + 2] != 'Z';
}

inline bool ends_with(const std::string &text, const std::string &suffix) {
    return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

}  // namespace hostile

// What a well-formed answer of a resource looks like.
enum class Shape {
    kNetwork,  // command outputs: empty, or ending with a command's verdict
    kText,     // any text of the module (sdk.cgi, get.dat)
    kEmpty,    // send.dat: nothing
    kUpdate,   // update.cgi: the status page
    kAny,      // not the module's (server's own error pages)
};

class HostileInputTest : public GatewayTest {
protected:
    // Every record the module writes: hostile values also pass through the trace lines.
    static void SetUpTestSuite() { use_log_level(KORVEX_LOG_CHILD); }

    void SetUp() override {
        GatewayTest::SetUp();
        children_ = env().server_child_pids();
        log_before_ = env().error_log_size();
        stderr_before_ = hostile::file_size(stderr_path());
        started_ = std::chrono::steady_clock::now();
        sent_ = 0;
    }

    void TearDown() override {
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started_).count();
        RecordProperty("requests", static_cast<int>(sent_));
        std::printf("[hostile] %zu requests in %.1f s\n", sent_, seconds);
        expect_no_casualties();
    }

    std::string stderr_path() const { return env().run_dir() + "/logs/httpd.stderr"; }

    // No crash traces, no sanitizer reports, every child of the start still alive, and the
    // server still gives an exact, ordinary answer.
    void expect_no_casualties() {
        const std::string log = env().error_log_since(log_before_) + read_file(stderr_path(), stderr_before_);
        for (const char *marker : hostile::kCrashMarkers) {
            const std::size_t at = log.find(marker);
            EXPECT_EQ(at, std::string::npos) << "\"" << marker << "\" in the server's logs:\n"
                                             << log.substr(at > 2000 ? at - 2000 : 0, 4000);
        }
        EXPECT_TRUE(env().sanitizer_reports().empty()) << env().sanitizer_reports().front();
        // Under prefork and one client at a time nothing retires a child: each one of the start
        // must still be there. (Threaded servers retire idle children by design.)
        if (env().options().mpm == "prefork") {
            for (pid_t child : children_) EXPECT_TRUE(hostile::alive(child)) << "server child " << child << " is gone";
        }
        EXPECT_TRUE(hostile::alive(env().server_pid()));
        HttpResponse canary = get(port(), "/network.cgi?nosuch=1&getdoscenemode");
        EXPECT_EQ(canary.status, 200) << canary.error;
        EXPECT_TRUE(canary.body.rfind("nosuch doesn't exist", 0) == 0 &&
                    hostile::ends_with(canary.body, "getdoscenemode done"))
            << canary.body;
    }

    // Sends one raw request and checks the answer. may_drop: the client gives up (or the
    // server refuses early and closes), so no answer at all is acceptable too.
    HttpResponse exchange(const std::string &what, const std::string &raw, Shape shape,
                          std::initializer_list<long> statuses, bool may_drop = false,
                          long timeout_ms = 15000) {
        ++sent_;
        HttpResponse response = send_raw(port(), raw, timeout_ms);
        check(what, response, shape, statuses, may_drop);
        return response;
    }

    void check(const std::string &what, const HttpResponse &response, Shape shape,
               std::initializer_list<long> statuses, bool may_drop) {
        const std::string label = what.size() > 300 ? what.substr(0, 300) + "..." : what;
        if (response.status == 0) {
            EXPECT_TRUE(may_drop) << label << ": no answer (" << response.error << ")";
            return;
        }
        EXPECT_TRUE(response.error.empty() || may_drop) << label << ": " << response.error;
        bool expected = false;
        for (long status : statuses) expected = expected || status == response.status;
        EXPECT_TRUE(expected) << label << ": status " << response.status;
        if (response.status != 200 || shape == Shape::kAny) return;
        auto type = response.headers.find("content-type");
        if (shape != Shape::kUpdate) {
            EXPECT_TRUE(type != response.headers.end() && type->second == kHtml) << label;
        }
        switch (shape) {
            case Shape::kNetwork:
                EXPECT_TRUE(response.body.empty() || hostile::ends_with(response.body, " done") ||
                            hostile::ends_with(response.body, " failed") ||
                            hostile::ends_with(response.body, " doesn't exist"))
                    << label << ": " << response.body.substr(0, 500);
                break;
            case Shape::kEmpty:
                EXPECT_EQ(response.body, "") << label;
                break;
            case Shape::kUpdate:
                EXPECT_TRUE(response.body == kUpdateRefresh || response.body == "updating") << label << ": "
                                                                                       << response.body;
                break;
            case Shape::kText:
            case Shape::kAny:
                break;
        }
    }

    std::vector<pid_t> children_;
    std::size_t log_before_ = 0;
    std::size_t stderr_before_ = 0;
    std::size_t sent_ = 0;
    std::chrono::steady_clock::time_point started_;
};

}  // namespace korvex::test
