#include "sim/harness/launch.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <map>
#include <stdexcept>

extern char **environ;

namespace korvex::harness {
namespace {

// Closes every descriptor from `from` on (close_range where the kernel has it).
void close_from(int from) {
    if (close_range(static_cast<unsigned>(from), ~0U, 0) != 0) {
        for (int fd = from; fd < 4096; ++fd) close(fd);
    }
}

std::vector<std::string> merged_environment(const std::vector<std::string> &extra) {
    std::map<std::string, std::string> values;
    std::vector<std::string> order;
    auto put = [&](const std::string &line) {
        const std::string name = line.substr(0, line.find('='));
        if (values.find(name) == values.end()) order.push_back(name);
        values[name] = line;
    };
    for (char **entry = environ; *entry; ++entry) put(*entry);
    for (const std::string &line : extra) put(line);
    std::vector<std::string> merged;
    for (const std::string &name : order) merged.push_back(values[name]);
    return merged;
}

std::vector<char *> pointers(std::vector<std::string> &strings) {
    std::vector<char *> result;
    for (std::string &s : strings) result.push_back(s.data());
    result.push_back(nullptr);
    return result;
}

}  // namespace

std::string find_program(const std::string &name) {
    if (name.find('/') != std::string::npos) return access(name.c_str(), X_OK) == 0 ? name : "";
    const char *path = std::getenv("PATH");
    std::string dirs = path && *path ? path : "/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin";
    size_t start = 0;
    while (start <= dirs.size()) {
        const size_t end = dirs.find(':', start);
        const std::string dir = dirs.substr(start, end == std::string::npos ? std::string::npos : end - start);
        const std::string candidate = (dir.empty() ? "." : dir) + "/" + name;
        if (access(candidate.c_str(), X_OK) == 0) return candidate;
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return "";
}

pid_t launch(const Launch &what) {
    if (what.argv.empty()) throw std::runtime_error("launch: no program");
    // Everything the child needs is ready before fork: after it only async-signal-safe calls.
    std::vector<std::string> argv = what.argv;
    std::string program = find_program(argv[0]);
    if (program.empty()) program = argv[0];
    std::vector<std::string> env = merged_environment(what.env);
    std::vector<char *> argv_ptrs = pointers(argv);
    std::vector<char *> env_ptrs = pointers(env);
    const std::string output = what.output.empty() ? "/dev/null" : what.output;

    const pid_t pid = fork();
    if (pid < 0) throw std::runtime_error(std::string("fork failed: ") + std::strerror(errno));
    if (pid != 0) return pid;
    if (what.new_session) setsid();
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    const int in = open("/dev/null", O_RDONLY);
    const int out = open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (in < 0 || out < 0) _exit(127);
    dup2(in, 0);
    dup2(out, 1);
    dup2(out, 2);
    int first_closed = 3;
    if (what.keep_fd >= 0) {
        // dup2 to itself would keep close-on-exec: clear it explicitly.
        if (what.keep_fd > 2) {
            fcntl(what.keep_fd, F_SETFD, 0);
            if (what.keep_fd == 3) first_closed = 4;
            else if (dup2(what.keep_fd, 3) == 3) first_closed = 4;
        }
    }
    close_from(first_closed);
    execve(program.c_str(), argv_ptrs.data(), env_ptrs.data());
    _exit(127);
}

std::string run_capture(const std::vector<std::string> &argv_in, int *status, int timeout_ms) {
    int pipe_fds[2];
    if (pipe2(pipe_fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
    std::vector<std::string> argv = argv_in;
    std::string program = find_program(argv[0]);
    if (program.empty()) program = argv[0];
    std::vector<char *> argv_ptrs = pointers(argv);
    const pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("fork failed");
    if (pid == 0) {
        const int in = open("/dev/null", O_RDONLY);
        const int err = open("/dev/null", O_WRONLY);
        dup2(in, 0);
        dup2(pipe_fds[1], 1);
        dup2(err, 2);
        close_from(3);
        execve(program.c_str(), argv_ptrs.data(), environ);
        _exit(127);
    }
    close(pipe_fds[1]);
    std::string text;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    bool timed_out = false;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now()).count();
        if (left <= 0) {
            timed_out = true;
            break;
        }
        pollfd ready{pipe_fds[0], POLLIN, 0};
        if (poll(&ready, 1, static_cast<int>(left)) <= 0) continue;
        char buffer[4096];
        const ssize_t got = read(pipe_fds[0], buffer, sizeof buffer);
        if (got <= 0) break;
        text.append(buffer, static_cast<size_t>(got));
    }
    close(pipe_fds[0]);
    if (timed_out) kill(pid, SIGKILL);
    int wait_status = 0;
    waitpid(pid, &wait_status, 0);
    if (status) {
        *status = timed_out ? -1 : WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : 128 + WTERMSIG(wait_status);
    }
    return text;
}

}  // namespace korvex::harness
