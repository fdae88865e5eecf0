// Records of started processes, RUN_DIR/pids/NAME holding "pid start-time": a record
// matches only the very process it was written for, so a reused pid is never signalled.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace korvex::harness {

// The start time of pid (field 22 of /proc/PID/stat); "" when it is gone or a zombie.
std::string process_start_time(pid_t pid);
bool process_alive(pid_t pid);

class ProcessRecords {
public:
    explicit ProcessRecords(std::string run_dir) : dir_(std::move(run_dir) + "/pids") {}

    // Writes NAME's record for pid (one that never matches when pid is already gone).
    void record(const std::string &name, pid_t pid) const;
    // The pid of NAME's record if that very process runs; 0 otherwise.
    pid_t live_pid(const std::string &name) const;
    bool running(const std::string &name) const { return live_pid(name) != 0; }
    void forget(const std::string &name) const;
    // Names of the records that start with prefix.
    std::vector<std::string> names(const std::string &prefix = "") const;

    // SIGTERM to NAME's process (with group: to its process group too), up to seconds for
    // it to end, then SIGKILL; the record goes. False when it had to be killed.
    bool stop(const std::string &name, int seconds, bool group = false) const;

    const std::string &dir() const { return dir_; }

private:
    std::string dir_;
};

// The first child of pid, waiting up to timeout_ms for it to appear; 0 if none came.
pid_t first_child(pid_t pid, int timeout_ms);
// Reaps pid if it is an ended child of this process; its exit status (128 + signal), or
// -1 while it runs or when it is no child of ours.
int reap_if_child(pid_t pid);

}  // namespace korvex::harness
