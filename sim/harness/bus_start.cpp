#include <unistd.h>

#include <sys/stat.h>

#include "sim/harness/gateway_parts.h"
#include "sim/harness/launch.h"
#include "sim/harness/readiness.h"
#include "sim/harness/sanitizer.h"

namespace korvex::harness {
namespace {

// A socket is ready once the daemon listens on it, a file once it exists.
bool exists(const std::string &path, bool socket) {
    if (socket) return unix_socket_accepts(path);
    struct stat st{};
    return stat(path.c_str(), &st) == 0;
}

void await(const std::string &path, bool socket, const ProcessRecords &records, const std::string &name,
           const GatewaySpec &spec, const std::string &log, const std::string &message) {
    const WaitResult result = wait_until([&] { return exists(path, socket); }, [&] { return records.running(name); },
                                         std::chrono::seconds(spec.wait_seconds));
    if (result != WaitResult::ready) throw StartError(StartError::Kind::failed, message + "\n" + log_tail(log));
}

}  // namespace

void start_bus(const GatewaySpec &spec, const ProcessRecords &records) {
    if (records.running("bus")) throw StartError(StartError::Kind::failed, "the bus of " + spec.run_dir + " already runs");
    const std::string socket = spec.run_dir + "/bus/socket";
    unlink(socket.c_str());
    const std::string log = spec.run_dir + "/logs/bus.log";
    records.record("bus", launch({{"dbus-daemon", "--config-file", spec.run_dir + "/bus.conf", "--nofork", "--print-address"},
                                  {}, log}));
    await(socket, true, records, "bus", spec, log, "dbus-daemon did not listen on " + socket);
}

pid_t start_sim(const GatewaySpec &spec, const ProcessRecords &records) {
    const std::string sim = spec.build_dir + "/sim/korvex-gateway-sim";
    if (access(sim.c_str(), X_OK) != 0) throw StartError(StartError::Kind::failed, sim + " is missing: build first");
    if (records.running("sim")) throw StartError(StartError::Kind::failed, "the simulator of " + spec.run_dir + " already runs");
    const std::string ready = spec.run_dir + "/sim.ready";
    unlink(ready.c_str());
    std::vector<std::string> env = {"DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + spec.run_dir + "/bus/socket"};
    if (spec.sanitize) {
        for (const std::string &line : sanitizer_env(spec.run_dir, "sim")) env.push_back(line);
    }
    const std::string defaults =
        spec.nvram_defaults.empty() ? spec.source_dir + "/sim/nvram_defaults.conf" : spec.nvram_defaults;
    const std::string log = spec.run_dir + "/logs/sim.log";
    const pid_t pid = launch({{sim, "--nvram-file", spec.run_dir + "/nvram.conf", "--nvram-defaults", defaults,
                               "--ready-file", ready},
                              env, log});
    records.record("sim", pid);
    await(ready, false, records, "sim", spec, log, "the simulator did not become ready (no " + ready + ")");
    return pid;
}

}  // namespace korvex::harness
