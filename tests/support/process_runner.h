// Starts and stops helper programs (bus daemon, simulator) for tests.
#pragma once

#include <sys/types.h>

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

private:
    pid_t pid_ = -1;
};

// Waits until path exists (polling), up to timeout_ms. True when it appeared.
bool wait_for_file(const std::string &path, int timeout_ms);
std::string read_file(const std::string &path);
// A fresh private directory under /var/tmp/korvex-runs (or $KORVEX_RUN_ROOT).
std::string make_run_dir(const std::string &label);
void remove_tree(const std::string &path);

}  // namespace korvex::test
