// Content-Length parsing and the body buffer: a parsed length is exactly the digits given,
// and the buffer holds exactly what was appended, never past its bound.
#include <cstdlib>
#include <cstring>
#include <string>

#include "module/body_buffer.h"
#include "tests/fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    korvex::fuzz::InputPool pool;
    const std::string text = korvex::fuzz::as_text(data, size);
    apr_off_t length = -1;
    if (korvex::parse_content_length(text.c_str(), &length)) {
        if (length < 0 || text.empty() || text.find_first_not_of("0123456789") != std::string::npos) std::abort();
    }
    // The rest of the input as pieces appended to a small buffer.
    const apr_off_t bound = size > 0 ? data[0] * 16 : 0;
    korvex::BodyBuffer buffer(pool.get(), bound);
    std::string expected;
    bool ok = true;
    for (size_t at = 1; at < size && ok;) {
        const size_t n = std::min<size_t>(data[at] % 64 + 1, size - at);
        ok = buffer.append(reinterpret_cast<const char *>(data + at), n);
        if (ok) expected.append(reinterpret_cast<const char *>(data + at), n);
        at += n;
    }
    if (buffer.size() > buffer.bound()) std::abort();
    char *body = buffer.finish();
    if (ok && (body == nullptr || std::memcmp(body, expected.data(), expected.size()) != 0 ||
               body[expected.size()] != '\0')) {
        std::abort();
    }
    return 0;
}
