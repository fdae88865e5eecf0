// korvex_bench: starts a private gateway (prefork, simulator on a private bus) and prints
// every timing as a ratio against a floor measured in the same run; the error-log volume
// (bytes, from gateways of its own) needs none. Exits non-zero only when a gateway cannot
// start or a request does not answer as expected.
#include <cstdio>
#include <exception>
#include <memory>

#include "bench/benches.h"
#include "tests/support/gateway_env.h"
#include "tests/support/sim_client.h"

int main() {
    using korvex::test::GatewayEnv;
    try {
        GatewayEnv::Options options;
        options.mpm = "prefork";
        options.log_level = KORVEX_LOG_STATE;  // the production default (errors and notable state)
        // A second name on the same server with the cross-site check off, to time the check.
        options.site_config =
            "<VirtualHost *:*>\n    ServerName 127.0.0.1\n</VirtualHost>\n"
            "<VirtualHost *:*>\n    ServerName unchecked.bench\n    KorvexCrossSiteCheck off\n</VirtualHost>\n";
        const std::unique_ptr<GatewayEnv> env = GatewayEnv::start(options);
        korvex::test::SimClient sim(env->bus_address());
        std::printf("korvex_bench: prefork gateway on 127.0.0.1:%d, %zu children, log level %d, isolation %s\n",
                    env->port(), env->server_child_pids().size(), options.log_level,
                    env->has_isolation() ? "on" : "off");
        std::fflush(stdout);
        korvex::bench::run_snapshot_bench(*env, sim);
        std::fflush(stdout);
        korvex::bench::run_overhead_bench(*env, sim);
        std::fflush(stdout);
        korvex::bench::run_bus_cost_bench(*env, sim);
        std::fflush(stdout);
        korvex::bench::run_memory_bench(*env, sim);
        std::fflush(stdout);
        korvex::bench::run_silent_daemon_bench(*env, sim);
        std::fflush(stdout);
        korvex::bench::run_log_volume_bench();
        std::fflush(stdout);
        return 0;
    } catch (const std::exception &e) {
        std::fprintf(stderr, "korvex_bench: %s\n", e.what());
        return 1;
    }
}
