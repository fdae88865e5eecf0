#include "tests/support/gateway_env.h"

#include "tests/support/http_client.h"
#include "tests/support/process_runner.h"
#include "sim/harness/gateway.h"
#include "sim/harness/port_reservation.h"

#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace fs = std::filesystem;

namespace korvex::test {
namespace {

void write_file(const std::string &path, const std::string &content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    if (!out) throw std::runtime_error("cannot write " + path);
}

std::string tail(const std::string &text, size_t lines) {
    size_t pos = text.size();
    while (lines-- > 0 && pos > 0) {
        pos = text.rfind('\n', pos - 1);
        if (pos == std::string::npos) return text;
    }
    return text.substr(pos + 1);
}

bool keep_run_dirs() {
    const char *keep = std::getenv("KORVEX_KEEP_RUNS");
    if (keep && *keep && std::string(keep) != "0") return true;
    return ::testing::UnitTest::GetInstance()->failed_test_count() > 0 ||
           ::testing::Test::HasFailure();
}

// A kept run directory loses only the bulky files of the server's /tmp.
void drop_big_files(const std::string &dir) {
    std::error_code ec;
    for (const auto &entry : fs::recursive_directory_iterator(dir, ec)) {
        if (entry.is_regular_file(ec) && entry.file_size(ec) > (8u << 20)) fs::remove(entry.path(), ec);
    }
}

}  // namespace

// --- life cycle ---------------------------------------------------------------------------

std::unique_ptr<GatewayEnv> GatewayEnv::start(const Options &options) {
    std::unique_ptr<GatewayEnv> env(new GatewayEnv());
    env->options_ = options;
    env->run_dir_ = harness::make_run_dir("run");
    const std::string conf_dir = env->run_dir_ + "/conf.d";
    if (mkdir(conf_dir.c_str(), 0755) != 0 && errno != EEXIST)
        throw std::runtime_error("cannot make " + conf_dir + ": " + std::strerror(errno));
    if (!options.thin_log_records) std::ofstream(conf_dir + "/log-records.conf") << "KorvexLogThinning off\n";
    if (!options.site_config.empty()) std::ofstream(conf_dir + "/site.conf") << options.site_config;

    // The harness chooses the port, reserves it and, should the server find it taken after
    // all, starts the server again on another one: no other test can take it meanwhile.
    harness::GatewaySpec spec = harness::GatewaySpec::defaults(env->run_dir_, KORVEX_SOURCE_DIR, KORVEX_BUILD_DIR);
    spec.port = 0;
    spec.first_port = options.first_port;
    spec.mpm = options.mpm;
    spec.log_level = std::to_string(options.log_level);
    spec.owner_pid = getpid();
    spec.module_file = KORVEX_TEST_MODULE;
    spec.with_bus = options.with_bus;
    spec.server_tmp_dirs = options.server_tmp_dirs;
    try {
        env->gateway_ = harness::Gateway::up(spec);
    } catch (const std::exception &e) {
        env->keep_run_dir_ = true;  // its destructor leaves the logs
        throw std::runtime_error("the gateway did not start in " + env->run_dir_ + ":\n" + e.what());
    }
    return env;
}

GatewayEnv::~GatewayEnv() {
    try {
        if (gateway_) gateway_->down();
    } catch (const std::exception &e) {
        std::cerr << "gateway down failed: " << e.what() << "\n";
    }
    // Once every process is stopped, nothing more can be reported.
    const std::vector<std::string> reports = sanitizer_reports();
    if (!reports.empty()) {
        keep_run_dir_ = true;
        std::string text;
        for (const std::string &path : reports) text += "--- " + path + ":\n" + tail(read_file(path), 60) + "\n";
        ADD_FAILURE() << reports.size() << " sanitizer report(s) in " << run_dir_ << ":\n" << text;
    }
    if (keep_run_dir_ || keep_run_dirs()) {
        drop_big_files(run_dir_);
        std::cerr << "[korvex] run directory kept: " << run_dir_ << "\n";
        return;
    }
    std::error_code ec;
    fs::remove_all(run_dir_, ec);
}

std::string GatewayEnv::port_lock_file(int port) { return harness::port_lock_file(port); }

std::string GatewayEnv::harness_log() const { return gateway_ ? gateway_->notes() : std::string(); }

std::string GatewayEnv::env_value(const std::string &key) const {
    const std::map<std::string, std::string> env = facts().as_env();
    auto it = env.find(key);
    return it == env.end() ? "" : it->second;
}

// --- logs and files ----------------------------------------------------------------------

std::vector<std::string> GatewayEnv::sanitizer_reports() const {
    std::vector<std::string> reports;
    std::error_code ec;
    for (const auto &entry : fs::directory_iterator(run_dir_ + "/sanitizer", ec)) {
        if (entry.is_regular_file(ec)) reports.push_back(entry.path().string());
    }
    std::sort(reports.begin(), reports.end());
    return reports;
}

std::string GatewayEnv::error_log() const { return read_file(facts().error_log); }

size_t GatewayEnv::error_log_size() const {
    struct stat st{};
    return stat(facts().error_log.c_str(), &st) == 0 ? static_cast<size_t>(st.st_size) : 0;
}

std::string GatewayEnv::error_log_since(size_t offset) const {
    return read_file(facts().error_log, offset);
}

size_t GatewayEnv::count_log_lines(const std::string &substring, size_t since) const {
    std::istringstream lines(error_log_since(since));
    size_t count = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.find(substring) != std::string::npos) ++count;
    }
    return count;
}

