// Processes a test shows to the server (spawn) and what the server's namespaces look like
// from inside.
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "sim/harness/gateway.h"
#include "sim/harness/launch.h"
#include "sim/harness/process_record.h"
#include "sim/harness/run_dir.h"

namespace korvex::harness {
namespace {

std::string first_argument(pid_t pid) {
    const std::string cmdline = read_text("/proc/" + std::to_string(pid) + "/cmdline");
    return cmdline.substr(0, cmdline.find('\0'));
}

}  // namespace

pid_t Gateway::spawn(const std::string &name) {
    if (name.empty()) throw std::runtime_error("spawn needs a name");
    const ProcessRecords records(spec_.run_dir);
    std::vector<std::string> sleeper = {"bash", "-c", "exec -a \"$0\" sleep 86400", name};
    pid_t pid = 0;
    if (facts_.isolated) {
        const pid_t init = records.live_pid("server");
        if (init == 0) throw std::runtime_error("the server does not run");
        sleeper.insert(sleeper.begin(), {"nsenter", "--target", std::to_string(init), "--pid", "--mount", "--"});
        const pid_t entering = launch({sleeper});
        pid = first_child(entering, 10000);
        if (pid == 0) throw std::runtime_error("spawn of " + name + " failed");
        records.record("spawner-" + std::to_string(pid), entering);
    } else {
        pid = launch({sleeper});
    }
    // Wait for the exec so the server sees the name, not "bash".
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (first_argument(pid) != name) {
        if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("spawn of " + name + " did not start");
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    records.record("spawned-" + std::to_string(pid), pid);
    return pid;
}

void Gateway::unspawn(pid_t id) {
    const ProcessRecords records(spec_.run_dir);
    const std::string name = "spawned-" + std::to_string(id);
    if (records.names(name) != std::vector<std::string>{name})
        throw std::runtime_error("no process " + std::to_string(id) + " was spawned in " + spec_.run_dir);
    records.stop(name, 5);
    records.stop("spawner-" + std::to_string(id), 5);
}

std::string Gateway::server_hostname() const {
    std::string name;
    if (facts_.isolated) {
        const pid_t init = ProcessRecords(spec_.run_dir).live_pid("server");
        if (init == 0) throw std::runtime_error("the server does not run");
        int status = 0;
        name = run_capture({"nsenter", "--target", std::to_string(init), "--uts", "cat", "/proc/sys/kernel/hostname"},
                           &status);
        if (status != 0) throw std::runtime_error("nsenter failed");
    } else {
        name = read_text("/proc/sys/kernel/hostname");
    }
    while (!name.empty() && name.back() == '\n') name.pop_back();
    return name;
}

}  // namespace korvex::harness
