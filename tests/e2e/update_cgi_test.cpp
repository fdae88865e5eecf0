// "update.cgi" end to end: the order of what it asks the daemons, the updater command line,
// the refusal while an updater runs, and what it still does when the bus fails it.
#include <chrono>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/access_log.h"
#include "tests/support/gateway_env.h"
#include "tests/support/http_client.h"
#include "tests/support/multipart.h"
#include "tests/support/process_runner.h"
#include "tests/support/log_lines.h"
#include "tests/support/record_text.h"
#include "tests/support/sim_client.h"

namespace korvex::test {
namespace {

const std::string kBoundary = "----KorvexUpdateBoundary1f7c";
const std::string kAdmin = "com.korvex-labs.www.platform com.KorvexLabs.platform.admin ";
const std::string kGetModel = "method_call " + kAdmin + "getModel(s:getModel)";
const std::string kAlive = "signal - com.KorvexLabs.signal.update alive(i:1)";
const std::string kAliveWithdrawn = "signal - com.KorvexLabs.signal.update alive(i:0)";
const std::string kWithdrawnLog =
    "[korvex:notice] [pid N] korvex_handler:L apache: update announcement withdrawn (alive 0): no updater started";

std::string do_system(const std::string &line) { return "method_call " + kAdmin + "doSystem(s:" + line + ")"; }

std::string image_bytes(size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char &byte : bytes) byte = static_cast<char>(random() & 0xff);
    return bytes;
}

std::string multipart(const std::string &image) {
    return "--" + kBoundary + "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"uImage\"\r\n" +
           "Content-Type: application/octet-stream\r\n\r\n" + image + "\r\n--" + kBoundary + "--\r\n";
}

class UpdateCgiTest : public GatewayTest {
  protected:
    // The upload is followed through its trace lines.
    static void SetUpTestSuite() { use_log_level(KORVEX_LOG_TRACE); }

    void SetUp() override {
        GatewayTest::SetUp();
        sim_ = std::make_unique<SimClient>(env().bus_address());
        sim_->reset();
        env().write_server_tmp("uImage", "");
        log_before_ = env().error_log_size();
        access_before_ = access_log_size(env());
    }

    // Whether the upload asks to skip the pause after the memory purge (kNoPurgePauseHeader).
    enum class Pause { kSkipped, kKept };

    HttpResponse upload(const std::string &image, long expected_status = 200, Pause pause = Pause::kSkipped) {
        return upload_body(multipart(image), expected_status, pause);
    }
    HttpResponse upload_body(const std::string &body, long expected_status, Pause pause = Pause::kSkipped) {
        std::vector<std::string> headers;
        if (pause == Pause::kSkipped) headers.push_back(kNoPurgePauseHeader);
        const auto started = std::chrono::steady_clock::now();
        HttpResponse response =
            post(port(), "/update.cgi", body, "multipart/form-data; boundary=" + kBoundary, headers);
        elapsed_ = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started);
        EXPECT_EQ(response.error, "");
        EXPECT_EQ(response.status, expected_status);
        return response;
    }

    std::string stored() const { return read_file(env().server_tmp_path("uImage")); }

