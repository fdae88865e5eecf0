// A client that drips its upload, a byte every few seconds, loses the upload lock within a
// minute: it is answered 408 with the refusal text, the update is taken back ("alive" 0),
// nothing is started, and the next upload goes through. Once on the server as shipped for
// "make run" (mod_reqtimeout with Debian's defaults, whose body time-out and the module's
// own pace run out at about the same time; either way the client sees the same answer), and
// once with mod_reqtimeout's body time-out off, where the module's pace alone ends the drip.
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/log_lines.h"
#include "tests/support/multipart.h"
#include "tests/support/process_runner.h"
#include "tests/support/raw_client.h"
#include "tests/support/upload_fixture.h"

namespace korvex::test {
namespace {

using Clock = std::chrono::steady_clock;

const std::string kRefused = "The firmware upload was incomplete or could not be stored; nothing was updated.";
constexpr auto kDripInterval = std::chrono::seconds(3);

class SlowUploadTest : public UploadFixture {
protected:
    void SetUp() override {
        UploadFixture::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        env().write_server_tmp("uImage", "earlier");
        log_before_ = env().error_log_size();
    }

    // Sends the head and the part header at once, then one image byte every kDripInterval
    // until the server answers. Returns the answer and how long the body dripped.
    HttpResponse drip(std::chrono::milliseconds *dripped) {
        const std::string body = upload_body(random_image(50000, 21));
        RawClient client(port());
        client.send("POST /update.cgi HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: " + upload_content_type() +
                    "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
                    upload_part_header());
        // The module reads the body right after it announced the update.
        sim_->wait_for_records(2, 5000);
        const auto started = Clock::now();
        size_t at = upload_part_header().size();
        while (Clock::now() - started < std::chrono::seconds(60)) {
            if (client.readable(static_cast<int>(std::chrono::milliseconds(kDripInterval).count()))) break;
            if (!client.send(body.substr(at++, 1))) break;
        }
        *dripped = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started);
        return client.response(5000);
    }

    // The drip's exact answer, what it left behind, and a second upload that succeeds.
    void expect_drip_refused_and_lock_freed(const HttpResponse &answer, std::chrono::milliseconds dripped) {
        EXPECT_EQ(answer.status, 408) << answer.error;
        EXPECT_EQ(answer.body, kRefused);
        EXPECT_EQ(answer.headers.at("connection"), "close");
        EXPECT_GE(dripped.count(), 9000);
        EXPECT_LT(dripped.count(), 16000);
        EXPECT_EQ(read_file(env().server_tmp_path("uImage")), "earlier");
        EXPECT_TRUE(env().wait_for_log("no updater started", std::chrono::seconds(5), log_before_));
        EXPECT_EQ(module_log_lines(env().error_log_since(log_before_), "korvex_handler"),
                  (std::vector<std::string>{
                      "[korvex:notice] [pid N] korvex_handler:L apache: purging ...",
                      "[korvex:error] [pid N] korvex_handler:L apache: upload refused (408), the updater is not started",
                      "[korvex:notice] [pid N] korvex_handler:L apache: update announcement withdrawn (alive 0): no "
                      "updater started",
                  }));

        const std::string image = random_image(40000, 22);
        const HttpResponse second = post(port(), "/update.cgi", upload_body(image), upload_content_type());
        EXPECT_EQ(second.status, 200);
        EXPECT_EQ(second.body, kUpdateRefresh);
        EXPECT_TRUE(read_file(env().server_tmp_path("uImage")) == image);
        std::vector<std::string> members;
        for (const SimRecord &record : sim_->records()) {
            members.push_back(record.member + (record.args.empty() ? "" : " " + record.args[0]));
        }
        EXPECT_EQ(members, (std::vector<std::string>{"getModel s:getModel", "alive i:1", "alive i:0",
                                                     "getModel s:getModel", "alive i:1",
                                                     "doSystem s:update -k /tmp/uImage -m QTR58 -r 3 &"}));
    }

    size_t log_before_ = 0;
};

TEST_F(SlowUploadTest, ADripLosesTheLockWithinAMinute) {
    std::chrono::milliseconds dripped{0};
    const HttpResponse answer = drip(&dripped);
    // Whichever bound ran out first ended the read, and only that one is logged.
    const size_t paced = env().count_log_lines("upload slower than 1024 bytes in 10 s: given up", log_before_);
    const size_t timed_out = env().count_log_lines("Error reading request body.", log_before_);
    EXPECT_EQ(paced + timed_out, 1u) << env().error_log_since(log_before_);
    expect_drip_refused_and_lock_freed(answer, dripped);
}

// mod_reqtimeout's body time-out off: only the module's pace bounds the upload.
class PaceOnlyTest : public SlowUploadTest {
protected:
    static void SetUpTestSuite() {
        GatewayEnv::Options options;
        options.site_config = "RequestReadTimeout body=0\n";
        use_env(options);
    }
};

TEST_F(PaceOnlyTest, TheModulesPaceEndsTheDrip) {
    std::chrono::milliseconds dripped{0};
    const HttpResponse answer = drip(&dripped);
    EXPECT_EQ(env().count_log_lines("upload slower than 1024 bytes in 10 s: given up", log_before_), 1u)
        << env().error_log_since(log_before_);
    expect_drip_refused_and_lock_freed(answer, dripped);
}

}  // namespace
}  // namespace korvex::test
