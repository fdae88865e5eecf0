// One private gateway in one run directory: a private dbus-daemon, the gateway simulator
// and Debian's Apache with the module, started, watched and stopped from C++.
//
// Used by the korvex-gateway tool ("make run", by hand), by the test support
// (tests/support/gateway_env.h, bus_env.h), the benchmarks and the package test. Every
// process it starts is recorded in RUN_DIR/pids/ as "pid start-time" and stopped by that
// record (its process group, or its pid namespace for the server), so that nothing else is
// ever signalled. A gateway whose owner dies is stopped by its watcher process, and every
// up() also stops the gateways of dead owners that it finds beside its own run directory.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace korvex::harness {

// How the server is confined. Namespaces need root, the www-data account and util-linux's
// unshare, setpriv and nsenter; `automatic` uses them when all are there (and
// KORVEX_ISOLATION is not 0).
enum class Isolation { automatic, none, namespaces };

struct GatewaySpec {
    // Absolute; not under /tmp (the server gets a private /tmp). Made when missing.
    std::string run_dir;
    // The source tree (conf/ templates, sim/nvram_defaults.conf) and the build tree
    // (sim/korvex-gateway-sim, platform/libkorvex_platform.so, console/).
    std::string source_dir;
    std::string build_dir;
    // The korvex-gateway program: the owner's watcher runs "korvex-gateway watch RUN_DIR".
    // Empty: BUILD_DIR/sim/harness/korvex-gateway.
    std::string tool;

    // --- port ---------------------------------------------------------------------------
    // 0: a free port of KORVEX_PORT_RANGE (default 20000-32767), and another one whenever a
    // start-up fails because the address is in use. Otherwise exactly this port; a taken
    // or reserved port then fails up() with StartError::port_taken.
    int port = 0;
    // With port 0: tried first, without the bind check (a test hook for a port taken
    // behind the check's back). 0: none.
    int first_port = 0;

    // --- server -------------------------------------------------------------------------
    bool with_server = true;
    std::string apache_binary = "/usr/sbin/apache2";
    std::string apache_modules = "/usr/lib/apache2/modules";
    std::string mpm = "prefork";  // prefork, worker or event
    // The module's level: 1-6 or an Apache level name (log_level.h); "LogLevel korvex:..."
    // of the default configuration and KORVEX_LOG_LEVEL of the server.
    std::string log_level = "notice";
    // Copied to RUN_DIR/lib/mod_korvex.so when not empty (the default configuration loads
    // it from there). Empty: BUILD_DIR/mod_korvex.so with the default configuration, none
    // with a configuration of the caller's.
    std::string module_file;
    // LD_LIBRARY_PATH of the server. Empty: RUN_DIR/lib, where up() copies
    // BUILD_DIR/platform/libkorvex_platform.so. Otherwise nothing is copied and RUN_DIR/lib
    // becomes a link to this directory (e.g. an extracted package's platform directory).
    std::string library_dir;
    // The server's configuration for a port: called again for every port tried. Empty:
    // conf/httpd.conf.in filled in (@RUN_DIR@, @PORT@, @MPM@, @LOG_LEVEL@, @APACHE_MODULES@)
    // with the development extras (console, stand-ins, conf.d/). It must listen on
    // 127.0.0.1:port, serve RUN_DIR/htdocs as its document root and log to
    // RUN_DIR/logs/error.log.
    std::function<std::string(int port)> server_config;
    // GET / must answer exactly this before the server counts as ready. Empty: a page
    // naming the run directory.
    std::string index_page;
    // Directories made in the server's private /tmp before it starts (namespaces only).
    std::vector<std::string> server_tmp_dirs;
    // NAME=VALUE added to the server's environment (which is the caller's environment
    // plus the bus address, KORVEX_LOG_LEVEL, KORVEX_NVRAM_DIR, PATH with RUN_DIR/bin first
    // and LD_LIBRARY_PATH).
    std::vector<std::string> server_env;
    Isolation isolation = Isolation::automatic;
    // ASan/UBSan runtime preloaded into the server, reports in RUN_DIR/sanitizer/
    // (sanitizer.h). Defaults to KORVEX_SANITIZE=1 in the environment.
    bool sanitize = false;

    // --- bus and simulator --------------------------------------------------------------
    bool with_bus = true;
    // The bus daemon's configuration; it must listen on unix:path=RUN_DIR/bus/socket.
    // Empty: conf/bus.conf.in filled in (a system bus that allows everything).
    std::string bus_config;
    // The simulator's defaults. Empty: SOURCE_DIR/sim/nvram_defaults.conf.
    std::string nvram_defaults;

