#include "tests/support/bus_env.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace korvex::test {

namespace {

std::string bus_config_for(const std::string &run_dir) {
    std::string text = read_file(std::string(KORVEX_SOURCE_DIR) + "/conf/bus.conf.in");
    const std::string marker = "@RUN_DIR@";
    for (auto at = text.find(marker); at != std::string::npos; at = text.find(marker)) {
        text.replace(at, marker.size(), run_dir);
    }
    return text;
}

}  // namespace

BusEnv::BusEnv() : run_dir_(make_run_dir("bus")) {
    std::ofstream(run_dir_ + "/bus.conf") << bus_config_for(run_dir_);
    if (std::system(("mkdir -p '" + run_dir_ + "/bus'").c_str()) != 0) throw std::runtime_error("mkdir failed");
    address_ = "unix:path=" + run_dir_ + "/bus/socket";
    start();
}

BusEnv::~BusEnv() {
    stop();
    remove_tree(run_dir_);
}

void BusEnv::start() {
    bus_ = ChildProcess({"dbus-daemon", "--config-file=" + run_dir_ + "/bus.conf", "--nofork"},
                        run_dir_ + "/bus.log");
    if (!wait_for_file(run_dir_ + "/bus/socket", 5000)) throw std::runtime_error("dbus-daemon did not start");
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
    const std::string ready = ready_file();
    std::remove(ready.c_str());
    sim_ = ChildProcess({std::string(KORVEX_BUILD_DIR) + "/sim/korvex-gateway-sim", "--nvram-file",
                         nvram_file(), "--nvram-defaults",
                         std::string(KORVEX_SOURCE_DIR) + "/sim/nvram_defaults.conf", "--ready-file", ready},
                        run_dir_ + "/sim.log");
    if (!wait_for_file(ready, 10000)) throw std::runtime_error("simulator did not get ready");
}

void BusEnv::stop() {
    sim_.stop();
    bus_.stop();
    std::remove((run_dir_ + "/bus/socket").c_str());
}

std::string BusEnv::simulator_output() const { return read_file(run_dir_ + "/sim.log"); }

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
