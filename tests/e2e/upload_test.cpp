// Firmware uploads to update.cgi: the image lands in the server's /tmp/uImage byte for byte
// without growing the serving child, whatever the size of the pieces it arrives in.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/gateway_env.h"
#include "tests/support/http_client.h"
#include "tests/support/multipart.h"
#include "tests/support/process_runner.h"

namespace korvex::test {
namespace {

const std::string &kBoundary = kUploadBoundary;

std::string random_bytes(std::size_t size, unsigned seed) { return random_image(size, seed); }
std::string closing() { return upload_closing(); }
std::string multipart(const std::string &image) { return upload_body(image); }

// One status field of a process in kB, -1 if absent.
long status_kb(pid_t pid, const char *field) {
    std::istringstream lines(read_file("/proc/" + std::to_string(pid) + "/status"));
    const std::size_t length = std::strlen(field);
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, length, field) == 0) return std::atol(line.c_str() + length);
    }
    return -1;
}

// Watches the resident memory of the server's children while an upload runs: samples
// VmRSS, and where the peak counter can be reset (clear_refs), reads VmHWM too.
class MemoryWatch {
 public:
    explicit MemoryWatch(const std::vector<pid_t> &children) {
        for (pid_t child : children) {
            Entry entry;
            const int fd = open(("/proc/" + std::to_string(child) + "/clear_refs").c_str(), O_WRONLY);
            if (fd >= 0) {
                entry.peak_reset = write(fd, "5", 1) == 1;
                close(fd);
            }
            entry.start = status_kb(child, "VmRSS:");
            entry.peak = entry.start;
            if (entry.start >= 0) entries_[child] = entry;
        }
        sampler_ = std::thread([this] {
            while (!stop_) {
                sample();
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        });
    }
    ~MemoryWatch() { finish(); }

    void finish() {
        if (sampler_.joinable()) {
            stop_ = true;
            sampler_.join();
            sample();
            for (auto &[child, entry] : entries_) {
                if (entry.peak_reset) entry.peak = std::max(entry.peak, status_kb(child, "VmHWM:"));
            }
        }
    }

    // Largest growth over the start of any child that lived throughout, in kB.
    long max_growth(pid_t *which) const {
        long growth = 0;
        for (const auto &[child, entry] : entries_) {
            if (entry.peak - entry.start > growth) {
                growth = entry.peak - entry.start;
                *which = child;
            }
        }
        return growth;
    }

 private:
    struct Entry {
        long start = -1;
        long peak = -1;
        bool peak_reset = false;
    };

    void sample() {
        for (auto &[child, entry] : entries_) entry.peak = std::max(entry.peak, status_kb(child, "VmRSS:"));
    }

    std::map<pid_t, Entry> entries_;
    std::atomic<bool> stop_{false};
    std::thread sampler_;
};

class UploadTest : public GatewayTest {
 protected:
    // "Got N bytes of request body data." is a trace line.
    static void SetUpTestSuite() { use_log_level(KORVEX_LOG_TRACE); }

    std::string image_path() const { return env().server_tmp_path("uImage"); }
    std::string stored() const { return read_file(image_path()); }

    HttpResponse post_upload(const std::string &body) {
        return post(port(), "/update.cgi", body, "multipart/form-data; boundary=" + kBoundary,
                    {kNoPurgePauseHeader});
    }

    // The request in one write, so that a small body reaches the module as one piece.
    HttpResponse send_upload_at_once(const std::string &body) {
        const std::string raw = "POST /update.cgi HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n" +
                                kNoPurgePauseHeader + "\r\n"
                                "Content-Type: multipart/form-data; boundary=" +
                                kBoundary + "\r\nContent-Length: " + std::to_string(body.size()) +
                                "\r\n\r\n" + body;
        return send_raw(port(), raw, 20000);
    }

    // The log line (from offset since) that holds text, or "".
    std::string log_line_with(const std::string &text, size_t since) const {
        std::istringstream lines(env().error_log_since(since));
        for (std::string line; std::getline(lines, line);) {
            if (line.find(text) != std::string::npos) return line;
        }
        return "";
    }
};

TEST_F(UploadTest, LargeImageIsStreamedToTheFile) {
    const std::size_t size = 64u << 20;
    const std::string image = random_bytes(size, 64);
    char local[] = "/tmp/korvex-upload-XXXXXX";
    const int fd = mkstemp(local);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, image.data(), image.size()), static_cast<ssize_t>(image.size()));
    close(fd);
    env().write_server_tmp("uImage", "");
    const size_t before = env().error_log_size();

    MemoryWatch watch(env().server_child_pids());
    HttpResponse response = upload_multipart_file(port(), "/update.cgi", "file", local, {}, 120000);
    watch.finish();
    unlink(local);

    ASSERT_EQ(response.error, "");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, kUpdateRefresh);
    const std::string file = stored();
    EXPECT_EQ(file.size(), image.size());
    EXPECT_TRUE(file == image) << "the stored image differs";

    pid_t child = 0;
    const long growth = watch.max_growth(&child);
    EXPECT_LT(growth, 2048) << "child " << child << " grew by " << growth << " kB";
    const std::string got = log_line_with("Got ", before);
    EXPECT_NE(got.find("bytes of request body data."), std::string::npos) << env().error_log_since(before);
}

