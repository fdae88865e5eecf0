// Request overhead: a command without bus call (test=0) and one with a single bus round
// trip (getdoscenemode, one nvram read, answered at once) against a static file served by
// the same server.
#include <cstdio>

#include "bench/benches.h"
#include "bench/latency_table.h"
#include "bench/table.h"

namespace korvex::bench {

void run_overhead_bench(const test::GatewayEnv &env, test::SimClient &sim) {
    sim.reset();
    const std::vector<Probe> probes = {
        {"GET /index.html (static)", "/index.html", ""},
        {"test=0 (no bus call)", "/network.cgi?test=0", "test done"},
        {"getdoscenemode= (1 bus call)", "/network.cgi?getdoscenemode=", "done"},
        // The same on the virtual host whose cross-site check is off (bench/main.cpp).
        {"getdoscenemode=, cross-site check off", "/network.cgi?getdoscenemode=", "done", 10000,
         {"Host: unchecked.bench"}},
    };
    const Bounds bounds{20, 300, std::chrono::seconds(20)};
    const std::vector<Samples> samples = measure_interleaved(env.port(), probes, bounds);
    Table table = latency_table("2. Request overhead (no reply delay)", probes, samples);
    table.note("ratio = median / median of the static file, one connection per request");
    const double on = samples[2].median();
    const double off = samples[3].median();
    table.note("cross-site check on against off: " + fixed(100.0 * ratio(on - off, off), 1) + " % (" + fixed(on, 3) +
               " ms against " + fixed(off, 3) + " ms)");
    table.print(stdout);
}

}  // namespace korvex::bench
