// "make run": one gateway until Ctrl-C.
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "sim/harness/cli/commands.h"
#include "sim/harness/cli/up_options.h"
#include "sim/harness/gateway.h"

namespace korvex::harness::cli {
namespace {

// The port of "make run": $PORT, "auto" for a free one, 8080 by default.
std::string requested_port() {
    const char *port = std::getenv("PORT");
    return port && *port ? port : "8080";
}

std::string requested_log_level() {
    const char *level = std::getenv("KORVEX_LOG_LEVEL");
    return level && *level ? level : "notice";
}

}  // namespace

int run_command(const std::vector<std::string> &extra) {
    const std::string run_dir = run_root() + "/make-run";
    if (std::filesystem::exists(run_dir + "/env")) Gateway::attach(run_dir)->down();
    std::error_code ec;
    std::filesystem::remove_all(run_dir, ec);

    // Signals wait for sigtimedwait below; the started programs get an empty mask.
    sigset_t stop_signals;
    sigemptyset(&stop_signals);
    sigaddset(&stop_signals, SIGINT);
    sigaddset(&stop_signals, SIGTERM);
    sigaddset(&stop_signals, SIGHUP);
    sigprocmask(SIG_BLOCK, &stop_signals, nullptr);

    std::vector<std::string> options = {"--port", requested_port(), "--log-level", requested_log_level(),
                                        "--owner-pid", std::to_string(getpid())};
    options.insert(options.end(), extra.begin(), extra.end());
    std::unique_ptr<Gateway> gateway = Gateway::up(spec_from_options(run_dir, options, 8080));
    if (!gateway->notes().empty()) std::cerr << gateway->notes();
    const GatewayFacts &facts = gateway->facts();
    const std::string port = std::to_string(facts.port);
    std::cout << "Gateway running on 127.0.0.1:" << port << " (run directory " << run_dir << ", error log "
              << facts.error_log << "\n"
              << "at LogLevel korvex:" << facts.log_level
              << "; KORVEX_LOG_LEVEL=debug make run for every request's trace).\n"
              << "Try:\n"
              << "curl 'http://127.0.0.1:" << port << "/network.cgi?test=0'\n"
              << "Developer console: http://127.0.0.1:" << port << "/korvex-console/\n"
              << "Press Ctrl-C to stop." << std::endl;

    const timespec second{1, 0};
    for (;;) {
        if (sigtimedwait(&stop_signals, nullptr, &second) > 0) {
            std::cout << "\nStopping the gateway..." << std::endl;
            gateway->down();
            return 0;
        }
        if (!gateway->server_running()) {
            std::cerr << "The server exited; see " << facts.error_log << "\n";
            gateway->down();
            return 1;
        }
    }
}

}  // namespace korvex::harness::cli
