#include "module/body_buffer.h"

#include <cstdint>
#include <cstring>
#include <limits>

namespace korvex {

bool parse_content_length(const char *text, apr_off_t *length) {
    if (text == nullptr || *text == '\0') return false;
    constexpr apr_off_t kMax = std::numeric_limits<apr_off_t>::max();
    apr_off_t value = 0;
    for (const char *p = text; *p != '\0'; ++p) {
        if (*p < '0' || *p > '9') return false;
        const int digit = *p - '0';
        if (value > (kMax - digit) / 10) return false;
        value = value * 10 + digit;
    }
    *length = value;
    return true;
}

apr_off_t body_limit(apr_off_t limit_req_body) {
    return limit_req_body > 0 && limit_req_body < kModuleBodyLimit ? limit_req_body : kModuleBodyLimit;
}

apr_off_t body_bound(apr_off_t declared, apr_off_t limit_req_body) {
    const apr_off_t limit = body_limit(limit_req_body);
    if (declared >= 0 && declared < limit) return declared;
    return limit;
}

BodyBuffer::BodyBuffer(apr_pool_t *pool, apr_off_t bound) : pool_(pool) {
    // Leave room for the NUL in apr_size_t arithmetic on any platform.
    constexpr apr_size_t kMaxSize = std::numeric_limits<apr_size_t>::max() / 2;
    if (bound <= 0) {
        bound_ = 0;
    } else if (static_cast<std::uintmax_t>(bound) > kMaxSize) {
        bound_ = kMaxSize;
    } else {
        bound_ = static_cast<apr_size_t>(bound);
    }
}

bool BodyBuffer::reserve(apr_size_t needed) {
    if (data_ != nullptr && needed <= capacity_) return true;
    apr_size_t capacity = capacity_ == 0 ? kBodyInitialCapacity : capacity_;
    while (capacity < needed) capacity *= 2;
    if (capacity > bound_) capacity = bound_;
    // The old block stays in the pool until the request ends; with doubling that costs at
    // most as much again as the final buffer.
    char *grown = static_cast<char *>(apr_palloc(pool_, capacity + 1));
    if (grown == nullptr) return false;
    if (size_ != 0) std::memcpy(grown, data_, size_);
    data_ = grown;
    capacity_ = capacity;
    return true;
}

bool BodyBuffer::append(const char *data, apr_size_t size) {
    if (failed_) return false;
    if (size > bound_ - size_) {
        failed_ = true;
        over_bound_ = true;
        return false;
    }
    if (!reserve(size_ + size)) {
        failed_ = true;
        return false;
    }
    if (size != 0) std::memcpy(data_ + size_, data, size);
    size_ += size;
    return true;
}

char *BodyBuffer::finish() {
    if (failed_ || !reserve(size_)) return nullptr;
    data_[size_] = '\0';
    return data_;
}

}  // namespace korvex
