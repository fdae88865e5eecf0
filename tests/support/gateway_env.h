// One private gateway for end-to-end tests: bus, simulator and Apache with the module,
// brought up and torn down by the harness library (sim/harness/gateway.h) in a run
// directory of its own.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "korvex_log.h"
#include "sim/harness/gateway.h"

namespace korvex::test {

struct GatewayOptions {
    std::string mpm = "prefork";  // prefork, worker or event
    bool with_bus = true;         // false: no bus and no simulator (bus_start() later)
    // The lowest of the module's levels (KORVEX_LOG_CHILD .. KORVEX_LOG_ERROR) that reaches
    // the error log, as "LogLevel korvex:<Apache level>" (docs/logging.md). The default is
    // a production server's; tests that read trace lines ask for their level.
    int log_level = KORVEX_LOG_STATE;
    // Directories made in the server's private /tmp before it starts (needs isolation:
    // start() throws without it).
    std::vector<std::string> server_tmp_dirs;
    // The port tried first (0: none), taken without checking whether something listens on
    // it, so that the server's own bind decides. The port is otherwise free and reserved as
    // always (sim/harness/port_reservation.h).
    int first_port = 0;
    // Configuration read after the main server's (RUN_DIR/conf.d/site.conf), e.g. virtual
    // hosts with directives of their own; empty: none.
    std::string site_config;
    // Repeated log records thinned as in production (KorvexLogThinning). Off by default in
    // tests, which assert the records each request writes.
    bool thin_log_records = false;

    bool operator==(const GatewayOptions &o) const {
        return mpm == o.mpm && with_bus == o.with_bus && log_level == o.log_level &&
               server_tmp_dirs == o.server_tmp_dirs && first_port == o.first_port &&
               site_config == o.site_config && thin_log_records == o.thin_log_records;
    }
};

class GatewayEnv {
public:
    using Options = GatewayOptions;

    // Starts everything on a free port that the harness chooses and reserves for as long as
    // the server lives; throws std::runtime_error with the log tail on failure.
    static std::unique_ptr<GatewayEnv> start(const Options &options = Options());
    // The lock file that reserves `port` for a gateway (held while its server lives).
    static std::string port_lock_file(int port);
    ~GatewayEnv();
    GatewayEnv(const GatewayEnv &) = delete;
    GatewayEnv &operator=(const GatewayEnv &) = delete;

    const Options &options() const { return options_; }
    int port() const { return facts().port; }
    const std::string &bus_address() const { return facts().bus_address; }
    const std::string &run_dir() const { return run_dir_; }
    // False when the server shares the host's /tmp, /proc and host name (not root).
    bool has_isolation() const { return facts().isolated; }
    // A fact of the running gateway, named as RUN_DIR/env names it (PORT, BUS_ADDRESS,
    // ERROR_LOG, SERVER_PID, ...); "" if absent. As of the last start or stop of a part.
    std::string env_value(const std::string &key) const;

    // True when the gateway runs in sanitizer mode (KORVEX_SANITIZE=1, see docs/running.md).
    bool sanitized() const { return facts().sanitize; }
    // Paths of the sanitizer reports written so far by the server or the simulator (files
    // in RUN_DIR/sanitizer/); always empty outside sanitizer mode. The destructor fails the
    // running test and keeps the run directory when there are any.
    std::vector<std::string> sanitizer_reports() const;

    // The harness's notes of the start-up (ports it gave up and why, say).
    std::string harness_log() const;

    // The server's error log, which also holds the module's trace lines.
    std::string error_log() const;
    size_t error_log_size() const;
    std::string error_log_since(size_t offset) const;
    size_t count_log_lines(const std::string &substring, size_t since = 0) const;
    // Polls the error log (from offset since) until a line contains substring.
    bool wait_for_log(const std::string &substring, std::chrono::milliseconds timeout,
                      size_t since = 0) const;

    // Path, seen from the test, of a file in the server's /tmp ("uImage" -> RUN_DIR/tmp/uImage).
    std::string server_tmp_path(const std::string &name) const;
    // Creates or replaces a file in the server's /tmp, owned by the server's account.
    void write_server_tmp(const std::string &name, const std::string &content) const;

    // Commands the server ran through the recording stand-ins (iwpriv, reboot), one a line.
    std::string stub_log() const;
    std::string stub_log_path() const;
    void clear_stub_log() const;
    // Output of the iwpriv stand-in for get_site_survey.
    void set_site_survey(const std::string &text) const;

    // A sleeping process whose argv[0] is name, visible in the server's /proc.
    pid_t spawn_process(const std::string &name);
    void kill_process(pid_t id);

    // Stops / starts the simulator alone; the bus and the server stay.
    void sim_stop();
    void sim_start();
    // Stops / restarts dbus-daemon and the simulator on the same socket; the server stays.
    void bus_stop();
    void bus_start();
    bool bus_running() const;

    // Clears the server's table of destinations that stopped answering (a test hook of the
    // development build), so that calls to them are sent again at once.
    void forget_silent_peers() const;

    pid_t server_pid() const;                  // the server's parent process (host pid)
    std::vector<pid_t> server_child_pids() const;
    // Resident memory (VmRSS) of a process in kB, -1 if it is gone.
    static long vm_rss_kb(pid_t pid);
    // The pid a process has in its own pid namespace: what the server's /proc and its log
    // lines ("[pid N]") show. Equal to host_pid without isolation; -1 if it is gone.
    static pid_t namespace_pid(pid_t host_pid);
    // The host name the server sees (private to it with isolation).
    std::string server_hostname() const;

private:
    GatewayEnv() = default;
    // What the harness knows of the running gateway, as of the last start or stop of a part.
    const harness::GatewayFacts &facts() const { return gateway_->facts(); }

    Options options_;
    std::string run_dir_;
    bool keep_run_dir_ = false;
    std::unique_ptr<harness::Gateway> gateway_;
};

// Fixture sharing one gateway among all tests of a binary. A suite that needs other
// options hides SetUpTestSuite:
//   class WorkerTest : public GatewayTest {
//    protected:
//     static void SetUpTestSuite() { use_env({"worker"}); }
//   };
// Suites with equal options share the running gateway; a change of options restarts it.
// Tests that stop the bus must start it again before they end.
class GatewayTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { use_env(GatewayEnv::Options()); }
    void SetUp() override;

    static void use_env(const GatewayEnv::Options &options);
    // The same with default options except the module's log level.
    static void use_log_level(int level);
    // Throws away the shared gateway and starts a fresh one with the same options.
    static void restart_env();
    static GatewayEnv &env();
    static int port() { return env().port(); }
};

}  // namespace korvex::test
