// Accumulates a request body in a buffer from the request pool that grows as the data
// arrives, never beyond a fixed bound, so a declared length alone never decides how much
// memory a request takes.
#pragma once

#include <apr_pools.h>

#include <cstddef>

namespace korvex {

// The most a body read whole into memory may hold, whatever LimitRequestBody says (the
// smaller of the two wins). Sized for a gateway with 128 MB of RAM and all ten workers busy:
// a body at the limit costs a worker about three times its size while it is handled
// (buffer, the argument table's copy, the bus message), some 30 MB for ten of them; the
// largest real bodies (application data of a few hundred devices) stay well below it.
inline constexpr apr_off_t kModuleBodyLimit = 1024 * 1024;

// First allocation: one piece of the input filters.
inline constexpr apr_size_t kBodyInitialCapacity = 8192;

// Reads a Content-Length value: decimal digits only, no sign, no blanks, no overflow.
// False for anything else.
bool parse_content_length(const char *text, apr_off_t *length);

// The most body bytes a request may bring: LimitRequestBody (0 = unlimited) and
// kModuleBodyLimit, whichever is smaller.
apr_off_t body_limit(apr_off_t limit_req_body);

// How many body bytes may be kept: the declared length when there is one (declared >= 0),
// never more than body_limit.
apr_off_t body_bound(apr_off_t declared, apr_off_t limit_req_body);

class BodyBuffer {
 public:
    // bound: the most bytes append() accepts in total (body_bound).
    BodyBuffer(apr_pool_t *pool, apr_off_t bound);

    BodyBuffer(const BodyBuffer &) = delete;
    BodyBuffer &operator=(const BodyBuffer &) = delete;

    // Takes memory for `size` bytes at once (a declared length), so that a body of known
    // length is held in one block of its own size. False when memory cannot be had.
    bool expect(apr_size_t size) { return reserve(size); }

    // Copies the piece behind the bytes already held. False, keeping nothing of the
    // piece, when the total would pass the bound or memory cannot be had; the buffer then
    // stays failed.
    bool append(const char *data, apr_size_t size);

    // The body as NUL-terminated text, or null after a failed append.
    char *finish();

    apr_size_t size() const { return size_; }
    apr_size_t capacity() const { return capacity_; }
    apr_size_t bound() const { return bound_; }
    bool failed() const { return failed_; }
    bool over_bound() const { return over_bound_; }

 private:
    bool reserve(apr_size_t needed);

    apr_pool_t *pool_;
    apr_size_t bound_;
    char *data_ = nullptr;
    apr_size_t size_ = 0;
    apr_size_t capacity_ = 0;  // text bytes, not counting the NUL
    bool failed_ = false;
    bool over_bound_ = false;
};

}  // namespace korvex
