#include "module/upload_splitter.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/support/apr_pool_fixture.h"

namespace korvex {
namespace {

const std::string kBoundary = "------WebKitFormBoundaryq3X8aPz1";
const std::string kHeader = kBoundary +
                            "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"uImage\"\r\n"
                            "Content-Type: application/octet-stream\r\n\r\n";
const std::string kClosing = "\r\n" + kBoundary + "--\r\n";

std::string body_of(const std::string &image) { return kHeader + image + kClosing; }

// Binary image with CR LF, NUL and boundary-like bytes inside.
std::string make_image(std::size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string image(size, '\0');
    for (char &c : image) c = static_cast<char>(random() & 0xff);
    const std::string traps[] = {"\r\n", "\r\n\r\n", "Content-Type", kBoundary, "--\r\n"};
    for (std::size_t at = 0, i = 0; at + 40 < size; at += 997, ++i) {
        const std::string &trap = traps[i % 5];
        image.replace(at, trap.size(), trap);
    }
    return image;
}

class UploadSplitterTest : public test::AprPoolTest {
 protected:
    static void append(std::string *file, const WriteList &list) {
        for (int i = 0; i < list.count; ++i) file->append(list.spans[i].data, list.spans[i].size);
    }

    // Feeds the body cut at the given piece sizes (the rest as one last piece) and returns
    // what would be written, or the failure status.
    UploadSplitter::Status run(const std::string &body, const std::vector<std::size_t> &sizes,
                               std::string *file, bool chunked = false, bool reached_end = true) {
        UploadSplitter splitter(pool_, chunked ? -1 : static_cast<apr_off_t>(body.size()));
        WriteList list;
        std::size_t at = 0;
        std::vector<std::size_t> cuts = sizes;
        std::size_t listed = 0;
        for (std::size_t s : sizes) listed += s;
        if (listed < body.size()) cuts.push_back(body.size() - listed);
        for (std::size_t size : cuts) {
            // Each piece lives in its own buffer that is reused afterwards, as in the brigade.
            std::string piece = body.substr(at, size);
            at += size;
            UploadSplitter::Status status = splitter.feed(piece.data(), piece.size(), &list);
            if (status != UploadSplitter::Status::kContinue) return status;
            append(file, list);
            piece.assign(piece.size(), '#');
        }
        EXPECT_EQ(splitter.received(), static_cast<apr_off_t>(at));
        splitter.finish(reached_end, &list);
        append(file, list);
        return UploadSplitter::Status::kContinue;
    }
};

TEST(FindBytesTest, BoundedAndBinarySafe) {
    const char hay[] = {'a', '\0', '\r', '\n', 'b', '\r'};
    EXPECT_EQ(find_bytes(hay, sizeof hay, "\r\n", 2), hay + 2);
    EXPECT_EQ(find_bytes(hay, 3, "\r\n", 2), nullptr);
    EXPECT_EQ(find_bytes(hay + 4, 2, "\r\n", 2), nullptr);
    EXPECT_EQ(find_bytes(hay, 0, "a", 1), nullptr);
    EXPECT_EQ(find_bytes(nullptr, 0, "a", 1), nullptr);
}

TEST_F(UploadSplitterTest, FirstPieceParsesBoundaryAndHeader) {
    const std::string image = make_image(20000, 1);
    const std::string body = body_of(image);
    UploadSplitter splitter(pool_, static_cast<apr_off_t>(body.size()));
    WriteList list;
    ASSERT_EQ(splitter.feed(body.data(), 8192, &list), UploadSplitter::Status::kContinue);
    ASSERT_NE(splitter.boundary(), nullptr);
    EXPECT_EQ(std::string(splitter.boundary()), kBoundary);
    // Everything after the blank line, less the held-back tail.
    std::string file;
    append(&file, list);
    EXPECT_EQ(file, image.substr(0, 8192 - kHeader.size() - (kBoundary.size() + 6)));
    EXPECT_EQ(splitter.received(), 8192);
}

TEST_F(UploadSplitterTest, WholeBodyInFirstPieceIsWrittenUntrimmed) {
    const std::string image = make_image(3000, 2);
    const std::string body = body_of(image);
    std::string file;
    ASSERT_EQ(run(body, {body.size()}, &file), UploadSplitter::Status::kContinue);
    EXPECT_EQ(file, image + kClosing);
}

TEST_F(UploadSplitterTest, ChunkedWholeBodyInFirstPieceIsWrittenUntrimmed) {
    const std::string image = make_image(3000, 3);
    const std::string body = body_of(image);
    std::string file;
    ASSERT_EQ(run(body, {body.size()}, &file, true), UploadSplitter::Status::kContinue);
    EXPECT_EQ(file, image + kClosing);
}

TEST_F(UploadSplitterTest, LastPieceLosesTheClosingBoundary) {
    const std::string image = make_image(30000, 4);
    const std::string body = body_of(image);
    std::string file;
    ASSERT_EQ(run(body, {8192, 8192, 8192}, &file), UploadSplitter::Status::kContinue);
    EXPECT_EQ(file, image);
}

TEST_F(UploadSplitterTest, ClosingBoundaryStraddlingTwoPieces) {
    const std::string image = make_image(10000, 5);
    const std::string body = body_of(image);
    // Every cut inside the closing boundary, including one leaving a last piece of 1 byte.
    for (std::size_t tail = 1; tail <= kClosing.size() + 3; ++tail) {
        std::string file;
        ASSERT_EQ(run(body, {8192, body.size() - 8192 - tail}, &file), UploadSplitter::Status::kContinue);
        EXPECT_EQ(file, image) << "tail " << tail;
    }
}

TEST_F(UploadSplitterTest, ClosingBoundaryStraddlingFirstAndSecondPiece) {
    const std::string image = make_image(5000, 6);
    const std::string body = body_of(image);
    for (std::size_t tail = 1; tail <= kClosing.size(); ++tail) {
        std::string file;
        ASSERT_EQ(run(body, {body.size() - tail}, &file), UploadSplitter::Status::kContinue);
        EXPECT_EQ(file, image) << "tail " << tail;
    }
}

TEST_F(UploadSplitterTest, ChunkedBodyTrimmedAtEndOfStream) {
    const std::string image = make_image(25000, 7);
    const std::string body = body_of(image);
    std::string file;
    ASSERT_EQ(run(body, {8192, 8192, 8000}, &file, true), UploadSplitter::Status::kContinue);
    EXPECT_EQ(file, image);
}

TEST_F(UploadSplitterTest, FailedReadKeepsEverythingReceived) {
    const std::string image = make_image(25000, 8);
    const std::string body = body_of(image);
    const std::string partial = body.substr(0, 16384);
    UploadSplitter splitter(pool_, static_cast<apr_off_t>(body.size()));
    WriteList list;
    std::string file;
    ASSERT_EQ(splitter.feed(partial.data(), 8192, &list), UploadSplitter::Status::kContinue);
    append(&file, list);
    ASSERT_EQ(splitter.feed(partial.data() + 8192, 8192, &list), UploadSplitter::Status::kContinue);
    append(&file, list);
    splitter.finish(false, &list);
    append(&file, list);
    EXPECT_EQ(file, partial.substr(kHeader.size()));
}

TEST_F(UploadSplitterTest, NoContentTypeInFirstPieceFails) {
    const std::string body = kBoundary + "\r\nContent-Disposition: form-data; name=\"file\"\r\n\r\nDATA" + kClosing;
    std::string file;
    EXPECT_EQ(run(body, {}, &file), UploadSplitter::Status::kNoContentType);
    EXPECT_EQ(file, "");
}

TEST_F(UploadSplitterTest, HeaderLongerThanFirstPieceFails) {
    const std::string image = make_image(20000, 9);
    const std::string body = body_of(image);
    std::string file;
    // Cut before "Content-Type": not found.
    EXPECT_EQ(run(body, {kBoundary.size() + 20}, &file), UploadSplitter::Status::kNoContentType);
    // Cut inside the Content-Type line: no CR LF after it.
    const std::size_t content_type = body.find("Content-Type");
    EXPECT_EQ(run(body, {content_type + 20}, &file), UploadSplitter::Status::kNoHeaderEnd);
    // Cut between the header's CR LF and the end of the blank line: header ends past the piece.
    for (std::size_t cut = kHeader.size() - 4; cut < kHeader.size(); ++cut) {
        EXPECT_EQ(run(body, {cut}, &file), UploadSplitter::Status::kNoHeaderEnd) << cut;
    }
    EXPECT_EQ(file, "");
    // Exactly at the header end the data is simply empty so far.
    EXPECT_EQ(run(body, {kHeader.size()}, &file), UploadSplitter::Status::kContinue);
    EXPECT_EQ(file, image);
}

TEST_F(UploadSplitterTest, FirstPieceWithoutAnyLineBreakFails) {
    const std::string body = std::string(100, 'z');
    std::string file;
    EXPECT_EQ(run(body, {50}, &file), UploadSplitter::Status::kNoContentType);
    const std::string typed = "xxContent-Type: abc";
    EXPECT_EQ(run(typed, {}, &file), UploadSplitter::Status::kNoHeaderEnd);
}

TEST_F(UploadSplitterTest, SplitterTakesNothingAfterAFailure) {
    UploadSplitter splitter(pool_, 1000);
    WriteList list;
    EXPECT_EQ(splitter.feed("no header here", 14, &list), UploadSplitter::Status::kNoContentType);
    EXPECT_NE(splitter.feed("Content-Type\r\n\r\nxx", 18, &list), UploadSplitter::Status::kContinue);
    EXPECT_EQ(list.count, 0);
    splitter.finish(true, &list);
    EXPECT_EQ(list.count, 0);
}

TEST_F(UploadSplitterTest, ExtraPartHeaderLineIsKeptAsData) {
    // A further header line directly after Content-Type: only the 4 bytes after the
    // Content-Type line's CR LF are skipped, the rest of that line is image data.
    const std::string extra = "Content-Transfer-Encoding: binary\r\n\r\n";
    const std::string image = make_image(12000, 10);
    const std::string body =
        kBoundary + "\r\nContent-Type: application/octet-stream\r\n" + extra + image + kClosing;
    std::string file;
    ASSERT_EQ(run(body, {8192}, &file), UploadSplitter::Status::kContinue);
    EXPECT_EQ(file, extra.substr(2) + image);
}

TEST_F(UploadSplitterTest, ZeroLengthPiecesAreSkipped) {
    const std::string image = make_image(20000, 11);
    const std::string body = body_of(image);
    std::string file;
    ASSERT_EQ(run(body, {0, 8192, 0, 0, 8192, 0}, &file), UploadSplitter::Status::kContinue);
    EXPECT_EQ(file, image);
}

TEST_F(UploadSplitterTest, TinyImageShorterThanTheClosingBoundary) {
    for (std::size_t size = 0; size < 5; ++size) {
        const std::string image = make_image(size, 12);
        const std::string body = body_of(image);
        std::string file;
        ASSERT_EQ(run(body, {kHeader.size(), 1}, &file), UploadSplitter::Status::kContinue);
        EXPECT_EQ(file, image) << size;
    }
}

TEST_F(UploadSplitterTest, RandomPieceSizesReproduceTheImage) {
    std::mt19937 random(20240611);
    for (int round = 0; round < 200; ++round) {
        const std::size_t image_size = random() % 70000;
        const std::string image = make_image(image_size, static_cast<unsigned>(round));
        const std::string body = body_of(image);
        std::vector<std::size_t> sizes;
        // The first piece holds at least the whole part header and is not the whole body.
        std::size_t first = kHeader.size() + random() % 9000;
        if (first >= body.size()) first = body.size() - 1;
        sizes.push_back(first);
        std::size_t at = first;
        while (at < body.size()) {
            std::size_t size = random() % 3 == 0 ? random() % 40 : random() % 8193;
            if (size > body.size() - at) size = body.size() - at;
            sizes.push_back(size);
            at += size;
        }
        const bool chunked = round % 3 == 0;
        std::string file;
        ASSERT_EQ(run(body, sizes, &file, chunked), UploadSplitter::Status::kContinue) << round;
        ASSERT_EQ(file.size(), image.size()) << round;
        ASSERT_TRUE(file == image) << round;
    }
}

}  // namespace
}  // namespace korvex
