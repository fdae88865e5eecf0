// One long-lived /bin/sh that runs one script per call and hands back everything the
// script wrote (standard output and standard error), up to an end marker that the session
// appends. Starting a shell per input costs a fork and an exec; a session costs two pipe
// round trips, so a fuzz target can afford a real shell as its oracle.
//
// Every wait survives interrupted system calls (libFuzzer's -timeout alarm is a SIGALRM
// that interrupts read and poll) and is bounded by its own deadline.
#pragma once

#include <sys/types.h>

#include <string>

namespace korvex::fuzz {

class ShellSession {
public:
    // What a script came to.
    enum class Outcome {
        kFinished,  // the end marker came; `output` holds what the script wrote before it
        kDied,      // the shell exited (or closed its pipes) before the end marker
        kTimedOut,  // no end marker within the deadline: the shell still reads the script
    };

    ShellSession() = default;
    ~ShellSession();
    ShellSession(const ShellSession &) = delete;
    ShellSession &operator=(const ShellSession &) = delete;

    // Runs `script` (one or more complete lines) in the shell, starting the shell first
    // when there is none. After kDied or kTimedOut the shell is gone and the next call
    // starts a fresh one.
    Outcome run(const std::string &script, std::string *output, int timeout_ms);

    // How many shells this session started.
    unsigned starts() const { return starts_; }

private:
    bool start();
    void stop();

    pid_t pid_ = -1;
    int to_shell_ = -1;    // the shell's standard input
    int from_shell_ = -1;  // its standard output and standard error
    unsigned long scripts_ = 0;
    unsigned starts_ = 0;
};

}  // namespace korvex::fuzz
