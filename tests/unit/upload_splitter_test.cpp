#include "module/upload_splitter.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/support/apr_pool_fixture.h"

namespace korvex {
namespace {

const std::string kBoundary = "------WebKitFormBoundaryq3X8aPz1";
const std::string kDisposition = "Content-Disposition: form-data; name=\"file\"; filename=\"uImage\"\r\n";
const std::string kType = "Content-Type: application/octet-stream\r\n";
const std::string kHeader = kBoundary + "\r\n" + kDisposition + kType + "\r\n";
const std::string kTypeFirst = kBoundary + "\r\n" + kType + kDisposition + "\r\n";
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
    // what would be written and the first failure, or finish()'s status. *closed (when
    // given) says whether the body closed.
    UploadSplitter::Status run(const std::string &body, const std::vector<std::size_t> &sizes, std::string *file,
                               bool chunked = false, bool *closed = nullptr) {
        file->clear();
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
            if (status != UploadSplitter::Status::kContinue) {
                EXPECT_EQ(list.count, 0) << "ranges handed out with a failure";
                return status;
            }
            append(file, list);
            piece.assign(piece.size(), '#');
        }
        EXPECT_EQ(splitter.received(), static_cast<apr_off_t>(at));
        const UploadSplitter::Status status = splitter.finish();
        if (closed != nullptr) *closed = splitter.closed();
        return status;
    }

