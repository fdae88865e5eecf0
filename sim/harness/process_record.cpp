#include "sim/harness/process_record.h"

#include <dirent.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>

namespace korvex::harness {
namespace {

std::string slurp(const std::string &path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace

std::string process_start_time(pid_t pid) {
    if (pid <= 0) return "";
    const std::string stat = slurp("/proc/" + std::to_string(pid) + "/stat");
    // The command name may hold spaces and parentheses: fields resume after the last ')'.
    const size_t close = stat.rfind(')');
    if (close == std::string::npos) return "";
    std::istringstream fields(stat.substr(close + 1));
    std::string field, state;
    fields >> state;
    if (state == "Z" || state == "X") return "";
    // state is field 3; starttime is field 22.
    for (int index = 4; index <= 22 && (fields >> field); ++index) {
        if (index == 22) return field;
    }
    return "";
}

bool process_alive(pid_t pid) { return !process_start_time(pid).empty(); }

void ProcessRecords::record(const std::string &name, pid_t pid) const {
    mkdir(dir_.c_str(), 0755);
    std::string started = process_start_time(pid);
    if (started.empty()) started = "gone";
    std::ofstream(dir_ + "/" + name) << pid << " " << started << "\n";
}

pid_t ProcessRecords::live_pid(const std::string &name) const {
    std::istringstream line(slurp(dir_ + "/" + name));
    long pid = 0;
    std::string started;
    if (!(line >> pid >> started) || pid <= 0) return 0;
    reap_if_child(static_cast<pid_t>(pid));
    return process_start_time(static_cast<pid_t>(pid)) == started ? static_cast<pid_t>(pid) : 0;
}

void ProcessRecords::forget(const std::string &name) const { unlink((dir_ + "/" + name).c_str()); }

std::vector<std::string> ProcessRecords::names(const std::string &prefix) const {
    std::vector<std::string> found;
    if (DIR *dir = opendir(dir_.c_str())) {
        while (dirent *entry = readdir(dir)) {
            const std::string name = entry->d_name;
            if (name[0] != '.' && name.compare(0, prefix.size(), prefix) == 0) found.push_back(name);
        }
        closedir(dir);
    }
    return found;
}

bool ProcessRecords::stop(const std::string &name, int seconds, bool group) const {
    bool gentle = true;
    if (const pid_t pid = live_pid(name)) {
        kill(pid, SIGTERM);
        if (group) kill(-pid, SIGTERM);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
        while (running(name) && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        if (running(name)) {
            std::cerr << "korvex-gateway: " << name << " (" << pid << ") ignored SIGTERM, killing it\n";
            gentle = false;
            kill(pid, SIGKILL);
            const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
            while (running(name) && std::chrono::steady_clock::now() < end)
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        // Without a namespace, children of a stopped leader may linger in its group.
        if (group) kill(-pid, SIGKILL);
    }
    forget(name);
    return gentle;
}

pid_t first_child(pid_t pid, int timeout_ms) {
    const std::string path = "/proc/" + std::to_string(pid) + "/task/" + std::to_string(pid) + "/children";
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    for (;;) {
        std::istringstream children(slurp(path));
        long child = 0;
        if (children >> child) return static_cast<pid_t>(child);
        if (!process_alive(pid) || std::chrono::steady_clock::now() > deadline) return 0;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

int reap_if_child(pid_t pid) {
    // Whoever reaps a child first (a liveness check, a stop) keeps its status here for the
    // one who asks for it (the simulator's exit status, say).
    static std::mutex lock;
    static std::map<pid_t, int> statuses;
    std::lock_guard<std::mutex> hold(lock);
    int status = 0;
    if (waitpid(pid, &status, WNOHANG) == pid) {
        statuses[pid] = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    auto it = statuses.find(pid);
    return it == statuses.end() ? -1 : it->second;
}

}  // namespace korvex::harness
