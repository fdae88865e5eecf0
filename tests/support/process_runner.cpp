#include "tests/support/process_runner.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace korvex::test {

ChildProcess::ChildProcess(const std::vector<std::string> &argv, const std::string &stdout_path) {
    std::vector<char *> args;
    for (const auto &a : argv) args.push_back(const_cast<char *>(a.c_str()));
    args.push_back(nullptr);
    pid_ = fork();
    if (pid_ < 0) throw std::runtime_error("fork failed");
    if (pid_ == 0) {
        setpgid(0, 0);
        int out = open(stdout_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (out >= 0) {
            dup2(out, STDOUT_FILENO);
            dup2(out, STDERR_FILENO);
            close(out);
        }
        execvp(args[0], args.data());
        _exit(127);
    }
}

ChildProcess::~ChildProcess() { stop(); }

ChildProcess::ChildProcess(ChildProcess &&other) noexcept : pid_(other.pid_), exit_status_(other.exit_status_) {
    other.pid_ = -1;
}

ChildProcess &ChildProcess::operator=(ChildProcess &&other) noexcept {
    if (this != &other) {
        stop();
        pid_ = other.pid_;
        exit_status_ = other.exit_status_;
        other.pid_ = -1;
    }
    return *this;
}

void ChildProcess::reaped(int status) {
    exit_status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    pid_ = -1;
}

bool ChildProcess::running() {
    if (pid_ <= 0) return false;
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
        reaped(status);
        return false;
    }
    return true;
}

int ChildProcess::wait_exit(int timeout_ms) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    while (running()) {
        if (std::chrono::steady_clock::now() >= deadline) return -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return exit_status_;
}

int ChildProcess::terminate(int timeout_ms) {
    if (pid_ > 0) kill(pid_, SIGTERM);
    return wait_exit(timeout_ms);
}

void ChildProcess::stop() {
    if (pid_ <= 0) return;
    if (terminate(2000) != -1) return;
    kill(pid_, SIGKILL);
    int status = 0;
    waitpid(pid_, &status, 0);
    reaped(status);
}

CommandResult run_command(const std::vector<std::string> &argv, const std::string &output_path, int timeout_ms) {
    CommandResult result;
    ChildProcess child(argv, output_path);
    result.status = child.wait_exit(timeout_ms);
    if (result.status == -1) child.stop();
    result.output = read_file(output_path);
    return result;
}

std::string read_file(const std::string &path, std::size_t offset) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return "";
    in.seekg(static_cast<std::streamoff>(offset));
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

}  // namespace korvex::test
