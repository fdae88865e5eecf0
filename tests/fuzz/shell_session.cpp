#include "tests/fuzz/shell_session.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace korvex::fuzz {

namespace {

long now_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000L + now.tv_nsec / 1000000L;
}

bool ends_with(const std::string &text, const std::string &tail) {
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

void close_fd(int *fd) {
    if (*fd >= 0) close(*fd);
    *fd = -1;
}

}  // namespace

ShellSession::~ShellSession() { stop(); }

bool ShellSession::start() {
    // A write to a shell that died must fail with EPIPE, not end the fuzzer.
    signal(SIGPIPE, SIG_IGN);
    int in[2];
    int out[2];
    if (pipe2(in, O_CLOEXEC) != 0) return false;
    if (pipe2(out, O_CLOEXEC) != 0) {
        close(in[0]);
        close(in[1]);
        return false;
    }
    const pid_t child = fork();
    if (child < 0) {
        for (int fd : {in[0], in[1], out[0], out[1]}) close(fd);
        return false;
    }
    if (child == 0) {
        // dup2 clears close-on-exec on the copies; everything else closes at exec.
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        dup2(out[1], STDERR_FILENO);
        char *const argv[] = {const_cast<char *>("sh"), nullptr};
        char *const envp[] = {const_cast<char *>("PATH=/usr/bin:/bin"), const_cast<char *>("LC_ALL=C"), nullptr};
        execve("/bin/sh", argv, envp);
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    pid_ = child;
    to_shell_ = in[1];
    from_shell_ = out[0];
    fcntl(to_shell_, F_SETFL, fcntl(to_shell_, F_GETFL) | O_NONBLOCK);
    ++starts_;
    return true;
}

void ShellSession::stop() {
    close_fd(&to_shell_);
    close_fd(&from_shell_);
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    pid_ = -1;
}

ShellSession::Outcome ShellSession::run(const std::string &script, std::string *output, int timeout_ms) {
    output->clear();
    if (pid_ < 0 && !start()) return Outcome::kDied;
    const std::string marker = "<korvex-end " + std::to_string(++scripts_) + ">\n";
    const std::string input = script + "\nprintf '%s' '" + marker + "'\n";
    size_t written = 0;
    const long deadline = now_ms() + timeout_ms;
    // Writes and reads side by side: a long script may fill the pipe to the shell while
    // the shell fills the pipe back.
    while (!ends_with(*output, marker)) {
        const long left = deadline - now_ms();
        if (left <= 0) {
            stop();
            return Outcome::kTimedOut;
        }
        pollfd fds[2] = {{from_shell_, POLLIN, 0}, {to_shell_, POLLOUT, 0}};
        const nfds_t count = written < input.size() ? 2 : 1;
        const int ready = poll(fds, count, static_cast<int>(left));
        if (ready < 0) {
            if (errno == EINTR) continue;
            stop();
            return Outcome::kDied;
        }
        if (count == 2 && (fds[1].revents & (POLLOUT | POLLERR | POLLHUP)) != 0) {
            const ssize_t n = write(to_shell_, input.data() + written, input.size() - written);
            if (n > 0) {
                written += static_cast<size_t>(n);
            } else if (n < 0 && errno != EINTR && errno != EAGAIN) {
                stop();
                return Outcome::kDied;
            }
        }
        if ((fds[0].revents & (POLLIN | POLLERR | POLLHUP)) != 0) {
            char buffer[8192];
            const ssize_t n = read(from_shell_, buffer, sizeof buffer);
            if (n > 0) {
                output->append(buffer, static_cast<size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                stop();
                return Outcome::kDied;
            }
        }
    }
    output->resize(output->size() - marker.size());
    return Outcome::kFinished;
}

}  // namespace korvex::fuzz
