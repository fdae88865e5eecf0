#include "tests/support/bus_env.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <stdexcept>

namespace korvex::test {

BusEnv::BusEnv() : run_dir_(harness::make_run_dir("bus")) {
    harness::GatewaySpec spec = harness::GatewaySpec::defaults(run_dir_, KORVEX_SOURCE_DIR, KORVEX_BUILD_DIR);
    spec.with_server = false;
    spec.owner_pid = getpid();
    gateway_ = harness::Gateway::up(spec);
    address_ = gateway_->facts().bus_address;
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
}

BusEnv::~BusEnv() {
    gateway_->down();
    std::error_code ignored;
    std::filesystem::remove_all(run_dir_, ignored);
}

void BusEnv::start() {
    gateway_->bus_start();
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
}

void BusEnv::stop() { gateway_->bus_stop(); }

pid_t BusEnv::simulator_pid() const {
    const pid_t pid = gateway_->live_pid("sim");
    return pid == 0 ? -1 : pid;
}

std::string BusEnv::simulator_output() const { return read_file(run_dir_ + "/logs/sim.log"); }

StderrCapture::StderrCapture() {
    char pattern[] = "/tmp/korvex-stderr.XXXXXX";
    int fd = mkstemp(pattern);
    if (fd < 0) throw std::runtime_error("mkstemp failed");
    path_ = pattern;
    fflush(stderr);
    saved_fd_ = dup(STDERR_FILENO);
    dup2(fd, STDERR_FILENO);
    close(fd);
}

StderrCapture::~StderrCapture() {
    fflush(stderr);
    dup2(saved_fd_, STDERR_FILENO);
    close(saved_fd_);
    std::remove(path_.c_str());
}

std::string StderrCapture::text() const { return read_file(path_); }

}  // namespace korvex::test