    // The object path of the child that served the one request of the test.
    // The line of the fixture's own request before the test may come after access_before_
    // was taken: only the lines of requests to "update.cgi" count.
    std::string serving_path() {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        for (;;) {
            std::vector<std::string> uploads;
            for (const std::string &line : wait_for_access_lines(env(), access_before_, 0)) {
                if (line.find("/update.cgi") != std::string::npos) uploads.push_back(line);
            }
            if (uploads.size() == 1) return module_path(served_pid(uploads[0]));
            if (!uploads.empty() || std::chrono::steady_clock::now() > deadline) return "(no access line)";
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }

    std::vector<std::string> log_lines(const std::string &containing = "") const {
        return module_log_lines(env().error_log_since(log_before_), containing);
    }

    std::unique_ptr<SimClient> sim_;
    size_t log_before_ = 0;
    size_t access_before_ = 0;
    std::chrono::milliseconds elapsed_{0};
};

TEST_F(UpdateCgiTest, AsksForTheModelAnnouncesItselfStoresTheImageAndStartsTheUpdater) {
    const std::string image = image_bytes(20000, 1);
    HttpResponse response = upload(image, 200, Pause::kKept);
    EXPECT_EQ(response.body, kUpdateRefresh);
    EXPECT_EQ(response.headers["content-type"], "text/html;charset=utf-8");
    EXPECT_TRUE(stored() == image) << stored().size() << " bytes stored";

    const std::string path = serving_path();
    EXPECT_EQ(record_texts(sim_->records()),
              (std::vector<std::string>{kGetModel + " " + path, kAlive + " " + path,
                                        do_system("update -k /tmp/uImage -m QTR58 -r 3 &") + " " + path}));
    // The memory purge is followed by a pause of one second.
    EXPECT_GE(elapsed_.count(), 1000);
}

TEST_F(UpdateCgiTest, TraceOfANormalRun) {
    const std::string body = multipart(image_bytes(20000, 2));
    HttpResponse response = upload(image_bytes(20000, 2));
    EXPECT_EQ(response.body, kUpdateRefresh);
    ASSERT_TRUE(env().wait_for_log("leave apache_dbus_send_str_ret_int", std::chrono::seconds(5), log_before_));
    const std::string length = std::to_string(body.size());
    EXPECT_EQ(log_lines(),
              (std::vector<std::string>{
                  "[korvex:notice] [pid N] korvex_handler:L apache: purging ...",
                  "[korvex:debug] [pid N] save_uImage:L apache: enter save_uImage",
                  "[korvex:debug] [pid N] save_uImage:L apache: total: " + length,
                  "[korvex:debug] [pid N] save_uImage:L apache: Content-Length: " + length,
                  "[korvex:debug] [pid N] save_uImage:L apache: bufSize: " + std::to_string(kBoundary.size() + 3) +
                      ", 0x? 0x?",
                  "[korvex:debug] [pid N] save_uImage:L apache: boundary: --" + kBoundary,
                  "[korvex:debug] [pid N] save_uImage:L apache: end: " + length + ", buf addr: 0x?",
                  "[korvex:debug] [pid N] save_uImage:L apache: Got " + length + " bytes of request body data.",
                  "[korvex:debug] [pid N] apache_dbus_send_str_ret_int:L apache: enter apache_dbus_send_str_ret_int",
                  "[korvex:debug] [pid N] apache_dbus_send_str_ret_int:L apache: ret: 0",
                  "[korvex:debug] [pid N] apache_dbus_send_str_ret_int:L apache: leave apache_dbus_send_str_ret_int",
              }));
}

TEST_F(UpdateCgiTest, ModelTextIsQuotedIntoTheUpdaterLine) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","member":"getModel","mode":"values",)"
                   R"("signature":"s","values":["QTR60"]})");
    EXPECT_EQ(upload(image_bytes(9000, 3)).body, kUpdateRefresh);
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","member":"getModel","mode":"values",)"
                   R"("signature":"s","values":["QTR 58; reboot"]})");
    EXPECT_EQ(upload(image_bytes(9000, 4)).body, kUpdateRefresh);
    // No model at all: the absent text keeps its place in the line.
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","member":"getModel","mode":"error"})");
    EXPECT_EQ(upload(image_bytes(9000, 5)).body, kUpdateRefresh);

    std::vector<std::string> lines;
    for (const SimRecord &record : sim_->records()) {
        if (record.member == "doSystem") lines.push_back(record.args.at(0));
    }
    EXPECT_EQ(lines, (std::vector<std::string>{"s:update -k /tmp/uImage -m QTR60 -r 3 &",
                                               "s:update -k /tmp/uImage -m 'QTR 58; reboot' -r 3 &",
                                               "s:update -k /tmp/uImage -m '(null)' -r 3 &"}));
}

