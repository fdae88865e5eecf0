// An upload that did not arrive whole never reaches the updater: a truncated body, one
// refused as too large, a client that vanished mid-body or a body without its closing
// boundary leave an earlier /tmp/uImage byte for byte and start nothing, and no upload
// file stays behind. Two uploads at once never write the image together.
#include <dirent.h>
#include <sys/stat.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/command_test.h"
#include "tests/support/http_client.h"
#include "tests/support/multipart.h"
#include "tests/support/process_runner.h"
#include "tests/support/raw_client.h"

namespace korvex::test {
namespace {

const std::string kEarlier = std::string(700000, 'E');
const std::string kUpdaterStart = "update -k /tmp/uImage -m QTR58 -r 3 &";

// The head of an upload sent by hand; it skips the pause after the memory purge.
std::string request_head(size_t content_length) {
    return "POST /update.cgi HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n" + kNoPurgePauseHeader +
           "\r\nContent-Type: " +
           upload_content_type() + "\r\nContent-Length: " + std::to_string(content_length) + "\r\n\r\n";
}

class UploadSafetyTest : public CommandTest {
protected:
    void SetUp() override {
        CommandTest::SetUp();
        if (!env().has_isolation()) GTEST_SKIP() << "needs the server's private /tmp";
        env().write_server_tmp("uImage", kEarlier);
    }
    std::string stored() const { return read_file(env().server_tmp_path("uImage")); }
    // Upload files left in the server's /tmp.
    std::vector<std::string> leftovers() const {
        std::vector<std::string> names;
        const std::string dir = env().server_tmp_path("");
        DIR *listing = opendir(dir.c_str());
        if (listing == nullptr) return names;
        while (dirent *entry = readdir(listing)) {
            const std::string name = entry->d_name;
            if (name.rfind("uImage.", 0) == 0) names.push_back(name);
        }
        closedir(listing);
        return names;
    }
    // The earlier image is untouched and nothing was started or left behind.
    void expect_nothing_changed(const std::string &what) {
        EXPECT_TRUE(stored() == kEarlier) << what << ": the image changed (" << stored().size() << " bytes)";
        EXPECT_EQ(leftovers(), std::vector<std::string>{}) << what;
        EXPECT_EQ(shell_lines(), std::vector<std::string>{}) << what;
    }
    // Waits until the server logged that it finished with the upload.
    void await_refusal(size_t since) {
        EXPECT_TRUE(env().wait_for_log("upload refused", std::chrono::seconds(10), since))
            << env().error_log_since(since);
    }
};

TEST_F(UploadSafetyTest, ACompleteUploadReplacesTheImageAndStartsTheUpdaterOnce) {
    const std::string image = random_image(300000, 11);
    const HttpResponse response =
        post(port(), "/update.cgi", upload_body(image), upload_content_type(), {kNoPurgePauseHeader});
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, kUpdateRefresh);
    EXPECT_TRUE(stored() == image) << stored().size() << " bytes stored";
    EXPECT_EQ(leftovers(), std::vector<std::string>{});
    EXPECT_EQ(shell_lines(), std::vector<std::string>{kUpdaterStart});
}

TEST_F(UploadSafetyTest, ABodyWithoutItsClosingBoundaryAnswers400) {
    const size_t since = env().error_log_size();
    const std::string body = upload_part_header() + random_image(300000, 12);
    const HttpResponse response = post(port(), "/update.cgi", body, upload_content_type(), {kNoPurgePauseHeader});
    EXPECT_EQ(response.status, 400);
    EXPECT_EQ(env().count_log_lines("upload without its closing boundary", since), 1u);
    expect_nothing_changed("no closing boundary");
}

TEST_F(UploadSafetyTest, AMalformedPartHeaderAnswers400) {
    const HttpResponse response =
        post(port(), "/update.cgi", "no multipart here", upload_content_type(), {kNoPurgePauseHeader});
    EXPECT_EQ(response.status, 400);
    expect_nothing_changed("malformed");
}

// The default LimitRequestBody is 1 GiB; the server refuses the body at its first read.
TEST_F(UploadSafetyTest, AnUploadOverTheServersLimitAnswers413) {
    const size_t since = env().error_log_size();
    RawClient client(port());
    client.send(request_head(2147483648ULL) + upload_part_header() + std::string(100000, 'x'));
    const std::string answer = client.answer(10000);
    EXPECT_EQ(answer.rfind("HTTP/1.1 413", 0), 0u) << answer.substr(0, 200);
    await_refusal(since);
    expect_nothing_changed("too large");
}

TEST_F(UploadSafetyTest, AClientThatVanishesMidBodyChangesNothing) {
    const size_t since = env().error_log_size();
    const std::string body = upload_body(random_image(1000000, 13));
    {
        RawClient client(port());
        client.send(request_head(body.size()) + body.substr(0, 128000));
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    }
    await_refusal(since);
    expect_nothing_changed("vanished");
}

TEST_F(UploadSafetyTest, AShorterBodyThanDeclaredChangesNothing) {
    const size_t since = env().error_log_size();
    const std::string body = upload_body(random_image(300000, 14));
    {
        RawClient client(port());
        // The whole multipart text, closing boundary included, but 1000 bytes short of the
        // declared length.
        client.send(request_head(body.size() + 1000) + body);
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    }
    await_refusal(since);
    expect_nothing_changed("short");
}

TEST_F(UploadSafetyTest, AnImageThatCannotBeWrittenAnswers500) {
    const std::string tmp = env().server_tmp_path("");
    struct stat before{};
    ASSERT_EQ(stat(tmp.c_str(), &before), 0);
    ASSERT_EQ(chmod(tmp.c_str(), 0555), 0);
    const HttpResponse response =
        post(port(), "/update.cgi", upload_body(random_image(20000, 15)), upload_content_type(),
             {kNoPurgePauseHeader});
    chmod(tmp.c_str(), before.st_mode & 07777);
    EXPECT_EQ(response.status, 500);
    expect_nothing_changed("unwritable");
}

// While one upload streams, a second answers "updating" at once and touches nothing; the
// first completes and is the image.
TEST_F(UploadSafetyTest, TwoUploadsAtOnceNeverInterleave) {
    const std::string first_image = random_image(400000, 16);
    const std::string first_body = upload_body(first_image);
    RawClient first(port());
    first.send(request_head(first_body.size()) + first_body.substr(0, 200000));
    // The first holds the lock from its start (before its one-second memory purge).
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const HttpResponse second =
        post(port(), "/update.cgi", upload_body(random_image(50000, 17)), upload_content_type());
    EXPECT_EQ(second.status, 200);
    EXPECT_EQ(second.body, "updating");
    first.send(first_body.substr(200000));
    const std::string answer = first.answer(15000);
    EXPECT_EQ(answer.rfind("HTTP/1.1 200", 0), 0u) << answer.substr(0, 200);
    EXPECT_NE(answer.find(kUpdateRefresh), std::string::npos);
    EXPECT_TRUE(stored() == first_image) << stored().size() << " bytes stored";
    EXPECT_EQ(shell_lines(), std::vector<std::string>{kUpdaterStart});
    EXPECT_EQ(leftovers(), std::vector<std::string>{});
}

}  // namespace
}  // namespace korvex::test
