#include "module/part_header.h"

#include <cstring>

namespace korvex {
namespace {

constexpr char kContentType[] = "content-type";

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// RFC 7230 token characters, of which field names are made.
bool is_token_char(char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
    return c != '\0' && std::strchr("!#$%&'*+-.^_`|~", c) != nullptr;
}

bool same_name(const char *name, std::size_t size, const char *lower_name) {
    if (size != std::strlen(lower_name)) return false;
    for (std::size_t i = 0; i < size; ++i) {
        if (lower(name[i]) != lower_name[i]) return false;
    }
    return true;
}

}  // namespace

void HeaderCollector::start(char *buffer, Until until) {
    buffer_ = buffer;
    until_ = until;
    size_ = 0;
    state_ = State::kReading;
}

bool HeaderCollector::ends_here() const {
    if (size_ < 2 || buffer_[size_ - 2] != '\r' || buffer_[size_ - 1] != '\n') return false;
    if (until_ == Until::kLineEnd || size_ == 2) return true;
    return size_ >= 4 && buffer_[size_ - 4] == '\r' && buffer_[size_ - 3] == '\n';
}

std::size_t HeaderCollector::feed(const char *data, std::size_t size) {
    std::size_t taken = 0;
    while (buffer_ != nullptr && state_ == State::kReading && taken < size) {
        if (size_ == kPartHeaderLimit) {
            state_ = State::kTooLong;
            break;
        }
        buffer_[size_++] = data[taken++];
        if (data[taken - 1] == '\n' && ends_here()) state_ = State::kComplete;
    }
    return taken;
}

PartFields read_part_fields(const char *text, std::size_t size) {
    PartFields fields;
    // Without the blank line's CR LF, the rest is lines each ended by CR LF.
    if (size < 2) return fields;
    const char *at = text;
    const char *end = text + size - 2;
    bool any_field = false;
    while (at < end) {
        const char *line_end = static_cast<const char *>(memmem(at, static_cast<std::size_t>(end - at), "\r\n", 2));
        if (line_end == nullptr) return fields;
        const std::size_t length = static_cast<std::size_t>(line_end - at);
        if (at[0] == ' ' || at[0] == '\t') {
            // A folded continuation of the field before it.
            if (!any_field) return fields;
        } else {
            std::size_t name = 0;
            while (name < length && is_token_char(at[name])) ++name;
            if (name == 0 || name == length || at[name] != ':') return fields;
            if (same_name(at, name, kContentType)) fields.has_content_type = true;
            any_field = true;
        }
        at = line_end + 2;
    }
    fields.well_formed = true;
    return fields;
}

std::size_t boundary_line_length(const char *text, std::size_t size) {
    if (size < 5 || text[0] != '-' || text[1] != '-') return 0;
    return size - 2;
}

}  // namespace korvex
