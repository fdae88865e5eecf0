#include "module/delimiter_scanner.h"

#include <cstring>

namespace korvex {

const char *find_bytes(const char *haystack, std::size_t size, const char *needle, std::size_t needle_size) {
    if (haystack == nullptr || needle_size > size) return nullptr;
    return static_cast<const char *>(memmem(haystack, size, needle, needle_size));
}

void WriteList::add(const char *data, std::size_t size) {
    if (size == 0) return;
    spans[count++] = ByteSpan{data, size};
}

std::size_t WriteList::total() const {
    std::size_t sum = 0;
    for (int i = 0; i < count; ++i) sum += spans[i].size;
    return sum;
}

bool DelimiterScanner::init(apr_pool_t *pool, const char *delimiter, std::size_t size) {
    char *copy = static_cast<char *>(apr_palloc(pool, size * 5));
    if (copy == nullptr || size == 0) return false;
    std::memcpy(copy, delimiter, size);
    delimiter_ = copy;
    size_ = size;
    hold_ = copy + size;
    join_ = hold_ + size;
    out_ = join_ + 2 * size;
    held_ = 0;
    return true;
}

// The first `count` held bytes go out; they are copied first, as the hold buffer is
// rewritten before the ranges are written.
void DelimiterScanner::emit_held(std::size_t count, WriteList *out) {
    if (count == 0) return;
    std::memcpy(out_, hold_, count);
    out->add(out_, count);
}

std::size_t DelimiterScanner::scan(const char *data, std::size_t size, bool emit, WriteList *out, bool *found) {
    *found = false;
    const std::size_t held = held_;
    // A delimiter that starts in the held tail ends within the first size_ - 1 bytes of data.
    if (held > 0) {
        const std::size_t lead = size < size_ - 1 ? size : size_ - 1;
        std::memcpy(join_, hold_, held);
        std::memcpy(join_ + held, data, lead);
        const char *at = find_bytes(join_, held + lead, delimiter_, size_);
        if (at != nullptr && static_cast<std::size_t>(at - join_) < held) {
            const std::size_t before = static_cast<std::size_t>(at - join_);
            if (emit) emit_held(before, out);
            held_ = 0;
            *found = true;
            return before + size_ - held;
        }
    }
    const char *at = find_bytes(data, size, delimiter_, size_);
    if (at != nullptr) {
        const std::size_t before = static_cast<std::size_t>(at - data);
        if (emit) {
            emit_held(held, out);
            out->add(data, before);
        }
        held_ = 0;
        *found = true;
        return before + size_;
    }
    // No delimiter: everything but the last size_ - 1 bytes is content.
    const std::size_t total = held + size;
    const std::size_t keep = total < size_ - 1 ? total : size_ - 1;
    const std::size_t content = total - keep;
    const std::size_t from_held = content < held ? content : held;
    if (emit) {
        emit_held(from_held, out);
        out->add(data, content - from_held);
    }
    if (keep > size) {
        // The kept tail starts inside the held bytes.
        std::memmove(hold_, hold_ + (held - (keep - size)), keep - size);
        std::memcpy(hold_ + (keep - size), data, size);
    } else {
        std::memcpy(hold_, data + (size - keep), keep);
    }
    held_ = keep;
    return size;
}

}  // namespace korvex
