// The measurements of korvex_bench. Each starts from a reset simulator, prints its table
// and throws BenchFailure when a request does not answer as expected.
#pragma once

#include "tests/support/gateway_env.h"
#include "tests/support/sim_client.h"

namespace korvex::bench {

// The 22-query status snapshot against a one-query command, every reply delayed.
void run_snapshot_bench(const test::GatewayEnv &env, test::SimClient &sim);
// Requests without and with one bus round trip against a static file.
void run_overhead_bench(const test::GatewayEnv &env, test::SimClient &sim);
// Resident memory of the serving child over a long series of requests, then over
// requests whose replies all arrive after their time-out.
void run_memory_bench(const test::GatewayEnv &env, test::SimClient &sim);
// One bus call in the server against a raw libdbus call, and its system calls.
void run_bus_cost_bench(const test::GatewayEnv &env, test::SimClient &sim);
// 32 clients, half of them calling a daemon that goes silent and answers again later.
void run_silent_daemon_bench(const test::GatewayEnv &env, test::SimClient &sim);
// Error-log bytes per request at three log levels, each on a gateway of its own.
void run_log_volume_bench();

}  // namespace korvex::bench
