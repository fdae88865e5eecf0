// The text before a part's content in a multipart upload: the boundary line that opens the
// body, and each part's header up to the blank line that ends it. Both are collected from
// pieces of any size (one byte at a time included) into one bounded buffer and then read
// as a whole. No Apache calls: unit-tested and fuzzed directly.
#pragma once

#include <cstddef>

namespace korvex {

// The most a boundary line (its CR LF included) or a part header (its blank line included)
// may take. Browsers send about 150 bytes; anything past this is refused.
inline constexpr std::size_t kPartHeaderLimit = 8192;

// Collects bytes up to a terminator, never more than kPartHeaderLimit of them.
class HeaderCollector {
public:
    enum class Until {
        kLineEnd,    // the first CR LF (the boundary line)
        kBlankLine,  // an empty line: "\r\n" at the start, or "\r\n\r\n" (a part header)
    };
    enum class State { kReading, kComplete, kTooLong };

    // Starts collecting into buffer (kPartHeaderLimit bytes, owned by the caller) until
    // `until`; feed() takes nothing before.
    void start(char *buffer, Until until);
    // Starts over in the same buffer (the next part's header).
    void restart(Until until) { start(buffer_, until); }

    // Takes bytes of data up to and including the terminator; returns how many it took
    // (all of them while still reading). Takes nothing once complete or too long.
    std::size_t feed(const char *data, std::size_t size);

    State state() const { return state_; }
    // The bytes collected, terminator included once complete.
    const char *text() const { return buffer_; }
    std::size_t size() const { return size_; }

private:
    bool ends_here() const;

    char *buffer_ = nullptr;
    Until until_ = Until::kLineEnd;
    std::size_t size_ = 0;
    State state_ = State::kReading;
};

// What a complete part header says.
struct PartFields {
    bool well_formed = false;      // every line a "name: value" field (or a folded continuation)
    bool has_content_type = false;  // a "Content-Type" field, in any letter case
};

// Reads a part header as collected (blank line included): field lines in any order, names
// compared without regard to case. A line without a colon, or with anything but a token
// before it, makes the header malformed.
PartFields read_part_fields(const char *text, std::size_t size);

// The boundary line as collected (CR LF included): "--" and at least one byte. Its length
// without the CR LF, or 0 when it is no boundary line.
std::size_t boundary_line_length(const char *text, std::size_t size);

}  // namespace korvex
