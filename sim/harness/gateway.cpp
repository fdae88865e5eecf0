#include "sim/harness/gateway.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

#include "sim/harness/gateway_parts.h"
#include "sim/harness/launch.h"
#include "sim/harness/log_level.h"
#include "sim/harness/run_dir.h"
#include "sim/harness/sanitizer.h"

namespace fs = std::filesystem;

namespace korvex::harness {

struct Gateway::Runtime {
    explicit Runtime(const std::string &run_dir) : records(run_dir) {}
    ProcessRecords records;
    PortReservation reservation;
    bool isolated = false;
    // The simulator this process started, for its exit status.
    pid_t sim_child = 0;
};

namespace {

int env_int(const char *name, int fallback) {
    const char *text = std::getenv(name);
    return text && *text ? std::atoi(text) : fallback;
}

void check(bool ok, const std::string &message) {
    if (!ok) throw StartError(StartError::Kind::failed, message);
}

// Serialises stops of one run directory (its watcher, a sweep and its owner may meet).
class StopLock {
public:
    explicit StopLock(const std::string &run_dir)
        : fd_(open((run_dir + "/pids/.stop").c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0644)) {
        if (fd_ >= 0) flock(fd_, LOCK_EX);
    }
    ~StopLock() {
        if (fd_ >= 0) close(fd_);
    }
    StopLock(const StopLock &) = delete;
    StopLock &operator=(const StopLock &) = delete;

private:
    int fd_;
};

}  // namespace

GatewaySpec GatewaySpec::defaults(const std::string &run_dir, const std::string &source_dir,
                                  const std::string &build_dir) {
    GatewaySpec spec;
    spec.run_dir = run_dir;
    spec.source_dir = source_dir;
    spec.build_dir = build_dir;
    const char *sanitize = std::getenv("KORVEX_SANITIZE");
    spec.sanitize = sanitize && std::string(sanitize) == "1";
    spec.wait_seconds = env_int("KORVEX_WAIT_SECONDS", 30);
    return spec;
}

std::map<std::string, std::string> GatewayFacts::as_env() const {
    auto pid = [](pid_t value) { return value > 0 ? std::to_string(value) : std::string(); };
    std::map<std::string, std::string> env = {
        {"RUN_DIR", run_dir}, {"MPM", mpm}, {"LOG_LEVEL", log_level}, {"SANITIZE", sanitize ? "1" : "0"},
        {"ISOLATION", isolated ? "namespaces" : "none"}, {"SERVER_USER", server_user}, {"SERVER_TMP", server_tmp},
        {"BUS_ADDRESS", bus_address}, {"ERROR_LOG", error_log}, {"ACCESS_LOG", access_log},
        {"STUB_LOG", stub_log}, {"NVRAM_FILE", nvram_file}, {"NVRAM_DIR", nvram_dir},
        {"SERVER_PID", pid(server_pid)}, {"BUS_PID", pid(bus_pid)}, {"SIM_PID", pid(sim_pid)}};
    if (port > 0) {
        env["PORT"] = std::to_string(port);
        env["PORT_LOCK"] = port_lock;
    }
    return env;
}

Gateway::Gateway() = default;

Gateway::~Gateway() {
    if (released_) return;
    try {
        down();
    } catch (...) {
    }
}

void Gateway::refresh_facts() {
    const ProcessRecords &records = runtime_->records;
    GatewayFacts &f = facts_;
    const std::string &run = spec_.run_dir;
    f.run_dir = run;
    f.mpm = spec_.mpm;
    f.log_level = spec_.log_level;
    f.sanitize = spec_.sanitize;
    f.isolated = runtime_->isolated;
    f.server_user = f.isolated ? kServerAccount : [] {
        const char *user = std::getenv("USER");
        return std::string(geteuid() == 0 ? "root" : user ? user : "");
    }();
    f.server_tmp = f.isolated ? run + "/tmp" : "/tmp";
    f.bus_address = "unix:path=" + run + "/bus/socket";
    f.error_log = run + "/logs/error.log";
    f.access_log = run + "/logs/access.log";
    f.stub_log = run + "/stubs.log";
    f.nvram_file = run + "/nvram.conf";
    f.nvram_dir = run + "/nvram-sections";
    if (runtime_->reservation.held()) f.port = runtime_->reservation.port();
    if (f.port > 0) f.port_lock = port_lock_file(f.port);
    f.server_pid = records.live_pid("server");
    f.bus_pid = records.live_pid("bus");
    f.sim_pid = records.live_pid("sim");
    std::map<std::string, std::string> env = f.as_env();
    // What attach() needs to go on where up() left off.
    env["SOURCE_DIR"] = spec_.source_dir;
    env["BUILD_DIR"] = spec_.build_dir;
    env["NVRAM_DEFAULTS"] = spec_.nvram_defaults;
    env["TOOL"] = spec_.tool;
    env["WAIT_SECONDS"] = std::to_string(spec_.wait_seconds);
    write_env_file(run, env);
}

std::unique_ptr<Gateway> Gateway::up(const GatewaySpec &requested) {
    GatewaySpec spec = requested;
    check(!spec.run_dir.empty() && spec.run_dir[0] == '/', "the run directory must be an absolute path");
    check(spec.run_dir != "/tmp" && spec.run_dir.rfind("/tmp/", 0) != 0,
          "the run directory must not be under /tmp (the server gets a private /tmp)");
    check(spec.mpm == "prefork" || spec.mpm == "worker" || spec.mpm == "event", "unknown MPM " + spec.mpm);
    const std::string level = apache_log_level(spec.log_level);
    check(!level.empty(), "bad log level " + spec.log_level + " (1-6 or an Apache level name)");
    spec.log_level = level;
    check(spec.port >= 0 && spec.port < 65536 && spec.first_port >= 0 && spec.first_port < 65536, "bad port");
    check(spec.first_port == 0 || spec.port == 0, "a first port needs an automatic port");
    if (spec.tool.empty()) spec.tool = spec.build_dir + "/sim/harness/korvex-gateway";
    if (spec.wait_seconds <= 0) spec.wait_seconds = 30;

    fs::create_directories(spec.run_dir);
    sweep_orphans(fs::path(spec.run_dir).parent_path().string());

    std::unique_ptr<Gateway> gateway(new Gateway());
    gateway->spec_ = spec;
    gateway->runtime_ = std::make_unique<Runtime>(spec.run_dir);
    Runtime &runtime = *gateway->runtime_;
    // Nothing was started yet: a refusal here must not stop the gateway that runs.
    gateway->released_ = true;
    runtime.isolated = use_isolation(spec.isolation);
    check(!runtime.records.running("server") && !runtime.records.running("bus"),
          spec.run_dir + " already runs a gateway");
    prepare_run_dir(spec, runtime.isolated);
    gateway->refresh_facts();
    // Whatever fails from here on, nothing stays behind.
    gateway->released_ = false;
    if (spec.owner_pid > 0) {
        runtime.records.record("owner", spec.owner_pid);
        start_watcher(spec, runtime.records);
    }
    if (spec.with_bus) {
        start_bus(spec, runtime.records);
        runtime.sim_child = start_sim(spec, runtime.records);
    }
    if (spec.with_server) start_server(spec, runtime.records, runtime.isolated, runtime.reservation, gateway->notes_);
    gateway->refresh_facts();
    return gateway;
}

std::unique_ptr<Gateway> Gateway::attach(const std::string &run_dir) {
    std::map<std::string, std::string> env = read_env_file(run_dir);
    if (env.empty()) throw std::runtime_error(run_dir + "/env is missing: was 'up' run?");
    std::unique_ptr<Gateway> gateway(new Gateway());
    GatewaySpec &spec = gateway->spec_;
    spec = GatewaySpec::defaults(run_dir, env["SOURCE_DIR"], env["BUILD_DIR"]);
    spec.nvram_defaults = env["NVRAM_DEFAULTS"];
    spec.tool = env["TOOL"];
    spec.wait_seconds = std::atoi(env["WAIT_SECONDS"].c_str());
    if (spec.wait_seconds <= 0) spec.wait_seconds = 30;
    spec.mpm = env["MPM"];
    spec.log_level = env["LOG_LEVEL"];
    spec.sanitize = env["SANITIZE"] == "1";
    spec.port = std::atoi(env["PORT"].c_str());
    gateway->runtime_ = std::make_unique<Runtime>(run_dir);
    gateway->runtime_->isolated = env["ISOLATION"] == "namespaces";
    spec.isolation = gateway->runtime_->isolated ? Isolation::namespaces : Isolation::none;
    gateway->facts_.port = spec.port;
    gateway->released_ = true;
    gateway->refresh_facts();
    return gateway;
}

void Gateway::down() {
    ProcessRecords &records = runtime_->records;
    if (access(records.dir().c_str(), F_OK) != 0) return;
    {
        StopLock lock(spec_.run_dir);
        const pid_t watcher = records.live_pid("watcher");
        if (watcher != 0 && watcher != getpid()) {
            kill(watcher, SIGTERM);
            records.stop("watcher", 5);
        }
        records.forget("watcher");
        for (const std::string &name : records.names("spawn")) records.stop(name, 5);
        stop_server(records, runtime_->isolated);
        records.stop("sim", 10);
        records.stop("bus", 10);
        records.forget("owner");
        unlink((spec_.run_dir + "/bus/socket").c_str());
        if (spec_.sanitize) collect_ubsan_reports(spec_.run_dir);
    }
    runtime_->reservation.release();
    refresh_facts();
    released_ = true;
}

void Gateway::sim_stop() {
    runtime_->records.stop("sim", 10);
    refresh_facts();
}

void Gateway::sim_start() {
    if (!runtime_->records.running("bus")) throw std::runtime_error("the bus of " + spec_.run_dir + " does not run");
    runtime_->sim_child = start_sim(spec_, runtime_->records);
    refresh_facts();
}

int Gateway::wait_simulator_exit(int timeout_ms) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    const pid_t child = runtime_->sim_child;
    for (;;) {
        if (child != 0) {
            const int status = reap_if_child(child);
            if (status != -1) return status;
        } else if (!runtime_->records.running("sim")) {
            return 0;
        }
        if (std::chrono::steady_clock::now() >= deadline) return -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

int Gateway::terminate_simulator(int timeout_ms) {
    if (const pid_t pid = runtime_->records.live_pid("sim")) kill(pid, SIGTERM);
    return wait_simulator_exit(timeout_ms);
}

void Gateway::bus_stop() {
    runtime_->records.stop("sim", 10);
    runtime_->records.stop("bus", 10);
    unlink((spec_.run_dir + "/bus/socket").c_str());
    refresh_facts();
}

void Gateway::bus_start() {
    start_bus(spec_, runtime_->records);
    runtime_->sim_child = start_sim(spec_, runtime_->records);
    refresh_facts();
}

void Gateway::stop_bus_daemon() {
    runtime_->records.stop("bus", 10);
    refresh_facts();
}

bool Gateway::server_running() const { return runtime_->records.running("server"); }

pid_t Gateway::live_pid(const std::string &part) const { return runtime_->records.live_pid(part); }

}  // namespace korvex::harness
