// Status snapshot concurrency: with every reply of the platform and SDK daemons delayed
// kDelayMs, the 22-query snapshot (jsongetupdate) against a one-query command
// (getdoscenemode). Queries in flight together cost about one delay; waited for one after
// another they would cost 22.
#include <algorithm>
#include <cstdio>
#include <string>

#include "bench/benches.h"
#include "bench/latency_table.h"

namespace korvex::bench {
namespace {

constexpr int kDelayMs = 20;
constexpr int kQueries = 22;

}  // namespace

void run_snapshot_bench(const test::GatewayEnv &env, test::SimClient &sim) {
    sim.reset();
    for (const char *daemon : {"com.korvex-labs.www.platform", "com.korvex-labs.www.sdk"}) {
        sim.set_rule(std::string(R"({"destination":")") + daemon + R"(","mode":"default","delay_ms":)" +
                     std::to_string(kDelayMs) + "}");
    }
    const std::vector<Probe> probes = {
        {"getdoscenemode= (1 query)", "/network.cgi?getdoscenemode=", "done"},
        {"jsongetupdate= (22 queries)", "/network.cgi?jsongetupdate=", "jsongetupdate done"},
    };
    const Bounds bounds{3, 40, std::chrono::seconds(20)};
    const std::vector<Samples> samples = measure_interleaved(env.port(), probes, bounds);
    Table table = latency_table("1. Status snapshot concurrency (every reply delayed " + std::to_string(kDelayMs) +
                                    " ms)",
                                probes, samples);
    // What the same floor predicts for a snapshot that waits for each query in turn.
    const double overhead = std::max(0.0, samples[0].median() - kDelayMs);
    const double in_turn = kQueries * kDelayMs + overhead;
    table.note("queries in flight together: ~1x; waited for in turn: ~" + fixed(in_turn, 0) + " ms, " +
               times(ratio(in_turn, samples[0].median())));
    table.print(stdout);
}

}  // namespace korvex::bench
