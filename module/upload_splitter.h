// Cuts a multipart firmware upload, fed piece by piece as the input filters deliver it,
// into the byte ranges that belong in the image file: the part header is removed from the
// first piece and the closing boundary from the end of the body.
//
// The last boundary length + 6 bytes seen so far are held back, so the closing boundary is
// removed even when it straddles two pieces; at most that many bytes are ever kept.
#pragma once

#include <apr_pools.h>

#include <cstddef>

namespace korvex {

struct ByteSpan {
    const char *data;
    std::size_t size;
};

// Ranges to write, in order. They point into the piece just fed or into the splitter and
// stay valid until the next call to feed() or finish().
struct WriteList {
    ByteSpan spans[2];
    int count = 0;

    void add(const char *data, std::size_t size);
    std::size_t total() const;
};

class UploadSplitter {
 public:
    enum class Status {
        kContinue,       // piece taken; write the ranges
        kOutOfMemory,    // no memory for the boundary
        kNoContentType,  // no "Content-Type" in the first piece
        kNoHeaderEnd,    // no "\r\n" after it, or the part header runs past the piece
    };

    // declared_length: the body length from Content-Length, or -1 when the body has none
    // (chunked); the end of the body is then only known at finish().
    UploadSplitter(apr_pool_t *pool, apr_off_t declared_length);

    UploadSplitter(const UploadSplitter &) = delete;
    UploadSplitter &operator=(const UploadSplitter &) = delete;

    // Takes the next piece. Empty pieces are ignored. After a failure status the splitter
    // takes nothing more.
    Status feed(const char *piece, std::size_t size, WriteList *out);

    // The body ended: at its end of stream (reached_end) or by a failed read. Gives the
    // held-back bytes that still belong in the file.
    void finish(bool reached_end, WriteList *out);

    // True once the body ended with its closing boundary ("\r\n--<boundary>--\r\n"): the
    // upload is complete. Set by the piece that completes a declared length, or by finish()
    // at the end of a body of unknown length.
    bool closed() const { return closed_; }

    // Body bytes taken so far, part header and boundaries included.
    apr_off_t received() const { return received_; }
    // The boundary line of the first piece (without its CR LF), or null before it.
    const char *boundary() const { return boundary_; }

 private:
    Status parse_first(const char *piece, std::size_t size, WriteList *out);
    void hold_back(const char *data, std::size_t size, WriteList *out);
    void write_trimmed(const char *data, std::size_t size, WriteList *out);
    // Whether the last trim_ bytes of first + second (in that order) are the closing boundary.
    bool ends_with_closing(const char *first, std::size_t first_size, const char *second,
                           std::size_t second_size) const;

    apr_pool_t *pool_;
    apr_off_t declared_;
    apr_off_t received_ = 0;
    int pieces_ = 0;
    bool failed_ = false;
    char *boundary_ = nullptr;
    std::size_t trim_ = 0;        // boundary length + 6
    char *hold_[2] = {nullptr, nullptr};
    int active_ = 0;              // hold_[active_] holds the held-back bytes
    std::size_t held_ = 0;
    bool closed_ = false;
};

// First occurrence of needle within [haystack, haystack + size), or null. Binary safe.
const char *find_bytes(const char *haystack, std::size_t size, const char *needle,
                       std::size_t needle_size);

}  // namespace korvex
