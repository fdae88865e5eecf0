// A client that drips its upload, a byte every few seconds, loses the upload lock within a
// minute: it is answered 408 with the refusal text, the update is taken back ("alive" 0),
// nothing is started, and the next upload goes through. On the server as shipped for
// "make run" (mod_reqtimeout with Debian's defaults, whose body time-out and the module's
// own pace run out at about the same time; either way the client sees the same answer), and
// on one with mod_reqtimeout's body time-out off, where the module's pace alone ends the
// drip. The two drips run side by side, each on its own server.
#include <chrono>
#include <future>
#include <memory>
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
const std::string kPaceGivenUp = "upload slower than 1024 bytes in 10 s: given up";
const std::string kBodyTimedOut = "Error reading request body.";
constexpr auto kDripInterval = std::chrono::seconds(3);

// One server's drip: the upload that drips, the server's answer, and what it left behind.
class Drip {
public:
    explicit Drip(GatewayEnv &gateway) : gateway_(gateway), sim_(gateway.bus_address()) {
        sim_.reset();
        gateway_.write_server_tmp("uImage", "earlier");
        log_before_ = gateway_.error_log_size();
    }

    // Sends the head and the part header at once, then one image byte every kDripInterval
    // until the server answers.
    void run() {
        const std::string body = upload_body(random_image(50000, 21));
        RawClient client(gateway_.port());
        client.send("POST /update.cgi HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: " + upload_content_type() +
                    "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + upload_part_header());
        // The module reads the body right after it announced the update.
        sim_.wait_for_records(2, 5000);
        const auto started = Clock::now();
        size_t at = upload_part_header().size();
        while (Clock::now() - started < std::chrono::seconds(60)) {
            if (client.readable(static_cast<int>(std::chrono::milliseconds(kDripInterval).count()))) break;
            if (!client.send(body.substr(at++, 1))) break;
        }
        dripped_ = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started);
        answer_ = client.response(5000);
    }

    size_t log_lines_with(const std::string &text) const { return gateway_.count_log_lines(text, log_before_); }
    std::string log() const { return gateway_.error_log_since(log_before_); }

    // The drip's exact answer, what it left behind, and a second upload that succeeds.
    void expect_refused_and_lock_freed() {
        EXPECT_EQ(answer_.status, 408) << answer_.error;
        EXPECT_EQ(answer_.body, kRefused);
        EXPECT_EQ(answer_.headers["connection"], "close");
        EXPECT_GE(dripped_.count(), 9000);
        EXPECT_LT(dripped_.count(), 16000);
        EXPECT_EQ(read_file(gateway_.server_tmp_path("uImage")), "earlier");
        EXPECT_TRUE(gateway_.wait_for_log("no updater started", std::chrono::seconds(5), log_before_));
        EXPECT_EQ(module_log_lines(log(), "korvex_handler"),
                  (std::vector<std::string>{
                      "[korvex:notice] [pid N] korvex_handler:L apache: purging ...",
                      "[korvex:error] [pid N] korvex_handler:L apache: upload refused (408), the updater is not started",
                      "[korvex:notice] [pid N] korvex_handler:L apache: update announcement withdrawn (alive 0): no "
                      "updater started",
                  }));

        const std::string image = random_image(40000, 22);
        const HttpResponse second = post(gateway_.port(), "/update.cgi", upload_body(image), upload_content_type(),
                                         {kNoPurgePauseHeader});
        EXPECT_EQ(second.status, 200);
        EXPECT_EQ(second.body, kUpdateRefresh);
        EXPECT_TRUE(read_file(gateway_.server_tmp_path("uImage")) == image);
        std::vector<std::string> members;
        for (const SimRecord &record : sim_.records()) {
            members.push_back(record.member + (record.args.empty() ? "" : " " + record.args[0]));
        }
        EXPECT_EQ(members, (std::vector<std::string>{"getModel s:getModel", "alive i:1", "alive i:0",
                                                     "getModel s:getModel", "alive i:1",
                                                     "doSystem s:update -k /tmp/uImage -m QTR58 -r 3 &"}));
    }

private:
    GatewayEnv &gateway_;
    SimClient sim_;
    size_t log_before_ = 0;
    HttpResponse answer_;
    std::chrono::milliseconds dripped_{0};
};

class SlowUploadTest : public UploadFixture {};

TEST_F(SlowUploadTest, ADripLosesTheLockWithinAMinuteWhicheverBoundEndsIt) {
    GatewayEnv::Options body_timeout_off;
    body_timeout_off.site_config = "RequestReadTimeout body=0\n";
    const std::unique_ptr<GatewayEnv> pace_only_server = GatewayEnv::start(body_timeout_off);
    ASSERT_TRUE(pace_only_server->has_isolation());

    Drip shipped(env());
    Drip pace_only(*pace_only_server);
    auto shipped_run = std::async(std::launch::async, [&shipped] { shipped.run(); });
    auto pace_only_run = std::async(std::launch::async, [&pace_only] { pace_only.run(); });
    shipped_run.get();
    pace_only_run.get();

    shipped.expect_refused_and_lock_freed();
    pace_only.expect_refused_and_lock_freed();
    // As shipped, whichever bound ran out first ended the read, and only that one is logged.
    EXPECT_EQ(shipped.log_lines_with(kPaceGivenUp) + shipped.log_lines_with(kBodyTimedOut), 1u) << shipped.log();
    // With mod_reqtimeout's body time-out off, only the module's pace bounds the upload.
    EXPECT_EQ(pace_only.log_lines_with(kPaceGivenUp), 1u) << pace_only.log();
}

}  // namespace
}  // namespace korvex::test
