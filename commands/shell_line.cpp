#include "commands/shell_line.h"

#include <cstring>

#include "base/absent_text.h"

namespace korvex {

namespace {

bool is_plain_char(unsigned char c) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) return true;
    return c != '\0' && std::strchr("._:/@%+=,-", c) != nullptr;
}

// Writes into a buffer, or only counts when it has none, so a line is measured and then
// built in the request pool without a heap copy.
class LineWriter {
public:
    explicit LineWriter(char *buffer) : buffer_(buffer) {}
    void put(char c) {
        if (buffer_ != nullptr) buffer_[length_] = c;
        ++length_;
    }
    void put(const char *text) {
        for (; *text != '\0'; ++text) put(*text);
    }
    size_t length() const { return length_; }

private:
    char *buffer_;
    size_t length_ = 0;
};

void write_word(LineWriter &out, const char *value) {
    value = or_absent(value);
    if (shell_word_is_plain(value)) {
        out.put(value);
        return;
    }
    // Inside single quotes the shell takes every byte literally; a quote itself is closed,
    // escaped and reopened.
    out.put('\'');
    for (const char *p = value; *p != '\0'; ++p) {
        if (*p == '\'') {
            out.put("'\\''");
        } else {
            out.put(*p);
        }
    }
    out.put('\'');
}

bool write_line(LineWriter &out, const char *tmpl, std::initializer_list<const char *> values) {
    auto next = values.begin();
    for (const char *p = tmpl; *p != '\0'; ++p) {
        if (*p != '%') {
            out.put(*p);
        } else if (p[1] == '%') {
            out.put('%');
            ++p;
        } else if (p[1] == 's' && next != values.end()) {
            write_word(out, *next++);
            ++p;
        } else {
            return false;
        }
    }
    return next == values.end();
}

}  // namespace

bool shell_word_is_plain(const char *value) {
    if (value == nullptr || *value == '\0') return false;
    for (const unsigned char *p = reinterpret_cast<const unsigned char *>(value); *p != '\0'; ++p) {
        if (!is_plain_char(*p)) return false;
    }
    return true;
}

const char *shell_word(apr_pool_t *pool, const char *value) { return shell_line(pool, "%s", {value}); }

const char *shell_line(apr_pool_t *pool, const char *tmpl, std::initializer_list<const char *> values) {
    LineWriter counter(nullptr);
    if (!write_line(counter, tmpl, values)) return nullptr;
    auto *buffer = static_cast<char *>(apr_palloc(pool, counter.length() + 1));
    LineWriter writer(buffer);
    write_line(writer, tmpl, values);
    buffer[writer.length()] = '\0';
    return buffer;
}

}  // namespace korvex