    // --- life -----------------------------------------------------------------------------
    // The process the gateway belongs to: once it is gone, a watcher stops the gateway.
    // 0: no watcher (the gateway lives until down()).
    pid_t owner_pid = 0;
    // Bound of each wait for readiness. Defaults to KORVEX_WAIT_SECONDS or 30.
    int wait_seconds = 30;

    // Settings with the defaults above, the environment's knobs (KORVEX_SANITIZE,
    // KORVEX_WAIT_SECONDS) applied, for the given trees.
    static GatewaySpec defaults(const std::string &run_dir, const std::string &source_dir,
                                const std::string &build_dir);
};

// What a running gateway is made of; RUN_DIR/env holds the same (as_env()).
struct GatewayFacts {
    std::string run_dir;
    int port = 0;
    std::string port_lock;  // the lock file that reserves the port (port_reservation.h)
    std::string mpm;
    std::string log_level;  // Apache level name
    bool sanitize = false;
    bool isolated = false;  // the server has its own namespaces and runs as server_user
    std::string server_user;
    std::string server_tmp;  // the server's /tmp as the host sees it
    std::string bus_address;
    std::string error_log, access_log, stub_log, nvram_file, nvram_dir;
    pid_t server_pid = 0, bus_pid = 0, sim_pid = 0;  // 0: not running

    // KEY=VALUE facts as RUN_DIR/env names them (PORT, PORT_LOCK, MPM, SERVER_PID, ...).
    std::map<std::string, std::string> as_env() const;
};

// Why up() failed; what() ends with the tail of the log that tells.
class StartError : public std::runtime_error {
public:
    enum class Kind { failed, port_taken };
    StartError(Kind kind, const std::string &what) : std::runtime_error(what), kind_(kind) {}
    Kind kind() const { return kind_; }

private:
    Kind kind_;
};

class Gateway {
public:
    // Starts what the settings ask for and returns once each part is ready: the bus socket
    // exists, the simulator wrote its ready file, the server answers GET / with the index
    // page. On failure stops whatever it started and throws StartError.
    static std::unique_ptr<Gateway> up(const GatewaySpec &spec);
    // A gateway started by another process (or an earlier one), from RUN_DIR's records.
    // Throws when RUN_DIR has none. It keeps running when the object goes: down() stops it.
    static std::unique_ptr<Gateway> attach(const std::string &run_dir);

    // Stops everything unless release() was called.
    ~Gateway();
    Gateway(const Gateway &) = delete;
    Gateway &operator=(const Gateway &) = delete;

    // Stops, in order: the watcher, spawned processes, the server (SIGTERM, SIGKILL after
    // 15 s), the simulator and the bus (SIGKILL after 10 s); collects sanitizer reports.
    void down();
    // Leaves the gateway running when this object goes (the tool's "up").
    void release() { released_ = true; }

    const GatewayFacts &facts() const { return facts_; }
    const GatewaySpec &spec() const { return spec_; }
    // Notes of the start-up worth reading (ports given up and why), one a line.
    const std::string &notes() const { return notes_; }

    // The simulator alone: the bus and the server keep running.
    void sim_stop();
    void sim_start();
    // SIGTERM to the simulator; its exit status, or -1 if it runs after timeout_ms (only a
    // simulator this object started has a status: otherwise 0 once it is gone).
    int terminate_simulator(int timeout_ms);
    int wait_simulator_exit(int timeout_ms);
    // Simulator and bus; bus_start() starts both again on the same socket.
    void bus_stop();
    void bus_start();
    // The bus daemon alone, as when the system bus goes away.
    void stop_bus_daemon();

    // A sleeping process whose argv[0] is name, in the server's pid namespace; its host pid.
    pid_t spawn(const std::string &name);
    void unspawn(pid_t id);
    // The host name the server sees.
    std::string server_hostname() const;

    // True while the recorded server process runs.
    bool server_running() const;
    // The pid of a part ("server", "bus", "sim", "watcher") while it runs, else 0. Unlike
    // facts(), which tell the state after the last call, this looks now.
    pid_t live_pid(const std::string &part) const;

private:
    struct Runtime;
    Gateway();
    void refresh_facts();

    GatewaySpec spec_;
    GatewayFacts facts_;
    std::string notes_;
    bool released_ = false;
    std::unique_ptr<Runtime> runtime_;
    friend struct GatewayStarter;
};

// The run root: $KORVEX_RUN_ROOT or /var/tmp/korvex-runs (made, mode 0755).
std::string run_root();
// A fresh run directory under run_root() (mkdtemp of "LABEL-XXXXXX", mode 0755).
std::string make_run_dir(const std::string &label);
// Stops the gateways of the run directories directly under root whose owner is gone;
// returns how many it stopped. up() runs it on its run directory's parent.
int sweep_orphans(const std::string &root);

}  // namespace korvex::harness
