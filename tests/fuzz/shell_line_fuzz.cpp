// The shell-line composer: whatever the values, /bin/sh splits the line it builds into
// exactly the intended words, each value inside one word with its bytes unchanged, and
// runs nothing else.
//
// The oracle is one long-lived shell (tests/fuzz/shell_session.h). The line is built from
// a template shaped like the gateway's own (a value alone, after a plain option, glued to
// text before and after it, right before an operator) as the arguments of
// printf '%s\0', so the shell prints every word it saw followed by a NUL. Values come from
// the input split at its NUL bytes (a value itself never holds one); an input with fewer
// pieces uses its first piece for the missing values.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "commands/shell_line.h"
#include "tests/fuzz/fuzz_support.h"
#include "tests/fuzz/shell_session.h"

namespace {

constexpr char kTemplate[] = "printf '%%s\\0' %s -k key=%s %s.conf %s;";
constexpr int kValues = 4;
constexpr int kTimeoutMs = 5000;

korvex::fuzz::ShellSession &shell() {
    static korvex::fuzz::ShellSession session;
    return session;
}

std::vector<std::string> values_of(const uint8_t *data, size_t size) {
    std::vector<std::string> values;
    const std::string input(reinterpret_cast<const char *>(data), size);
    for (size_t begin = 0; static_cast<int>(values.size()) < kValues;) {
        const size_t end = input.find('\0', begin);
        values.push_back(input.substr(begin, end == std::string::npos ? std::string::npos : end - begin));
        if (end == std::string::npos) break;
        begin = end + 1;
    }
    while (static_cast<int>(values.size()) < kValues) values.push_back(values.front());
    return values;
}

// What printf '%s\0' prints for the intended words.
std::string expected_output(const std::vector<std::string> &v) {
    std::string text;
    for (const std::string &word : {v[0], std::string("-k"), "key=" + v[1], v[2] + ".conf", v[3]}) {
        text += word;
        text += '\0';
    }
    return text;
}

std::string printable(const std::string &text) {
    std::string shown;
    for (unsigned char c : text) {
        if (c >= 0x20 && c < 0x7f && c != '\\') {
            shown += static_cast<char>(c);
        } else {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02x", c);
            shown += escape;
        }
    }
    return shown;
}

// Runs the line; true when the shell printed exactly `expected`. A shell that died is
// started again and given the line once more, so only a line that kills it twice counts.
bool shell_prints(const std::string &line, const std::string &expected, std::string *seen,
                  int timeout_ms = kTimeoutMs) {
    using Outcome = korvex::fuzz::ShellSession::Outcome;
    Outcome outcome = shell().run(line, seen, timeout_ms);
    if (outcome == Outcome::kDied) outcome = shell().run(line, seen, timeout_ms);
    if (outcome == Outcome::kTimedOut) *seen += "<no end: the shell still reads the line>";
    if (outcome == Outcome::kDied) *seen += "<the shell died>";
    return outcome == Outcome::kFinished && *seen == expected;
}

[[noreturn]] void finding(const std::string &line, const std::string &expected, const std::string &seen) {
    std::fprintf(stderr, "shell line: %s\nexpected:   %s\nshell gave: %s\n", printable(line).c_str(),
                 printable(expected).c_str(), printable(seen).c_str());
    std::abort();
}

}  // namespace

// The oracle must be able to fail: values inserted as they stand are caught adding a
// command, splitting into two words and leaving a quote open (which the short time-out
// ends), and the same value quoted passes.
extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    constexpr char kPrefix[] = "printf '%s\\0' ";
    std::string seen;
    for (const std::string value : {"a;echo x", "a b", "'a"}) {
        if (shell_prints(kPrefix + value, value + '\0', &seen, 300)) {
            finding(kPrefix + value, "(anything else: the oracle must refuse this line)", seen);
        }
    }
    const std::string quoted = std::string(kPrefix) + "'a;echo x'";
    if (!shell_prints(quoted, std::string("a;echo x") + '\0', &seen)) finding(quoted, "a;echo x", seen);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    korvex::fuzz::InputPool pool;
    const std::vector<std::string> v = values_of(data, size);
    const char *line = korvex::shell_line(pool.get(), kTemplate, {v[0].c_str(), v[1].c_str(), v[2].c_str(), v[3].c_str()});
    if (line == nullptr) std::abort();
    const std::string expected = expected_output(v);
    std::string seen;
    if (!shell_prints(line, expected, &seen)) finding(line, expected, seen);
    return 0;
}
