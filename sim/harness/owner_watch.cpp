// The two ways a gateway whose owner died is stopped: its own watcher, and the sweep that
// every up() runs over the run directories beside its own.
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <thread>

#include "sim/harness/gateway_parts.h"
#include "sim/harness/launch.h"
#include "sim/harness/owner_watch.h"

namespace fs = std::filesystem;

namespace korvex::harness {
namespace {

// Records of the processes a gateway may have left running.
bool runs_anything(const ProcessRecords &records) {
    for (const std::string &name : records.names()) {
        if (name != "owner" && records.running(name)) return true;
    }
    return false;
}

}  // namespace

void start_watcher(const GatewaySpec &spec, const ProcessRecords &records) {
    if (access(spec.tool.c_str(), X_OK) != 0)
        throw StartError(StartError::Kind::failed, spec.tool + " is missing: build the korvex-gateway target");
    records.record("watcher", launch({{spec.tool, "watch", spec.run_dir}, {}, spec.run_dir + "/logs/watcher.log"}));
}

bool owner_gone(const std::string &run_dir) {
    const ProcessRecords records(run_dir);
    struct stat st{};
    return stat((records.dir() + "/owner").c_str(), &st) == 0 && !records.running("owner");
}

int watch_owner(const std::string &run_dir, std::chrono::milliseconds step) {
    const ProcessRecords records(run_dir);
    while (records.running("owner")) std::this_thread::sleep_for(step);
    if (!runs_anything(records)) return 0;
    std::cerr << "korvex-gateway: owner of " << run_dir << " is gone, stopping\n";
    Gateway::attach(run_dir)->down();
    return 1;
}

int sweep_orphans(const std::string &root) {
    int stopped = 0;
    std::error_code ec;
    for (const auto &entry : fs::directory_iterator(root, ec)) {
        if (!entry.is_directory(ec)) continue;
        const std::string dir = entry.path().string();
        if (!owner_gone(dir) || !runs_anything(ProcessRecords(dir))) continue;
        try {
            std::cerr << "korvex-gateway: the owner of " << dir << " is gone, stopping what it left\n";
            Gateway::attach(dir)->down();
            ++stopped;
        } catch (const std::exception &e) {
            std::cerr << "korvex-gateway: cannot stop " << dir << ": " << e.what() << "\n";
        }
    }
    return stopped;
}

}  // namespace korvex::harness
