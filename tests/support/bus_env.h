// A private bus with the gateway simulator on it, without a web server: for tests that
// drive the bus client directly.
#pragma once

#include <memory>
#include <string>

#include "sim/harness/gateway.h"
#include "tests/support/process_runner.h"

namespace korvex::test {

class BusEnv {
public:
    // Starts dbus-daemon and the simulator in a fresh run directory (the harness's, with
    // no server).
    BusEnv();
    ~BusEnv();

    const std::string &address() const { return address_; }
    const std::string &run_dir() const { return run_dir_; }
    // Stops simulator and bus; start() brings both back on the same socket.
    void stop();
    void start();

    // The simulator's committed settings store, its ready file and what it printed.
    std::string nvram_file() const { return run_dir_ + "/nvram.conf"; }
    std::string ready_file() const { return run_dir_ + "/sim.ready"; }
    std::string simulator_output() const;
    // SIGTERM to the simulator; its exit status, or -1 if it still runs after timeout_ms.
    int stop_simulator(int timeout_ms = 2000) { return gateway_->terminate_simulator(timeout_ms); }
    // The simulator's exit status once it ends, or -1 while it still runs after timeout_ms.
    int wait_for_simulator_exit(int timeout_ms) { return gateway_->wait_simulator_exit(timeout_ms); }
    // The simulator's process id (-1 when it does not run).
    pid_t simulator_pid() const;
    // Ends only the bus daemon, as when the system bus goes away.
    void stop_bus() { gateway_->stop_bus_daemon(); }

private:
    std::string run_dir_;
    std::string address_;
    // Bus and simulator without a server, stopped by its watcher should this process die.
    std::unique_ptr<harness::Gateway> gateway_;
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