// Without an image there is nothing to update: the updater is not started, and the update
// announced before the body was looked at is taken back.
TEST_F(UpdateCgiTest, GetWithoutBodyStartsNothing) {
    env().write_server_tmp("uImage", "previous");
    HttpResponse response = get_with_fault(port(), "/update.cgi", kNoPurgePause, 10000);
    EXPECT_EQ(response.status, 400);
    EXPECT_EQ(stored(), "previous");
    const std::string path = serving_path();
    EXPECT_EQ(record_texts(sim_->records()),
              (std::vector<std::string>{kGetModel + " " + path, kAlive + " " + path, kAliveWithdrawn + " " + path}));
    EXPECT_EQ(log_lines("No request body."),
              std::vector<std::string>{"[korvex:error] [pid N] save_uImage:L apache: No request body."});
    EXPECT_EQ(log_lines("korvex_handler"),
              (std::vector<std::string>{
                  "[korvex:notice] [pid N] korvex_handler:L apache: purging ...",
                  "[korvex:error] [pid N] korvex_handler:L apache: upload refused (400), the updater is not started",
                  kWithdrawnLog,
              }));
}

// Every refusal takes the announcement back, once, after the refusal is known.
TEST_F(UpdateCgiTest, ARefusedUploadTakesTheAnnouncementBack) {
    env().write_server_tmp("uImage", "previous");
    const std::string truncated = multipart(image_bytes(20000, 10)).substr(0, 15000);
    HttpResponse response = upload_body(truncated, 400);
    EXPECT_EQ(response.body, "The firmware upload was incomplete or could not be stored; nothing was updated.");
    EXPECT_EQ(stored(), "previous");
    const std::string path = serving_path();
    EXPECT_EQ(record_texts(sim_->records()),
              (std::vector<std::string>{kGetModel + " " + path, kAlive + " " + path, kAliveWithdrawn + " " + path}));
    EXPECT_EQ(log_lines("korvex_handler"),
              (std::vector<std::string>{
                  "[korvex:notice] [pid N] korvex_handler:L apache: purging ...",
                  "[korvex:error] [pid N] korvex_handler:L apache: upload refused (400), the updater is not started",
                  kWithdrawnLog,
              }));
}

// The platform daemon is gone: the start reaches nobody. The answer says so, and the
// announcement is taken back.
TEST_F(UpdateCgiTest, AnAbsentPlatformDaemonAnswers503) {
    sim_->set_absent("com.korvex-labs.www.platform", true);
    const std::string image = image_bytes(12000, 11);
    HttpResponse response = upload(image, 503);
    sim_->set_absent("com.korvex-labs.www.platform", false);
    EXPECT_EQ(response.body, "update could not be started");
    EXPECT_TRUE(stored() == image);
    const std::string path = serving_path();
    // Calls to an absent name never reach the simulator; the signals do.
    EXPECT_EQ(record_texts(sim_->records()),
              (std::vector<std::string>{kAlive + " " + path, kAliveWithdrawn + " " + path}));
    EXPECT_EQ(log_lines("korvex_handler"),
              (std::vector<std::string>{
                  "[korvex:notice] [pid N] korvex_handler:L apache: purging ...",
                  "[korvex:error] [pid N] korvex_handler:L apache: the updater could not be started",
                  kWithdrawnLog,
              }));
}

TEST_F(UpdateCgiTest, RunningUpdaterRefusesWithoutTouchingAnything) {
    if (!env().has_isolation()) GTEST_SKIP() << "needs the server's private process table";
    env().write_server_tmp("uImage", "untouched");
    const pid_t updater = env().spawn_process("update");
    HttpResponse response = upload(image_bytes(20000, 6), 200, Pause::kKept);
    env().kill_process(updater);
    EXPECT_EQ(response.body, "updating");
    EXPECT_FALSE(response.has_header("content-type")) << response.headers["content-type"];
    EXPECT_EQ(stored(), "untouched");
    EXPECT_EQ(record_texts(sim_->records()), std::vector<std::string>{});
    EXPECT_EQ(log_lines("korvex_handler"),
              std::vector<std::string>{"[korvex:notice] [pid N] korvex_handler:L apache: fw is updating"});
    EXPECT_LT(elapsed_.count(), 1000) << "no purge pause";
}

