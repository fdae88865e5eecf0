#include "module/upload_splitter.h"

#include <cstdint>
#include <cstring>

#include "base/log.h"

namespace korvex {
namespace {

// The splitter's records belong to the upload as a whole.
constexpr const char kLogFunc[] = "save_uImage";

unsigned addr32(const void *p) { return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(p)); }

}  // namespace

UploadSplitter::UploadSplitter(apr_pool_t *pool, apr_off_t declared_length)
    : pool_(pool), declared_(declared_length) {}

UploadSplitter::Status UploadSplitter::fail(Status status) {
    switch (status) {
    case Status::kNoBoundaryLine:
        KLOG_AS(KORVEX_LOG_ERROR, kLogFunc, "upload without a boundary line\n");
        break;
    case Status::kHeaderTooLong:
        KLOG_AS(KORVEX_LOG_ERROR, kLogFunc, "part header longer than %d bytes\n", static_cast<int>(kPartHeaderLimit));
        break;
    case Status::kMalformedHeader:
        KLOG_AS(KORVEX_LOG_ERROR, kLogFunc, "malformed part header\n");
        break;
    case Status::kNoContentType:
        KLOG_AS(KORVEX_LOG_ERROR, kLogFunc, "ap_strstr failed on search Content-Type\n");
        break;
    case Status::kBadDelimiter:
        KLOG_AS(KORVEX_LOG_ERROR, kLogFunc, "malformed boundary in the upload\n");
        break;
    case Status::kNoHeaderEnd:
        KLOG_AS(KORVEX_LOG_ERROR, kLogFunc, "ap_strstr failed on search \\r\\n\n");
        break;
    case Status::kContinue:
    case Status::kOutOfMemory:
        break;
    }
    phase_ = Phase::kFailed;
    failure_ = status;
    return status;
}

UploadSplitter::Status UploadSplitter::feed(const char *piece, std::size_t size, WriteList *out) {
    out->count = 0;
    if (phase_ == Phase::kFailed) return failure_;
    if (size == 0) return Status::kContinue;
    if (received_ == 0) {
        char *buffer = static_cast<char *>(apr_palloc(pool_, kPartHeaderLimit));
        if (buffer == nullptr) return fail(Status::kOutOfMemory);
        header_.start(buffer, HeaderCollector::Until::kLineEnd);
    }
    if (declared_ >= 0 && received_ + static_cast<apr_off_t>(size) == declared_) {
        KLOG_AS(KORVEX_LOG_TRACE, kLogFunc, "end: %d, buf addr: 0x%x\n", static_cast<int>(declared_), addr32(piece));
    }
    received_ += static_cast<apr_off_t>(size);

    std::size_t at = 0;
    while (at < size && phase_ != Phase::kFailed) {
        const char *data = piece + at;
        const std::size_t left = size - at;
        switch (phase_) {
        case Phase::kBoundaryLine:
            at += take_boundary_line(data, left);
            break;
        case Phase::kPartHeader:
            at += take_part_header(data, left);
            break;
        case Phase::kContent:
            at += take_content(data, left, out);
            break;
        case Phase::kAfterDelimiter:
            at += take_after_delimiter(data, left);
            break;
        case Phase::kEpilogue:
            at = size;
            break;
        case Phase::kFailed:
            break;
        }
    }
    if (phase_ == Phase::kFailed) {
        out->count = 0;
        return failure_;
    }
    return Status::kContinue;
}

std::size_t UploadSplitter::take_boundary_line(const char *data, std::size_t size) {
    const std::size_t taken = header_.feed(data, size);
    if (header_.state() == HeaderCollector::State::kTooLong) {
        fail(Status::kHeaderTooLong);
        return taken;
    }
    if (header_.state() != HeaderCollector::State::kComplete) return taken;

    const char *line = header_.text();
    const std::size_t length = boundary_line_length(line, header_.size());
    if (length == 0) {
        fail(Status::kNoBoundaryLine);
        return taken;
    }
    KLOG_AS(KORVEX_LOG_TRACE, kLogFunc, "bufSize: %d, 0x%x 0x%x\n", static_cast<int>(length + 1), addr32(line),
            addr32(line + length));
    boundary_ = static_cast<char *>(apr_pcalloc(pool_, length + 3));
    if (boundary_ == nullptr) {
        fail(Status::kOutOfMemory);
        return taken;
    }
    // The delimiter is CR LF and the boundary line; the boundary text is its tail.
    boundary_[0] = '\r';
    boundary_[1] = '\n';
    std::memcpy(boundary_ + 2, line, length);
    if (!scanner_.init(pool_, boundary_, length + 2)) {
        fail(Status::kOutOfMemory);
        return taken;
    }
    boundary_ += 2;
    KLOG_AS(KORVEX_LOG_TRACE, kLogFunc, "boundary: %s\n", boundary_);
    header_.restart(HeaderCollector::Until::kBlankLine);
    phase_ = Phase::kPartHeader;
    return taken;
}

std::size_t UploadSplitter::take_part_header(const char *data, std::size_t size) {
    const std::size_t taken = header_.feed(data, size);
    if (header_.state() == HeaderCollector::State::kTooLong) {
        fail(Status::kHeaderTooLong);
        return taken;
    }
    if (header_.state() != HeaderCollector::State::kComplete) return taken;

    const PartFields fields = read_part_fields(header_.text(), header_.size());
    if (!fields.well_formed) {
        fail(Status::kMalformedHeader);
        return taken;
    }
    in_image_ = !image_seen_ && fields.has_content_type;
    if (in_image_) image_seen_ = true;
    phase_ = Phase::kContent;
    return taken;
}

std::size_t UploadSplitter::take_content(const char *data, std::size_t size, WriteList *out) {
    bool found = false;
    const std::size_t taken = scanner_.scan(data, size, in_image_, out, &found);
    if (found) {
        in_image_ = false;
        after_count_ = 0;
        phase_ = Phase::kAfterDelimiter;
    }
    return taken;
}

std::size_t UploadSplitter::take_after_delimiter(const char *data, std::size_t size) {
    std::size_t taken = 0;
    while (after_count_ < 2 && taken < size) after_[after_count_++] = data[taken++];
    if (after_count_ < 2) return taken;
    if (after_[0] == '-' && after_[1] == '-') {
        if (!image_seen_) {
            fail(Status::kNoContentType);
            return taken;
        }
        closed_ = true;
        phase_ = Phase::kEpilogue;
    } else if (after_[0] == '\r' && after_[1] == '\n') {
        header_.restart(HeaderCollector::Until::kBlankLine);
        phase_ = Phase::kPartHeader;
    } else {
        fail(Status::kBadDelimiter);
    }
    return taken;
}

UploadSplitter::Status UploadSplitter::finish() {
    if (phase_ == Phase::kFailed) return failure_;
    if (phase_ == Phase::kBoundaryLine || phase_ == Phase::kPartHeader) return fail(Status::kNoHeaderEnd);
    return Status::kContinue;
}

}  // namespace korvex
