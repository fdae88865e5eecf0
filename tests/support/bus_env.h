// A private bus with the gateway simulator on it, without a web server: for tests that
// drive the bus client directly.
#pragma once

#include <memory>
#include <string>

#include "tests/support/process_runner.h"

namespace korvex::test {

class BusEnv {
public:
    // Starts dbus-daemon and the simulator in a fresh run directory.
    BusEnv();
    ~BusEnv();

    const std::string &address() const { return address_; }
    const std::string &run_dir() const { return run_dir_; }
    // Stops simulator and bus; start() brings both back on the same socket.
    void stop();
    void start();

private:
    std::string run_dir_;
    std::string address_;
    ChildProcess bus_;
    ChildProcess sim_;
};

// Sends everything written to standard error (where the module's log lines go) to a
// file while it lives, so a test can read back exact log lines.
class StderrCapture {
public:
    StderrCapture();
    ~StderrCapture();
    // Everything captured so far.
    std::string text() const;

private:
    std::string path_;
    int saved_fd_ = -1;
};

}  // namespace korvex::test
