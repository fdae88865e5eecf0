#include "module/upload_splitter.h"

#include <cstdint>
#include <cstring>

#include "base/log.h"

namespace korvex {
namespace {

// The splitter's records belong to the upload as a whole.
constexpr const char kLogFunc[] = "save_uImage";

// CR LF before the closing boundary, and "--" CR LF after it.
constexpr std::size_t kClosingExtra = 6;

// The part header ends with the CR LF of its last line and the empty line's CR LF.
constexpr std::size_t kHeaderEndSize = 4;

unsigned addr32(const void *p) { return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(p)); }

}  // namespace

const char *find_bytes(const char *haystack, std::size_t size, const char *needle,
                       std::size_t needle_size) {
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

UploadSplitter::UploadSplitter(apr_pool_t *pool, apr_off_t declared_length)
    : pool_(pool), declared_(declared_length) {}

UploadSplitter::Status UploadSplitter::feed(const char *piece, std::size_t size, WriteList *out) {
    out->count = 0;
    if (failed_) return Status::kNoHeaderEnd;
    if (size == 0) return Status::kContinue;

    if (received_ == 0) {
        Status status = parse_first(piece, size, out);
        if (status != Status::kContinue) {
            failed_ = true;
            return status;
        }
    } else if (declared_ >= 0 && received_ + static_cast<apr_off_t>(size) == declared_) {
        KLOG_AS(KORVEX_LOG_TRACE, kLogFunc, "end: %d, buf addr: 0x%x\n", static_cast<int>(declared_),
                addr32(piece));
        write_trimmed(piece, size, out);
    } else {
        hold_back(piece, size, out);
    }
    received_ += static_cast<apr_off_t>(size);
    ++pieces_;
    return Status::kContinue;
}

UploadSplitter::Status UploadSplitter::parse_first(const char *piece, std::size_t size, WriteList *out) {
    const char *end = piece + size;

    // Without any CR LF there is no boundary line; the header searches below then fail.
    const char *line_end = find_bytes(piece, size, "\r\n", 2);
    if (line_end != nullptr) {
        const std::size_t line_size = static_cast<std::size_t>(line_end - piece);
        KLOG_AS(KORVEX_LOG_TRACE, kLogFunc, "bufSize: %d, 0x%x 0x%x\n", static_cast<int>(line_size + 1),
                addr32(piece), addr32(line_end));
        boundary_ = static_cast<char *>(apr_pcalloc(pool_, line_size + 1));
        if (boundary_ == nullptr) return Status::kOutOfMemory;
        std::memcpy(boundary_, piece, line_size);
        trim_ = line_size + kClosingExtra;
        // Two hold buffers used in turn, so ranges handed out from one stay valid while
        // the next piece fills the other.
        char *hold = static_cast<char *>(apr_palloc(pool_, 2 * trim_));
        if (hold == nullptr) return Status::kOutOfMemory;
        hold_[0] = hold;
        hold_[1] = hold + trim_;
        KLOG_AS(KORVEX_LOG_TRACE, kLogFunc, "boundary: %s\n", boundary_);
    }

    const char *content_type = find_bytes(piece, size, "Content-Type", 12);
    if (content_type == nullptr) {
        KLOG_AS(KORVEX_LOG_ERROR, kLogFunc, "ap_strstr failed on search Content-Type\n");
        return Status::kNoContentType;
    }
    const char *line_break = find_bytes(content_type, static_cast<std::size_t>(end - content_type), "\r\n", 2);
    if (line_break == nullptr || static_cast<std::size_t>(end - line_break) < kHeaderEndSize) {
        KLOG_AS(KORVEX_LOG_ERROR, kLogFunc, "ap_strstr failed on search \\r\\n\n");
        return Status::kNoHeaderEnd;
    }

    const char *data = line_break + kHeaderEndSize;
    const std::size_t data_size = static_cast<std::size_t>(end - data);
    if (declared_ >= 0 && static_cast<apr_off_t>(size) == declared_) {
        // The whole body came in one piece: it goes out as it is, closing boundary and all.
        closed_ = ends_with_closing(nullptr, 0, data, data_size);
        out->add(data, data_size);
    } else {
        hold_back(data, data_size, out);
    }
    return Status::kContinue;
}

void UploadSplitter::hold_back(const char *data, std::size_t size, WriteList *out) {
    const char *current = hold_[active_];
    const std::size_t total = held_ + size;
    if (total > trim_) {
        const std::size_t writable = total - trim_;
        const std::size_t from_held = writable < held_ ? writable : held_;
        out->add(current, from_held);
        out->add(data, writable - from_held);
    }

    const std::size_t keep = total < trim_ ? total : trim_;
    char *next = hold_[1 - active_];
    if (keep > size) {
        const std::size_t from_held = keep - size;
        std::memcpy(next, current + held_ - from_held, from_held);
        if (size != 0) std::memcpy(next + from_held, data, size);
    } else if (keep != 0) {
        std::memcpy(next, data + size - keep, keep);
    }
    active_ = 1 - active_;
    held_ = keep;
}

void UploadSplitter::write_trimmed(const char *data, std::size_t size, WriteList *out) {
    closed_ = ends_with_closing(hold_[active_], held_, data, size);
    const std::size_t total = held_ + size;
    const std::size_t writable = total > trim_ ? total - trim_ : 0;
    const std::size_t from_held = writable < held_ ? writable : held_;
    out->add(hold_[active_], from_held);
    out->add(data, writable - from_held);
    held_ = 0;
}

void UploadSplitter::finish(bool reached_end, WriteList *out) {
    out->count = 0;
    if (failed_ || held_ == 0) return;
    // A body of unknown length ends only here; its held-back bytes are the closing
    // boundary, unless the whole body came in the first piece.
    const bool end_of_unknown_length = reached_end && declared_ < 0;
    if (end_of_unknown_length) closed_ = ends_with_closing(hold_[active_], held_, nullptr, 0);
    if (!end_of_unknown_length || pieces_ == 1) out->add(hold_[active_], held_);
    held_ = 0;
}

bool UploadSplitter::ends_with_closing(const char *first, std::size_t first_size, const char *second,
                                       std::size_t second_size) const {
    if (boundary_ == nullptr || first_size + second_size < trim_) return false;
    // The closing text: CR LF, the boundary line, "--", CR LF.
    const std::size_t boundary_size = trim_ - kClosingExtra;
    auto byte_at = [&](std::size_t i) {  // i counts from the start of the last trim_ bytes
        const std::size_t at = first_size + second_size - trim_ + i;
        return at < first_size ? first[at] : second[at - first_size];
    };
    auto expected = [&](std::size_t i) -> char {
        if (i < 2) return "\r\n"[i];
        if (i < 2 + boundary_size) return boundary_[i - 2];
        return "--\r\n"[i - 2 - boundary_size];
    };
    for (std::size_t i = 0; i < trim_; ++i) {
        if (byte_at(i) != expected(i)) return false;
    }
    return true;
}

}  // namespace korvex
