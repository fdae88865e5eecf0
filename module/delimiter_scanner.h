// Finds where a multipart part's content ends: the delimiter (CR LF and the boundary line)
// in content fed piece by piece. Content that might still be the start of a delimiter is
// held back (at most delimiter length - 1 bytes), so a delimiter cut across pieces is found
// and never written as content. No Apache calls besides the pool.
#pragma once

#include <apr_pools.h>

#include <cstddef>

namespace korvex {

struct ByteSpan {
    const char *data;
    std::size_t size;
};

// Ranges to write, in order. They point into the piece just fed or into the scanner and
// stay valid until the next piece is fed.
struct WriteList {
    ByteSpan spans[2];
    int count = 0;

    void add(const char *data, std::size_t size);
    std::size_t total() const;
};

class DelimiterScanner {
public:
    // Copies the delimiter and takes its buffers from the pool; false without memory.
    bool init(apr_pool_t *pool, const char *delimiter, std::size_t size);

    // Scans the next piece of content. Returns how many bytes of data belong to this part:
    // all of them when no delimiter ends it here, otherwise up to and including the
    // delimiter (*found set). With `emit`, the content that certainly precedes any delimiter
    // is added to *out (at most two ranges).
    std::size_t scan(const char *data, std::size_t size, bool emit, WriteList *out, bool *found);

    // Content bytes held back, not yet known to be content.
    std::size_t held() const { return held_; }

private:
    void emit_held(std::size_t count, WriteList *out);

    const char *delimiter_ = nullptr;
    std::size_t size_ = 0;
    char *hold_ = nullptr;   // size_ - 1 bytes: the held-back tail
    char *join_ = nullptr;   // 2 * size_ bytes: the held tail and the start of the next piece
    char *out_ = nullptr;    // size_ bytes: held content handed out for writing
    std::size_t held_ = 0;
};

// First occurrence of needle within [haystack, haystack + size), or null. Binary safe.
const char *find_bytes(const char *haystack, std::size_t size, const char *needle, std::size_t needle_size);

}  // namespace korvex
