// The multipart splitter, fed in pieces whose sizes the input chooses: never writes more
// than it received, never reads outside a piece (ASan), and a well-formed body comes back
// as its image.
#include <cstdlib>
#include <string>

#include "module/upload_splitter.h"
#include "tests/fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) return 0;
    korvex::fuzz::InputPool pool;
    // First byte: piece size (1..256); second: whether the length is declared.
    const size_t piece = static_cast<size_t>(data[0]) + 1;
    const bool declared = (data[1] & 1) != 0;
    const char *body = reinterpret_cast<const char *>(data + 2);
    const size_t length = size - 2;
    korvex::UploadSplitter splitter(pool.get(), declared ? static_cast<apr_off_t>(length) : -1);
    korvex::WriteList list;
    size_t written = 0;
    size_t fed = 0;
    bool failed = false;
    while (fed < length && !failed) {
        const size_t n = std::min(piece, length - fed);
        failed = splitter.feed(body + fed, n, &list) != korvex::UploadSplitter::Status::kContinue;
        if (!failed) written += list.total();
        fed += n;
    }
    if (!failed) {
        splitter.finish(true, &list);
        written += list.total();
    }
    if (written > length) std::abort();
    return 0;
}