    // The body whole, cut into pieces of `piece` bytes: the image comes back exactly and
    // the body closes.
    void expect_image(const std::string &body, const std::string &image, std::size_t piece,
                      const std::string &what) {
        std::vector<std::size_t> sizes(body.size() / piece, piece);
        std::string file;
        bool closed = false;
        ASSERT_EQ(run(body, sizes, &file, false, &closed), UploadSplitter::Status::kContinue) << what;
        EXPECT_TRUE(closed) << what;
        EXPECT_EQ(file.size(), image.size()) << what;
        EXPECT_TRUE(file == image) << what;
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
    // Everything after the blank line, less what might start a delimiter.
    std::string file;
    append(&file, list);
    EXPECT_EQ(file, image.substr(0, 8192 - kHeader.size() - (kBoundary.size() + 1)));
    EXPECT_EQ(splitter.received(), 8192);
    EXPECT_FALSE(splitter.closed());
}

TEST_F(UploadSplitterTest, WholeBodyInOnePieceIsTheImageAlone) {
    const std::string image = make_image(3000, 2);
    std::string file;
    bool closed = false;
    ASSERT_EQ(run(body_of(image), {}, &file, false, &closed), UploadSplitter::Status::kContinue);
    EXPECT_TRUE(closed);
    EXPECT_EQ(file, image);
    ASSERT_EQ(run(body_of(image), {}, &file, true, &closed), UploadSplitter::Status::kContinue);
    EXPECT_TRUE(closed);
    EXPECT_EQ(file, image);
}

TEST_F(UploadSplitterTest, FieldsInEitherOrderAndAnyCase) {
    const std::string image = make_image(5000, 3);
    expect_image(kTypeFirst + image + kClosing, image, 8192, "Content-Type first");
    expect_image(kHeader + image + kClosing, image, 8192, "Content-Disposition first");
    const std::string lower = kBoundary + "\r\ncontent-type: application/octet-stream\r\n"
                                          "CONTENT-DISPOSITION: form-data; name=\"file\"\r\n\r\n";
    expect_image(lower + image + kClosing, image, 8192, "lower case");
    // Only the field name counts: "Content-Type" inside another field's value does not.
    const std::string inside = kBoundary + "\r\nContent-Disposition: form-data; filename=\"Content-Type\"\r\n"
                                           "X-Note: Content-Type\r\n\r\n";
    std::string file;
    EXPECT_EQ(run(inside + image + kClosing, {}, &file), UploadSplitter::Status::kNoContentType);
    EXPECT_EQ(file, "");
}

TEST_F(UploadSplitterTest, EveryCutOfTheHeadInEitherOrder) {
    const std::string image = make_image(3000, 4);
    for (const std::string &header : {kHeader, kTypeFirst}) {
        const std::string body = header + image + kClosing;
        for (std::size_t cut = 0; cut <= header.size() + 2; ++cut) {
            std::string file;
            bool closed = false;
            ASSERT_EQ(run(body, {cut}, &file, false, &closed), UploadSplitter::Status::kContinue) << cut;
            EXPECT_TRUE(closed) << cut;
            EXPECT_TRUE(file == image) << cut;
        }
    }
}

TEST_F(UploadSplitterTest, OneByteAtATime) {
    const std::string image = make_image(2000, 5);
    expect_image(kTypeFirst + image + kClosing, image, 1, "type first, single bytes");
    expect_image(kHeader + image + kClosing, image, 1, "disposition first, single bytes");
    expect_image(kHeader + image + kClosing, image, 3, "pieces of three");
}

TEST_F(UploadSplitterTest, LastPieceLosesTheClosingBoundary) {
    const std::string image = make_image(30000, 6);
    expect_image(body_of(image), image, 8192, "8192");
}

TEST_F(UploadSplitterTest, ClosingBoundaryStraddlingTwoPieces) {
    const std::string image = make_image(10000, 7);
    const std::string body = body_of(image);
    for (std::size_t tail = 1; tail <= kClosing.size() + 3; ++tail) {
        std::string file;
        bool closed = false;
        ASSERT_EQ(run(body, {8192, body.size() - 8192 - tail}, &file, false, &closed),
                  UploadSplitter::Status::kContinue);
        EXPECT_TRUE(closed) << "tail " << tail;
        EXPECT_TRUE(file == image) << "tail " << tail;
    }
}

TEST_F(UploadSplitterTest, ABodyWithoutItsClosingBoundaryDoesNotClose) {
    const std::string image = make_image(25000, 8);
    const std::string body = body_of(image);
    // Cut before the delimiter, inside it, right after it and after its first "-".
    for (std::size_t cut : {body.size() - kClosing.size(), body.size() - kClosing.size() + 3, body.size() - 4,
                            body.size() - 3, std::size_t{16384}}) {
        std::string file;
        bool closed = true;
        ASSERT_EQ(run(body.substr(0, cut), {8192}, &file, true, &closed), UploadSplitter::Status::kContinue);
        EXPECT_FALSE(closed) << cut;
    }
    // "--" after the delimiter closes the body; the CR LF after it may be missing.
    std::string file;
    bool closed = false;
    ASSERT_EQ(run(body.substr(0, body.size() - 2), {8192}, &file, true, &closed), UploadSplitter::Status::kContinue);
    EXPECT_TRUE(closed);
    EXPECT_TRUE(file == image);
    // A delimiter followed by something other than "--" or CR LF.
    EXPECT_EQ(run(kHeader + image + "\r\n" + kBoundary + "xx", {}, &file), UploadSplitter::Status::kBadDelimiter);
}

TEST_F(UploadSplitterTest, OtherPartsAreDroppedAndTheFilePartKept) {
    const std::string image = make_image(12000, 9);
    const std::string field = kBoundary + "\r\nContent-Disposition: form-data; name=\"note\"\r\n\r\nsome text";
    const std::string file_part = "\r\n" + kBoundary + "\r\n" + kType + kDisposition + "\r\n" + image;
    const std::string second_file = "\r\n" + kBoundary + "\r\n" + kType + "\r\nnot the image";
    const std::string body = field + file_part + second_file + kClosing;
    for (std::size_t piece : {std::size_t{1}, std::size_t{7}, std::size_t{8192}}) {
        expect_image(body, image, piece, "piece " + std::to_string(piece));
    }
    // Without any part that has a Content-Type, there is no image.
    std::string file;
    EXPECT_EQ(run(field + kClosing, {}, &file), UploadSplitter::Status::kNoContentType);
}

TEST_F(UploadSplitterTest, AnythingAfterTheClosingBoundaryIsIgnored) {
    const std::string image = make_image(4000, 10);
    expect_image(body_of(image) + "epilogue\r\n", image, 100, "epilogue");
}

TEST_F(UploadSplitterTest, PartHeaderBoundedTo8KiB) {
    const std::string image = make_image(1000, 11);
    // Header from after the boundary line's CR LF through its blank line.
    auto header_of_size = [](std::size_t size) {
        const std::string start = "Content-Type: application/octet-stream\r\nX-Pad: ";
        return start + std::string(size - start.size() - 4, 'p') + "\r\n\r\n";
    };
    const std::string at_limit = kBoundary + "\r\n" + header_of_size(kPartHeaderLimit);
    const std::string over = kBoundary + "\r\n" + header_of_size(kPartHeaderLimit + 1);
    for (std::size_t piece : {std::size_t{1}, std::size_t{8192}}) {
        expect_image(at_limit + image + kClosing, image, piece, "at the limit");
        std::string file;
        EXPECT_EQ(run(over + image + kClosing, std::vector<std::size_t>(over.size() / piece, piece), &file),
                  UploadSplitter::Status::kHeaderTooLong)
            << piece;
        EXPECT_EQ(file, "");
    }
    // A boundary line that never ends.
    std::string file;
    EXPECT_EQ(run("--" + std::string(10000, 'b'), {}, &file), UploadSplitter::Status::kHeaderTooLong);
}

TEST_F(UploadSplitterTest, MalformedBeginnings) {
    std::string file;
    // No boundary line: the body must open with "--" and a boundary.
    EXPECT_EQ(run("no multipart here\r\n", {}, &file), UploadSplitter::Status::kNoBoundaryLine);
    EXPECT_EQ(run("--\r\n", {}, &file), UploadSplitter::Status::kNoBoundaryLine);
    EXPECT_EQ(run("\r\n" + kHeader, {}, &file), UploadSplitter::Status::kNoBoundaryLine);
    // A header line that is no field.
    EXPECT_EQ(run(kBoundary + "\r\nContent-Type application/octet-stream\r\n\r\nX" + kClosing, {}, &file),
              UploadSplitter::Status::kMalformedHeader);
    EXPECT_EQ(run(kBoundary + "\r\n: no name\r\n\r\nX" + kClosing, {}, &file),
              UploadSplitter::Status::kMalformedHeader);
    // The body ends inside the boundary line or the part header.
    EXPECT_EQ(run("no line break", {}, &file), UploadSplitter::Status::kNoHeaderEnd);
    EXPECT_EQ(run(kHeader.substr(0, kHeader.size() - 1), {}, &file), UploadSplitter::Status::kNoHeaderEnd);
    EXPECT_EQ(run("", {}, &file), UploadSplitter::Status::kNoHeaderEnd);
    EXPECT_EQ(file, "");
}

TEST_F(UploadSplitterTest, SplitterTakesNothingAfterAFailure) {
    UploadSplitter splitter(pool_, 1000);
    WriteList list;
    EXPECT_EQ(splitter.feed("no header here\r\n", 16, &list), UploadSplitter::Status::kNoBoundaryLine);
    EXPECT_EQ(splitter.feed("--b\r\nContent-Type: x\r\n\r\nxx", 26, &list), UploadSplitter::Status::kNoBoundaryLine);
    EXPECT_EQ(list.count, 0);
    EXPECT_EQ(splitter.finish(), UploadSplitter::Status::kNoBoundaryLine);
    EXPECT_FALSE(splitter.closed());
}

TEST_F(UploadSplitterTest, AFurtherHeaderLineIsHeaderNotData) {
    const std::string extra = "Content-Transfer-Encoding: binary\r\n";
    const std::string image = make_image(12000, 12);
    expect_image(kBoundary + "\r\n" + kType + extra + "\r\n" + image + kClosing, image, 8192, "extra line");
    // A folded continuation line belongs to the field before it.
    expect_image(kBoundary + "\r\n" + kType + "X-Long: a\r\n b\r\n\r\n" + image + kClosing, image, 8192, "folded");
}

TEST_F(UploadSplitterTest, ZeroLengthPiecesAreSkipped) {
    const std::string image = make_image(20000, 13);
    const std::string body = body_of(image);
    std::string file;
    ASSERT_EQ(run(body, {0, 8192, 0, 0, 8192, 0}, &file), UploadSplitter::Status::kContinue);
    EXPECT_TRUE(file == image);
}

TEST_F(UploadSplitterTest, TinyImages) {
    for (std::size_t size = 0; size < 5; ++size) {
        const std::string image = make_image(size, 14);
        const std::string body = body_of(image);
        std::string file;
        bool closed = false;
        ASSERT_EQ(run(body, {kHeader.size(), 1}, &file, false, &closed), UploadSplitter::Status::kContinue);
        EXPECT_TRUE(closed) << size;
        EXPECT_EQ(file, image) << size;
    }
}

TEST_F(UploadSplitterTest, ImageWithDelimiterLikeBytes) {
    // Content holding CR LF followed by most of the delimiter, at piece edges and inside.
    const std::string near = "\r\n" + kBoundary.substr(0, kBoundary.size() - 1);
    const std::string image = near + "x" + make_image(500, 15) + near + "\r\n" + near;
    for (std::size_t piece = 1; piece < 60; ++piece) {
        expect_image(body_of(image), image, piece, "piece " + std::to_string(piece));
    }
}

TEST_F(UploadSplitterTest, RandomPieceSizesReproduceTheImage) {
    std::mt19937 random(20240611);
    for (int round = 0; round < 200; ++round) {
        const std::size_t image_size = random() % 70000;
        const std::string image = make_image(image_size, static_cast<unsigned>(round));
        const std::string body = (round % 2 == 0 ? kHeader : kTypeFirst) + image + kClosing;
        std::vector<std::size_t> sizes;
        std::size_t at = 0;
        while (at < body.size()) {
            std::size_t size = random() % 3 == 0 ? random() % 40 : random() % 8193;
            if (size > body.size() - at) size = body.size() - at;
            sizes.push_back(size);
            at += size;
        }
        const bool chunked = round % 3 == 0;
        std::string file;
        bool closed = false;
        ASSERT_EQ(run(body, sizes, &file, chunked, &closed), UploadSplitter::Status::kContinue) << round;
        ASSERT_TRUE(closed) << round;
        ASSERT_EQ(file.size(), image.size()) << round;
        ASSERT_TRUE(file == image) << round;
    }
}

}  // namespace
}  // namespace korvex
