#include <signal.h>

#include <cstdlib>
#include <iostream>

#include "sim/harness/gateway_parts.h"
#include "sim/harness/launch.h"
#include "sim/harness/log_level.h"
#include "sim/harness/readiness.h"
#include "sim/harness/run_dir.h"
#include "sim/harness/sanitizer.h"

namespace korvex::harness {
namespace {

// Start-ups of one server that may find their port taken before it gives up.
constexpr int kPortAttempts = 8;

std::string trimmed(std::string text) {
    while (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

std::vector<std::string> server_environment(const GatewaySpec &spec) {
    const char *path = std::getenv("PATH");
    std::vector<std::string> env = {
        "DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + spec.run_dir + "/bus/socket",
        "KORVEX_LOG_LEVEL=" + std::to_string(platform_log_level(apache_log_level(spec.log_level))),
        "KORVEX_NVRAM_DIR=" + spec.run_dir + "/nvram-sections",
        "PATH=" + spec.run_dir + "/bin:" + (path ? path : "/usr/bin:/bin"),
        "LD_LIBRARY_PATH=" + spec.run_dir + "/lib"};
    if (spec.sanitize) {
        for (const std::string &line : sanitizer_env(spec.run_dir, "server")) env.push_back(line);
    }
    for (const std::string &line : spec.server_env) env.push_back(line);
    return env;
}

// The server program itself; in sanitizer mode only it (not the launchers in front of it)
// gets the preloaded runtime.
std::vector<std::string> server_program(const GatewaySpec &spec) {
    if (!spec.sanitize) return {spec.apache_binary};
    return {"env", "LD_PRELOAD=" + sanitizer_preload(), spec.apache_binary};
}

// One start-up on the reserved port. Returns "" once the server answers, else why not.
std::string try_start(const GatewaySpec &spec, const ProcessRecords &records, bool isolated,
                      const PortReservation &reservation) {
    const int lock_fd = reservation.descriptor();
    const int port = reservation.port();
    const std::string stderr_log = spec.run_dir + "/logs/httpd.stderr";
    const std::string conf = spec.run_dir + "/httpd.conf";
    std::vector<std::string> program = server_program(spec);
    if (isolated) {
        // Own pid, mount, UTS and IPC namespaces: a private /tmp, host name and /proc.
        // --kill-child ends the namespace if the launcher itself is killed.
        std::vector<std::string> argv = {
            "unshare", "--pid", "--fork", "--kill-child", "--mount-proc", "--mount", "--uts", "--ipc",
            "--propagation", "private", "sh", "-c",
            "run_dir=\"$1\" account=\"$2\" && shift 2 && mount --bind \"$run_dir/tmp\" /tmp && "
            "exec setpriv --reuid=\"$account\" --regid=\"$account\" --init-groups "
            "--inh-caps=+sys_admin --ambient-caps=+sys_admin \"$@\" -f \"$run_dir/httpd.conf\" -D FOREGROUND",
            "sh", spec.run_dir, kServerAccount};
        argv.insert(argv.end(), program.begin(), program.end());
        const pid_t launcher = launch({argv, server_environment(spec), stderr_log, lock_fd});
        records.record("launcher", launcher);
        const pid_t init = first_child(launcher, 10000);
        if (init == 0) return "the server namespace did not start";
        records.record("server", init);
    } else {
        program.insert(program.end(), {"-f", conf, "-D", "FOREGROUND"});
        records.record("server", launch({program, server_environment(spec), stderr_log, lock_fd}));
    }
    const std::string index = trimmed(read_text(spec.run_dir + "/htdocs/index.html"));
    bool exited = false;
    const WaitResult result = wait_until(
        [&] {
            // Our own index page proves it is this server that answers on the port.
            std::string body;
            return http_get_body(port, "/", body) && trimmed(body) == index;
        },
        [&] { return !(exited = !records.running("server")); }, std::chrono::seconds(spec.wait_seconds),
        std::chrono::milliseconds(100));
    if (result == WaitResult::ready) return "";
    if (exited) return "the server exited during start-up";
    return "the server did not answer on 127.0.0.1:" + std::to_string(port) + " within " +
           std::to_string(spec.wait_seconds) + "s";
}

}  // namespace

void start_server(const GatewaySpec &spec, const ProcessRecords &records, bool isolated,
                  PortReservation &reservation, std::string &notes) {
    int first = spec.first_port;
    for (int attempt = 1; attempt <= kPortAttempts; ++attempt) {
        if (spec.port == 0) {
            if (!reserve_free_port(reservation, first)) {
                const PortRange range = port_range();
                throw StartError(StartError::Kind::failed, "no free port in " + std::to_string(range.low) + "-" +
                                                               std::to_string(range.high));
            }
            first = 0;
        } else if (!reservation.try_reserve(spec.port)) {
            throw StartError(StartError::Kind::port_taken,
                             "port " + std::to_string(spec.port) + " is reserved by another gateway");
        }
        const int port = reservation.port();
        auto env = read_env_file(spec.run_dir);
        env["PORT"] = std::to_string(port);
        env["PORT_LOCK"] = port_lock_file(port);
        write_env_file(spec.run_dir, env);
        write_text(spec.run_dir + "/httpd.conf",
                   spec.server_config ? spec.server_config(port) : default_server_config(spec, port));

        const LogMarks marks({spec.run_dir + "/logs/httpd.stderr", spec.run_dir + "/logs/error.log"});
        const std::string failure = try_start(spec, records, isolated, reservation);
        if (failure.empty()) return;
        const std::string tails =
            log_tail(spec.run_dir + "/logs/httpd.stderr") + log_tail(spec.run_dir + "/logs/error.log");
        const bool in_use = says_address_in_use(marks.since());
        stop_server(records, isolated);
        reservation.release();
        if (!in_use) throw StartError(StartError::Kind::failed, failure + "\n" + tails);
        const std::string note = "port " + std::to_string(port) + " is in use (" + failure + ")";
        if (spec.port != 0) throw StartError(StartError::Kind::port_taken, note + "\n" + tails);
        notes += note + "; trying another port\n";
    }
    throw StartError(StartError::Kind::failed, "every one of " + std::to_string(kPortAttempts) +
                                                   " ports was taken before the server could bind it");
}

void stop_server(const ProcessRecords &records, bool isolated) {
    if (isolated) {
        // The namespace ends with its first process; the launcher follows.
        records.stop("server", 15);
        records.stop("launcher", 5);
    } else {
        // Without namespaces, children of a stopped server linger in its process group.
        records.stop("server", 15, true);
    }
}

}  // namespace korvex::harness
