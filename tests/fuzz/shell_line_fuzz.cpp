// The shell-line helper: a POSIX shell reads the word it makes of any value back as exactly
// that value, one word, and runs nothing else.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "commands/shell_line.h"
#include "tests/fuzz/fuzz_support.h"

namespace {

// What /bin/sh prints for: printf '[%s]' <word>
std::string shell_reads(const std::string &word) {
    int out[2];
    if (pipe(out) != 0) std::abort();
    const pid_t child = fork();
    if (child == 0) {
        dup2(out[1], STDOUT_FILENO);
        close(out[0]);
        close(out[1]);
        const std::string script = "printf '[%s]' " + word;
        execl("/bin/sh", "sh", "-c", script.c_str(), static_cast<char *>(nullptr));
        _exit(127);
    }
    close(out[1]);
    std::string text;
    char buffer[4096];
    for (ssize_t n; (n = read(out[0], buffer, sizeof buffer)) > 0;) text.append(buffer, static_cast<size_t>(n));
    close(out[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) text += "<exit>";
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    korvex::fuzz::InputPool pool;
    const std::string value = korvex::fuzz::as_text(data, size);
    const char *word = korvex::shell_word(pool.get(), value.c_str());
    if (word == nullptr) std::abort();
    // The empty value is written '' and read back as one empty word.
    if (shell_reads(word) != "[" + value + "]") std::abort();
    return 0;
}