TEST_F(UpdateCgiTest, UpdaterStartedUnderAPathDoesNotCount) {
    if (!env().has_isolation()) GTEST_SKIP() << "needs the server's private process table";
    const pid_t lookalike = env().spawn_process("/some/path/update");
    const pid_t other = env().spawn_process("updater");
    const std::string image = image_bytes(12000, 7);
    HttpResponse response = upload(image);
    env().kill_process(lookalike);
    env().kill_process(other);
    EXPECT_EQ(response.body, kUpdateRefresh);
    EXPECT_TRUE(stored() == image);
    EXPECT_EQ(sim_->records().size(), 3u);
}

TEST_F(UpdateCgiTest, SilentPlatformMakesTheUpdaterStartTimeOut) {
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.platform","interface":"com.KorvexLabs.platform.admin",)"
                   R"("member":"doSystem","mode":"silent"})");
    const std::string image = image_bytes(10000, 8);
    HttpResponse response = upload(image, 200, Pause::kKept);
    EXPECT_EQ(response.body, kUpdateRefresh);
    EXPECT_TRUE(stored() == image);
    // Sent but not answered: the updater may still run, so nothing is taken back.
    for (const SimRecord &record : sim_->records()) {
        EXPECT_NE(record.args, std::vector<std::string>{"i:0"}) << record.member;
    }
    EXPECT_EQ(log_lines("withdrawn"), std::vector<std::string>{});
    // One second of purge pause, then the doSystem call's 3000 ms time-out.
    EXPECT_GE(elapsed_.count(), 4000);
    EXPECT_LT(elapsed_.count(), 5500);
    ASSERT_TRUE(env().wait_for_log("leave apache_dbus_send_str_ret_int", std::chrono::seconds(5), log_before_));
    EXPECT_EQ(log_lines("apache_dbus_send_str_ret_int"),
              (std::vector<std::string>{
                  "[korvex:debug] [pid N] apache_dbus_send_str_ret_int:L apache: enter apache_dbus_send_str_ret_int",
                  "[korvex:error] [pid N] apache_dbus_send_str_ret_int:L apache: No reply",
                  "[korvex:debug] [pid N] apache_dbus_send_str_ret_int:L apache: leave apache_dbus_send_str_ret_int",
              }));
    EXPECT_EQ(sim_->records().back().member, "doSystem");
}

// Without a bus the image is stored, but nothing can start the updater: 503. There was no
// announcement to take back.
TEST_F(UpdateCgiTest, WithoutBusTheImageIsStoredAndTheAnswerIs503) {
    env().bus_stop();
    const std::string image = image_bytes(15000, 9);
    HttpResponse response = upload(image, 503);
    const std::vector<std::string> errors = log_lines("[korvex:error]");
    const std::vector<std::string> all = log_lines();
    env().bus_start();

    EXPECT_EQ(response.body, "update could not be started");
    EXPECT_TRUE(stored() == image);
    EXPECT_EQ(log_lines("withdrawn"), std::vector<std::string>{});
    // Every bus step fails as "dbusData is NULL"; the alive signal's failure comes before
    // the image is stored.
    std::vector<std::string> failed;
    for (const std::string &line : errors) {
        if (line.find("dbusData is NULL") != std::string::npos) failed.push_back(line);
    }
    EXPECT_EQ(failed, (std::vector<std::string>{
                          "[korvex:error] [pid N] apache_dbus_string_message:L apache: dbusData is NULL",
                          "[korvex:error] [pid N] dbus_signal_update_alive:L apache: dbusData is NULL",
                          "[korvex:error] [pid N] apache_dbus_send_str_ret_int:L apache: dbusData is NULL",
                      }))
        << env().error_log_since(log_before_);
    size_t alive_at = all.size(), stored_at = all.size();
    for (size_t i = 0; i < all.size(); ++i) {
        if (all[i].find("dbus_signal_update_alive:L apache: dbusData is NULL") != std::string::npos) alive_at = i;
        if (all[i].find("bytes of request body data.") != std::string::npos) stored_at = i;
    }
    EXPECT_LT(alive_at, stored_at);
}

}  // namespace
}  // namespace korvex::test
