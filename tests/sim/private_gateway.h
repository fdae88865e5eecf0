// A private system bus (its own dbus-daemon) with the gateway simulator on it, in a
// temporary directory that goes away with the object.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace korvex::test {

class PrivateGateway {
  public:
    static constexpr const char *kSimulatorPath = KORVEX_BUILD_DIR "/sim/korvex-gateway-sim";
    static constexpr const char *kNvramDefaultsPath = KORVEX_SOURCE_DIR "/sim/nvram_defaults.conf";

    PrivateGateway() {
        char pattern[] = "/tmp/korvex-sim-test-XXXXXX";
        if (::mkdtemp(pattern) == nullptr)
            throw std::runtime_error("mkdtemp failed");
        dir_ = pattern;
        try {
            start_bus();
            start_simulator();
        } catch (...) {
            stop_all();
            throw;
        }
    }
    ~PrivateGateway() { stop_all(); }
    PrivateGateway(const PrivateGateway &) = delete;
    PrivateGateway &operator=(const PrivateGateway &) = delete;

    const std::string &bus_address() const { return bus_address_; }
    std::string nvram_file() const { return dir_ + "/nvram.conf"; }
    std::string ready_file() const { return dir_ + "/sim.ready"; }
    std::string simulator_stdout() const { return read_file(dir_ + "/sim.out"); }

    // Sends SIGTERM to the simulator and returns its exit status (-1 if it did not exit
    // normally within two seconds).
    int stop_simulator() {
        if (simulator_pid_ > 0)
            ::kill(simulator_pid_, SIGTERM);
        return wait_for_simulator_exit(2000);
    }

    // Exit status of the simulator once it ends, or -1 when it is still running after
    // `timeout_ms` (or was killed by a signal).
    int wait_for_simulator_exit(int timeout_ms) {
        if (simulator_pid_ <= 0)
            return simulator_status_;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
        while (true) {
            int status = 0;
            if (::waitpid(simulator_pid_, &status, WNOHANG) == simulator_pid_) {
                simulator_pid_ = -1;
                simulator_status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
                return simulator_status_;
            }
            if (std::chrono::steady_clock::now() >= deadline)
                return -1;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }

    // Ends the bus daemon, as when the system bus goes away.
    void stop_bus() { stop_process(bus_pid_); }

  private:
    static std::string read_file(const std::string &path) {
        std::ifstream in(path);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    static void stop_process(pid_t &pid) {
        if (pid <= 0)
            return;
        ::kill(pid, SIGTERM);
        int status = 0;
        for (int i = 0; i < 200 && ::waitpid(pid, &status, WNOHANG) == 0; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        if (::waitpid(pid, &status, WNOHANG) == 0) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, &status, 0);
        }
        pid = -1;
    }

    void stop_all() {
        stop_process(simulator_pid_);
        stop_process(bus_pid_);
        std::error_code ignored;
        std::filesystem::remove_all(dir_, ignored);
    }

    void start_bus() {
        const std::string config = dir_ + "/bus.conf";
        std::ofstream(config) << "<busconfig><type>system</type><listen>unix:path=" << dir_
                              << "/bus</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                                 "<allow user=\"*\"/><allow own=\"*\"/>"
                                 "<allow send_destination=\"*\" eavesdrop=\"true\"/>"
                                 "<allow eavesdrop=\"true\"/><allow send_type=\"method_call\"/>"
                                 "</policy></busconfig>\n";
        int pipe_fds[2];
        if (::pipe(pipe_fds) != 0)
            throw std::runtime_error("pipe failed");
        bus_pid_ = ::fork();
        if (bus_pid_ == 0) {
            ::dup2(pipe_fds[1], STDOUT_FILENO);
            ::close(pipe_fds[0]);
            ::close(pipe_fds[1]);
            const std::string config_flag = "--config-file=" + config;
            ::execlp("dbus-daemon", "dbus-daemon", config_flag.c_str(), "--nofork", "--print-address",
                     static_cast<char *>(nullptr));
            ::_exit(127);
        }
        ::close(pipe_fds[1]);
        bus_address_ = read_line(pipe_fds[0], 5000);
        ::close(pipe_fds[0]);
        if (bus_address_.empty())
            throw std::runtime_error("dbus-daemon did not print its address");
    }

    static std::string read_line(int fd, int timeout_ms) {
        std::string line;
        char c;
        pollfd readable{fd, POLLIN, 0};
        while (::poll(&readable, 1, timeout_ms) > 0 && ::read(fd, &c, 1) == 1) {
            if (c == '\n')
                return line;
            line += c;
        }
        return "";
    }

    void start_simulator() {
        simulator_pid_ = ::fork();
        if (simulator_pid_ == 0) {
            int out = ::open((dir_ + "/sim.out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            ::dup2(out, STDOUT_FILENO);
            ::setenv("DBUS_SYSTEM_BUS_ADDRESS", bus_address_.c_str(), 1);
            const std::string nvram = nvram_file();
            const std::string ready = ready_file();
            ::execl(kSimulatorPath, kSimulatorPath, "--nvram-file", nvram.c_str(), "--nvram-defaults",
                    kNvramDefaultsPath, "--ready-file", ready.c_str(), static_cast<char *>(nullptr));
            ::_exit(127);
        }
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (!std::filesystem::exists(ready_file())) {
            if (wait_for_simulator_exit(0) != -1 || simulator_pid_ <= 0)
                throw std::runtime_error("the simulator ended before it was ready");
            if (std::chrono::steady_clock::now() >= deadline)
                throw std::runtime_error("the simulator did not get ready within 5 s");
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }

    std::string dir_;
    std::string bus_address_;
    pid_t bus_pid_ = -1;
    pid_t simulator_pid_ = -1;
    int simulator_status_ = -1;
};

}  // namespace korvex::test