bool GatewayEnv::wait_for_log(const std::string &substring, std::chrono::milliseconds timeout,
                              size_t since) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        if (count_log_lines(substring, since) > 0) return true;
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

std::string GatewayEnv::server_tmp_path(const std::string &name) const {
    return facts().server_tmp + "/" + name;
}

void GatewayEnv::write_server_tmp(const std::string &name, const std::string &content) const {
    const std::string path = server_tmp_path(name);
    write_file(path, content);
    if (passwd *account = getpwnam(facts().server_user.c_str())) {
        if (chown(path.c_str(), account->pw_uid, account->pw_gid) != 0)
            throw std::runtime_error("cannot chown " + path);
    }
}

std::string GatewayEnv::stub_log_path() const { return facts().stub_log; }
std::string GatewayEnv::stub_log() const { return read_file(stub_log_path()); }

void GatewayEnv::clear_stub_log() const {
    // Truncate in place: the file keeps the owner and mode the stand-ins need.
    if (truncate(stub_log_path().c_str(), 0) != 0) throw std::runtime_error("cannot clear the stub log");
}

void GatewayEnv::set_site_survey(const std::string &text) const {
    write_file(run_dir_ + "/stubs/site_survey.txt", text);
}

// --- processes ---------------------------------------------------------------------------

pid_t GatewayEnv::spawn_process(const std::string &name) { return gateway_->spawn(name); }

void GatewayEnv::kill_process(pid_t id) { gateway_->unspawn(id); }

void GatewayEnv::sim_stop() { gateway_->sim_stop(); }
void GatewayEnv::sim_start() { gateway_->sim_start(); }
void GatewayEnv::bus_stop() { gateway_->bus_stop(); }
void GatewayEnv::bus_start() { gateway_->bus_start(); }

bool GatewayEnv::bus_running() const { return facts().bus_pid != 0; }

pid_t GatewayEnv::server_pid() const { return facts().server_pid; }

std::vector<pid_t> GatewayEnv::server_child_pids() const {
    std::vector<pid_t> pids;
    const std::string tasks = "/proc/" + std::to_string(server_pid()) + "/task";
    std::error_code ec;
    for (const auto &task : fs::directory_iterator(tasks, ec)) {
        std::istringstream children(read_file(task.path().string() + "/children"));
        for (long pid; children >> pid;) pids.push_back(static_cast<pid_t>(pid));
    }
    return pids;
}

long GatewayEnv::vm_rss_kb(pid_t pid) {
    std::istringstream lines(read_file("/proc/" + std::to_string(pid) + "/status"));
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, 6, "VmRSS:") == 0) return std::atol(line.c_str() + 6);
    }
    return -1;
}

pid_t GatewayEnv::namespace_pid(pid_t host_pid) {
    std::istringstream lines(read_file("/proc/" + std::to_string(host_pid) + "/status"));
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, 6, "NSpid:") != 0) continue;
        std::istringstream ids(line.substr(6));
        long id = -1;
        for (long next; ids >> next;) id = next;  // the innermost namespace comes last
        return static_cast<pid_t>(id);
    }
    return -1;
}

std::string GatewayEnv::server_hostname() const { return gateway_->server_hostname(); }

// --- shared fixture ----------------------------------------------------------------------

namespace {

struct SharedEnv {
    std::unique_ptr<GatewayEnv> env;
    std::string error;
};

SharedEnv &shared() {
    static SharedEnv state;
    return state;
}

// Stops the shared gateway once all tests of the binary have run.
class SharedEnvCleanup : public ::testing::Environment {
public:
    void TearDown() override { shared().env.reset(); }
};

[[maybe_unused]] const auto *const registered_cleanup =
    ::testing::AddGlobalTestEnvironment(new SharedEnvCleanup);

}  // namespace

void GatewayTest::use_env(const GatewayEnv::Options &options) {
    SharedEnv &state = shared();
    if (state.env && state.env->options() == options) return;
    state.env.reset();
    state.error.clear();
    try {
        state.env = GatewayEnv::start(options);
    } catch (const std::exception &e) {
        state.error = e.what();
    }
}

void GatewayTest::use_log_level(int level) {
    GatewayEnv::Options options;
    options.log_level = level;
    use_env(options);
}

void GatewayTest::restart_env() {
    GatewayEnv::Options options = shared().env ? shared().env->options() : GatewayEnv::Options();
    shared().env.reset();
    use_env(options);
}

GatewayEnv &GatewayTest::env() {
    if (!shared().env) throw std::runtime_error("no gateway: " + shared().error);
    return *shared().env;
}

void GatewayEnv::forget_silent_peers() const {
    const HttpResponse response = get_with_fault(port(), "/network.cgi?test=0", "forget-silent-peers", 10000);
    if (response.status != 200) {
        throw std::runtime_error("forgetting the silent destinations failed: " + std::to_string(response.status) +
                                 " " + response.error);
    }
}

void GatewayTest::SetUp() {
    SharedEnv &state = shared();
    if (!state.env) GTEST_FAIL() << "the gateway did not start:\n" << state.error;
    // A test that stopped the bus and failed before restarting it does not spoil the next.
    if (state.env->options().with_bus && !state.env->bus_running()) state.env->bus_start();
    // Nor does a daemon that an earlier test left silent: the server would still fail calls
    // to it at once for a while.
    state.env->forget_silent_peers();
}

}  // namespace korvex::test
