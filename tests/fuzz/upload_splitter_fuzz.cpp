// The multipart splitter, fed in pieces whose sizes the input chooses. Two modes, by the
// first byte's low bit:
//  - raw: the rest of the input is the body. Never writes more than it received, never
//    reads outside a piece (ASan), writes nothing with a failure, and gives the same image
//    and outcome whatever the piece sizes.
//  - built: the input supplies a boundary, header fields (in an order and letter case it
//    chooses) and image bytes; the body a browser would send of them must come back as
//    exactly that image, closed, at any piece size.
#include <cstdlib>
#include <string>
#include <vector>

#include "module/upload_splitter.h"
#include "tests/fuzz/fuzz_support.h"

namespace {

struct Outcome {
    korvex::UploadSplitter::Status status;
    bool closed;
    std::string image;
};

Outcome split(const std::string &body, size_t piece, bool declared) {
    korvex::fuzz::InputPool pool;
    korvex::UploadSplitter splitter(pool.get(), declared ? static_cast<apr_off_t>(body.size()) : -1);
    korvex::WriteList list;
    Outcome outcome{korvex::UploadSplitter::Status::kContinue, false, ""};
    // Each piece is overwritten once it has been taken, as the brigade's buffers would be.
    std::vector<char> copy(body.begin(), body.end());
    for (size_t fed = 0; fed < body.size(); fed += piece) {
        const size_t n = std::min(piece, body.size() - fed);
        outcome.status = splitter.feed(copy.data() + fed, n, &list);
        if (outcome.status != korvex::UploadSplitter::Status::kContinue) {
            if (list.count != 0) std::abort();
            return outcome;
        }
        for (int i = 0; i < list.count; ++i) outcome.image.append(list.spans[i].data, list.spans[i].size);
        std::fill(copy.begin() + static_cast<long>(fed), copy.begin() + static_cast<long>(fed + n), '#');
    }
    outcome.status = splitter.finish();
    outcome.closed = splitter.closed();
    if (outcome.image.size() > body.size()) std::abort();
    return outcome;
}

void same(const Outcome &a, const Outcome &b) {
    if (a.status != b.status || a.closed != b.closed) std::abort();
    // A body that failed or did not close may have been cut at different points.
    if (a.status == korvex::UploadSplitter::Status::kContinue && a.closed && a.image != b.image) std::abort();
}

std::string cased(const std::string &name, uint8_t bits) {
    std::string out = name;
    for (size_t i = 0; i < out.size(); ++i) {
        if (((bits >> (i % 8)) & 1) != 0 && out[i] >= 'a' && out[i] <= 'z') out[i] = static_cast<char>(out[i] - 32);
        if (((bits >> (i % 8)) & 1) == 0 && out[i] >= 'A' && out[i] <= 'Z') out[i] = static_cast<char>(out[i] + 32);
    }
    return out;
}

// Boundary characters of RFC 2046 (no blank, so none at the end).
std::string boundary_from(const uint8_t *data, size_t size) {
    static const char kChars[] = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ'()+_,-./:=?";
    std::string boundary;
    for (size_t i = 0; i < size; ++i) boundary += kChars[data[i] % (sizeof kChars - 1)];
    return boundary.empty() ? "b" : boundary;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 4) return 0;
    const bool built = (data[0] & 1) != 0;
    const bool declared = (data[0] & 2) != 0;
    const size_t piece = static_cast<size_t>(data[1]) + 1;
    if (!built) {
        const std::string body(reinterpret_cast<const char *>(data + 2), size - 2);
        same(split(body, piece, declared), split(body, body.size() + 1, declared));
        same(split(body, piece, declared), split(body, 1, !declared));
        return 0;
    }
    // data[2]: boundary length (1..70), data[3]: field order and case.
    const size_t boundary_size = std::min<size_t>(data[2] % 70 + 1, size - 4);
    const std::string boundary = boundary_from(data + 4, boundary_size);
    const std::string image(reinterpret_cast<const char *>(data + 4 + boundary_size), size - 4 - boundary_size);
    // A boundary is chosen so that it never appears in the content; skip inputs where it does.
    if (image.find("\r\n--" + boundary) != std::string::npos) return 0;
    const std::string type = cased("Content-Type", data[3]) + ": application/octet-stream\r\n";
    const std::string disposition =
        cased("Content-Disposition", static_cast<uint8_t>(data[3] >> 1)) + ": form-data; name=\"file\"; filename=\"x\"\r\n";
    const std::string fields = (data[3] & 0x80) != 0 ? type + disposition : disposition + type;
    const std::string body = "--" + boundary + "\r\n" + fields + "\r\n" + image + "\r\n--" + boundary + "--\r\n";
    const Outcome outcome = split(body, piece, declared);
    if (outcome.status != korvex::UploadSplitter::Status::kContinue || !outcome.closed || outcome.image != image) {
        std::abort();
    }
    return 0;
}
