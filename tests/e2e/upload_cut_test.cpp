// Uploads as slow networks deliver them: the request cut at every offset of its head and of
// the part header, the two halves sent with a pause between them, with the part's fields in
// both orders. Each upload stores exactly its image and starts the updater exactly once.
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/multipart.h"
#include "tests/support/process_runner.h"
#include "tests/support/raw_client.h"
#include "tests/support/upload_fixture.h"

namespace korvex::test {
namespace {

const std::string kUpdaterStart = "s:update -k /tmp/uImage -m QTR58 -r 3 &";
const std::string kDisposition = "Content-Disposition: form-data; name=\"file\"; filename=\"uImage\"\r\n";
const std::string kType = "Content-Type: application/octet-stream\r\n";

struct Upload {
    std::string request;
    size_t head_size;    // the request head, blank line included
    size_t header_end;   // where the image starts in the request
    std::string image;
};

// The request as a browser sends it, asking the development build to skip the pause after
// the memory purge (hundreds of uploads follow).
Upload make_upload(const std::string &fields, unsigned seed) {
    Upload upload;
    upload.image = random_image(3000, seed);
    const std::string part_header = "--" + kUploadBoundary + "\r\n" + fields + "\r\n";
    const std::string body = part_header + upload.image + upload_closing();
    const std::string head = "POST /update.cgi HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n"
                             "X-Korvex-Fault: no-purge-pause\r\nContent-Type: " +
                             upload_content_type() + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n";
    upload.request = head + body;
    upload.head_size = head.size();
    upload.header_end = head.size() + part_header.size();
    return upload;
}

class UploadCutTest : public UploadFixture {
protected:
    // Sends the first `cut` bytes, pauses, sends the rest. A cut inside the body waits
    // until the module has announced the update (it reads the body right after), so that
    // its first read finds the part header incomplete.
    HttpResponse send_cut(const Upload &upload, size_t cut) {
        RawClient client(port());
        client.send(upload.request.substr(0, cut));
        if (cut > upload.head_size) sim_->wait_for_records(2, 5000);
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
        client.send(upload.request.substr(cut));
        return client.response(10000);
    }

    // Every cut from 1 to the end of the part header and one byte into the image.
    void every_cut(const std::string &fields, unsigned seed_base) {
        const Upload first = make_upload(fields, seed_base);
        for (size_t cut = 1; cut <= first.header_end + 1; ++cut) {
            const Upload upload = make_upload(fields, seed_base + static_cast<unsigned>(cut));
            ASSERT_EQ(upload.header_end, first.header_end);
            sim_->clear_records();
            const HttpResponse response = send_cut(upload, cut);
            ASSERT_EQ(response.status, 200) << "cut " << cut << ": " << response.error;
            ASSERT_EQ(response.body, kUpdateRefresh) << "cut " << cut;
            const std::string stored = read_file(env().server_tmp_path("uImage"));
            ASSERT_TRUE(stored == upload.image) << "cut " << cut << ": " << stored.size() << " bytes stored";
            std::vector<std::string> members;
            std::vector<std::string> starts;
            for (const SimRecord &record : sim_->wait_for_records(3, 5000)) {
                members.push_back(record.member + (record.args.empty() ? "" : " " + record.args[0]));
                if (record.member == "doSystem") starts.push_back(record.args.at(0));
            }
            ASSERT_EQ(members, (std::vector<std::string>{"getModel s:getModel", "alive i:1",
                                                         "doSystem " + kUpdaterStart}))
                << "cut " << cut;
            ASSERT_EQ(starts.size(), 1u) << "cut " << cut;
        }
    }
};

TEST_F(UploadCutTest, EveryCutWithContentDispositionFirst) { every_cut(kDisposition + kType, 1000); }

TEST_F(UploadCutTest, EveryCutWithContentTypeFirst) { every_cut(kType + kDisposition, 5000); }

// The part header a byte at a time, each after a pause: read across as many reads.
TEST_F(UploadCutTest, PartHeaderOneByteAtATime) {
    for (const std::string &fields : {kDisposition + kType, kType + kDisposition}) {
        const Upload upload = make_upload(fields, 9000 + static_cast<unsigned>(fields.size()));
        sim_->clear_records();
        RawClient client(port());
        client.send(upload.request.substr(0, upload.head_size));
        sim_->wait_for_records(2, 5000);
        for (size_t at = upload.head_size; at < upload.header_end; ++at) {
            client.send(upload.request.substr(at, 1));
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        client.send(upload.request.substr(upload.header_end));
        const HttpResponse response = client.response(10000);
        EXPECT_EQ(response.status, 200);
        EXPECT_EQ(response.body, kUpdateRefresh);
        EXPECT_TRUE(read_file(env().server_tmp_path("uImage")) == upload.image);
        size_t starts = 0;
        for (const SimRecord &record : sim_->wait_for_records(3, 5000)) starts += record.member == "doSystem";
        EXPECT_EQ(starts, 1u);
    }
}

}  // namespace
}  // namespace korvex::test
