// Starts and stops helper programs (bus daemon, simulator) and runs commands for tests.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

namespace korvex::test {

// A child process started with fork/exec; stopped (SIGTERM, then SIGKILL) on destruction.
class ChildProcess {
public:
    ChildProcess() = default;
    ChildProcess(const std::vector<std::string> &argv, const std::string &stdout_path);
    ~ChildProcess();
    ChildProcess(ChildProcess &&other) noexcept;
    ChildProcess &operator=(ChildProcess &&other) noexcept;
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    pid_t pid() const { return pid_; }
    bool running();
    void stop();
    // Waits up to timeout_ms for the process to end. Its exit status (128 + the signal
    // when a signal ended it), or -1 while it still runs. Also after it was reaped.
    int wait_exit(int timeout_ms);
    // SIGTERM, then wait_exit(timeout_ms).
    int terminate(int timeout_ms);

private:
    // Records the status of a reaped child and forgets its pid.
    void reaped(int status);

    pid_t pid_ = -1;
    int exit_status_ = -1;
};

// What a command printed (standard output and error, in the order written) and how it
// ended: its exit status, 128 + the signal, or -1 when it ran past its time and was stopped.
struct CommandResult {
    int status = -1;
    std::string output;
};
// Runs argv (looked up in PATH) to its end, its output written to output_path and read back.
CommandResult run_command(const std::vector<std::string> &argv, const std::string &output_path,
                          int timeout_ms = 60000);

// The file from byte `offset` on ("" when it cannot be read).
std::string read_file(const std::string &path, std::size_t offset = 0);

}  // namespace korvex::test
