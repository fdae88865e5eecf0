// Starting helper programs: fork and exec with a session of their own, output appended to
// a log, and only the descriptors asked for passed on.
#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

namespace korvex::harness {

struct Launch {
    Launch(std::vector<std::string> program, std::vector<std::string> environment = {}, std::string log = "",
           int inherited_fd = -1)
        : argv(std::move(program)), env(std::move(environment)), output(std::move(log)), keep_fd(inherited_fd) {}

    std::vector<std::string> argv;  // argv[0] is looked up in PATH
    std::vector<std::string> env;   // NAME=VALUE set on top of this process's environment
    std::string output;             // stdout and stderr appended here; empty: /dev/null
    int keep_fd = -1;               // a descriptor the program inherits (as the same number)
    bool new_session = true;        // setsid: its own session and process group
};

// Starts the program; its pid (a child of this process). Throws when fork fails; a
// program that cannot be executed exits with status 127.
pid_t launch(const Launch &what);

// Runs argv to its end (at most timeout_ms, then SIGKILL); its standard output. status
// gets its exit status (-1 after a time-out).
std::string run_capture(const std::vector<std::string> &argv, int *status = nullptr, int timeout_ms = 20000);

// The full path of a program found in PATH ("" when none).
std::string find_program(const std::string &name);

}  // namespace korvex::harness