TEST_F(UploadTest, ChunkedUploadIsTrimmedAtItsEnd) {
    const std::string image = random_bytes(150000, 3);
    env().write_server_tmp("uImage", "");
    HttpResponse response =
        post_chunked(port(), "/update.cgi", multipart(image), "multipart/form-data; boundary=" + kBoundary);
    EXPECT_EQ(response.status, 200);
    EXPECT_TRUE(stored() == image);
}

// The upload takes the image's place whole: nothing of a longer earlier image remains.
TEST_F(UploadTest, AShorterUploadReplacesALongerImageWhole) {
    const std::string old_image(100000, 'O');
    env().write_server_tmp("uImage", old_image);
    const std::string image = random_bytes(30000, 4);
    HttpResponse response = post_upload(multipart(image));
    EXPECT_EQ(response.status, 200);
    EXPECT_TRUE(stored() == image) << stored().size() << " bytes stored";
}

TEST_F(UploadTest, WholeBodyInOnePieceIsTheImageAlone) {
    const std::string image = "small image\r\nwith a line break";
    env().write_server_tmp("uImage", "");
    HttpResponse response = send_upload_at_once(multipart(image));
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(stored(), image);
}

// Every field line of the part header is header, in any order and letter case.
TEST_F(UploadTest, FurtherPartHeaderLinesAreNotStored) {
    const std::string image = random_bytes(20000, 5);
    const std::string body = "--" + kBoundary +
                             "\r\ncontent-type: application/octet-stream\r\nContent-Transfer-Encoding: binary\r\n"
                             "CONTENT-DISPOSITION: form-data; name=\"file\"; filename=\"uImage\"\r\n\r\n" +
                             image + closing();
    env().write_server_tmp("uImage", "");
    EXPECT_EQ(post_upload(body).status, 200);
    EXPECT_TRUE(stored() == image) << stored().size() << " bytes stored";
}

// A part header may take up to 8 KiB, across as many reads as it needs; a longer one is
// refused and changes nothing.
TEST_F(UploadTest, PartHeaderBoundedTo8KiB) {
    env().write_server_tmp("uImage", "previous");
    const std::string image = random_bytes(5000, 6);
    // The header after the boundary line: its fields, then the blank line.
    auto header_of_size = [](size_t size) {
        const std::string start = "Content-Type: application/octet-stream\r\nX-Pad: ";
        return start + std::string(size - start.size() - 4, 'p') + "\r\n\r\n";
    };
    const std::string boundary_line = "--" + kBoundary + "\r\n";
    HttpResponse response = post_upload(boundary_line + header_of_size(8192) + image + closing());
    EXPECT_EQ(response.status, 200);
    EXPECT_TRUE(stored() == image) << stored().size() << " bytes stored";

    env().write_server_tmp("uImage", "previous");
    const size_t before = env().error_log_size();
    response = post_upload(boundary_line + header_of_size(8193) + image + closing());
    EXPECT_EQ(response.status, 400);
    EXPECT_TRUE(env().wait_for_log("part header longer than 8192 bytes", std::chrono::seconds(5), before));
    EXPECT_NE(log_line_with("part header longer than 8192 bytes", before).find("[korvex:error]"), std::string::npos);
    EXPECT_EQ(stored(), "previous");

    // A part that never gets its blank line before the body ends.
    const size_t later = env().error_log_size();
    response = post_upload(boundary_line + "Content-Type: application/octet-stream\r\n");
    EXPECT_EQ(response.status, 400);
    // The text's backslashes come out doubled: Apache escapes every message it logs.
    const std::string text = "ap_strstr failed on search \\\\r\\\\n";
    EXPECT_TRUE(env().wait_for_log(text, std::chrono::seconds(5), later)) << env().error_log_since(later);
    EXPECT_EQ(stored(), "previous");
}

TEST_F(UploadTest, UploadTraceLines) {
    const std::string image = random_bytes(40000, 8);
    const std::string body = multipart(image);
    const size_t before = env().error_log_size();
    EXPECT_EQ(post_upload(body).status, 200);
    EXPECT_TRUE(env().wait_for_log("Got ", std::chrono::seconds(5), before));
    const std::string length = std::to_string(body.size());
    EXPECT_NE(log_line_with("total: ", before).find("total: " + length), std::string::npos);
    EXPECT_NE(log_line_with("Content-Length: ", before).find("Content-Length: " + length), std::string::npos);
    EXPECT_NE(log_line_with("boundary: ", before).find("boundary: --" + kBoundary), std::string::npos);
    EXPECT_NE(log_line_with("end: ", before).find("end: " + length + ", buf addr: 0x"), std::string::npos);
    EXPECT_NE(log_line_with("Got ", before).find("Got " + length + " bytes of request body data."),
              std::string::npos);
}

TEST_F(UploadTest, RunningUpdaterRefusesTheUpload) {
    env().write_server_tmp("uImage", "untouched");
    const pid_t updater = env().spawn_process("update");
    HttpResponse response = post_upload(multipart(random_bytes(20000, 9)));
    env().kill_process(updater);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "updating");
    EXPECT_EQ(stored(), "untouched");
}

}  // namespace
}  // namespace korvex::test
