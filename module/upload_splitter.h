// Cuts a multipart firmware upload, fed piece by piece as the input filters deliver it, into
// the byte ranges that belong in the image file: exactly the content of the file part.
//
// The body opens with its boundary line; each part is a header, read whole up to its blank
// line (fields in any order and letter case, at most kPartHeaderLimit bytes), and content up
// to the next delimiter (CR LF and the boundary line). The image is the content of the first
// part whose header has a Content-Type field (the file part: browsers send none for plain
// form fields); other parts are read and dropped. After a delimiter comes either CR LF (the
// next part) or "--" (the end: anything after it is ignored). Pieces may be cut anywhere,
// one byte at a time included.
#pragma once

#include <apr_pools.h>

#include <cstddef>

#include "module/delimiter_scanner.h"
#include "module/part_header.h"

namespace korvex {

class UploadSplitter {
public:
    enum class Status {
        kContinue,         // piece taken; write the ranges
        kOutOfMemory,      // no memory for the splitter's buffers
        kNoBoundaryLine,   // the body does not open with "--" and a boundary
        kHeaderTooLong,    // a boundary line or part header past kPartHeaderLimit bytes
        kMalformedHeader,  // a part-header line that is no field
        kNoContentType,    // the body closed without a part that has a Content-Type
        kBadDelimiter,     // a delimiter followed by neither CR LF nor "--"
        kNoHeaderEnd,      // the body ended inside a boundary line or part header
    };

    // declared_length: the body length from Content-Length, or -1 when the body has none
    // (chunked); it only names the last piece in the trace.
    UploadSplitter(apr_pool_t *pool, apr_off_t declared_length);

    UploadSplitter(const UploadSplitter &) = delete;
    UploadSplitter &operator=(const UploadSplitter &) = delete;

    // Takes the next piece; each failure is logged once. Empty pieces are ignored. After a
    // failure the splitter takes nothing more and keeps answering that failure.
    Status feed(const char *piece, std::size_t size, WriteList *out);

    // The body ended at its end of stream. kNoHeaderEnd (logged) when it ended inside a
    // boundary line or part header; otherwise the status so far. Nothing more is written:
    // content held back at the end is never image data.
    Status finish();

    // True once the closing delimiter ("--" after a delimiter) came after the file part:
    // the image is complete.
    bool closed() const { return closed_; }

    // Body bytes taken so far, headers and boundaries included.
    apr_off_t received() const { return received_; }
    // The boundary line (without its CR LF), or null before it is complete.
    const char *boundary() const { return boundary_; }

private:
    enum class Phase { kBoundaryLine, kPartHeader, kContent, kAfterDelimiter, kEpilogue, kFailed };

    Status fail(Status status);
    // Each step takes bytes from the piece and returns how many, or sets a failure.
    std::size_t take_boundary_line(const char *data, std::size_t size);
    std::size_t take_part_header(const char *data, std::size_t size);
    std::size_t take_content(const char *data, std::size_t size, WriteList *out);
    std::size_t take_after_delimiter(const char *data, std::size_t size);

    apr_pool_t *pool_;
    apr_off_t declared_;
    apr_off_t received_ = 0;
    Phase phase_ = Phase::kBoundaryLine;
    Status failure_ = Status::kContinue;
    HeaderCollector header_;
    DelimiterScanner scanner_;
    char *boundary_ = nullptr;
    bool in_image_ = false;     // the part being read is the file part
    bool image_seen_ = false;   // the file part's header has been read
    char after_[2] = {0, 0};    // the bytes after a delimiter
    std::size_t after_count_ = 0;
    bool closed_ = false;
};

}  // namespace korvex
