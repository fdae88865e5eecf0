// "status" and "logs": what a run directory holds, for a person at the terminal.
#include <iostream>

#include "sim/harness/cli/commands.h"
#include "sim/harness/process_record.h"
#include "sim/harness/readiness.h"
#include "sim/harness/run_dir.h"

namespace korvex::harness::cli {

int status_command(const std::string &run_dir) {
    const auto env = read_env_file(run_dir);
    if (env.empty()) {
        std::cerr << "korvex-gateway: " << run_dir << "/env is missing: was 'up' run?\n";
        return 1;
    }
    for (const auto &[key, value] : env) std::cout << key << "=" << value << "\n";
    const ProcessRecords records(run_dir);
    for (const std::string &name : records.names()) {
        const pid_t pid = records.live_pid(name);
        std::cout << "# " << name << ": " << (pid ? "running, pid " + std::to_string(pid) : "gone") << "\n";
    }
    return 0;
}

int logs_command(const std::string &run_dir) {
    for (const char *log : {"error.log", "httpd.stderr", "access.log", "bus.log", "sim.log", "watcher.log"})
        std::cout << log_tail(run_dir + "/logs/" + log, 40);
    return 0;
}

}  // namespace korvex::harness::cli
