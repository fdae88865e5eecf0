#include "tests/support/shell_words.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>

namespace korvex::test {

std::string shell_words(const std::string &args) {
    int out[2];
    if (pipe(out) != 0) return "<pipe failed>";
    // "wait" lets a line that ends in "&" finish before the output is read.
    const std::string script = "printf '[%s]' " + args + "\nwait\n";
    const pid_t child = fork();
    if (child < 0) {
        close(out[0]);
        close(out[1]);
        return "<fork failed>";
    }
    if (child == 0) {
        dup2(out[1], STDOUT_FILENO);
        dup2(out[1], STDERR_FILENO);
        close(out[0]);
        close(out[1]);
        execl("/bin/sh", "sh", "-c", script.c_str(), static_cast<char *>(nullptr));
        _exit(127);
    }
    close(out[1]);
    std::string text;
    char buffer[512];
    for (ssize_t n; (n = read(out[0], buffer, sizeof buffer)) > 0;) text.append(buffer, static_cast<size_t>(n));
    close(out[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) text += "<exit " + std::to_string(status) + ">";
    return text;
}

std::string shell_words_of_line(const std::string &line, const std::string &program) {
    if (line.rfind(program + " ", 0) != 0) {
        ADD_FAILURE() << "not a line of " << program << ": " << line;
        return "";
    }
    return shell_words(line.substr(program.size() + 1));
}

std::string query_escape(const std::string &text) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string escaped;
    for (unsigned char c : text) {
        if (std::isalnum(c) || c == '-' || c == '.' || c == '_') {
            escaped += static_cast<char>(c);
        } else {
            escaped += '%';
            escaped += kHex[c >> 4];
            escaped += kHex[c & 15];
        }
    }
    return escaped;
}

}  // namespace korvex::test
