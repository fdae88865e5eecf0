// Memory of a serving child: its resident set after a long series of one-bus-call
// requests against the same figure before the series; then the same over snapshots whose
// nvram reads are all answered after their time-out, with large replies, so that replies
// kept on the connection instead of dropped would show at once.
#include <cstdio>
#include <string>

#include "bench/benches.h"
#include "bench/child_memory.h"
#include "bench/table.h"

namespace korvex::bench {
namespace {

constexpr int kWarmup = 50;
constexpr int kRequests = 2000;
constexpr int kLateRequests = 12;
constexpr int kLateReplyKb = 256;
constexpr int kLateDelayMs = 1200;       // the nvram read gives up after 1000 ms
constexpr int kLatePerRequest = 17;      // nvram reads of one snapshot

void add_row(Table &table, const std::string &label, const ChildMemory &m) {
    if (!m.known()) {
        table.add({label, std::to_string(m.requests), "?", "?", "?", "?", "?"});
        return;
    }
    table.add({label, std::to_string(m.requests), std::to_string(m.served) + "/" + std::to_string(m.children),
               std::to_string(m.start_kb), std::to_string(m.end_kb), std::to_string(m.end_kb - m.start_kb),
               times(ratio(static_cast<double>(m.end_kb), static_cast<double>(m.start_kb)))});
}

}  // namespace

void run_memory_bench(const test::GatewayEnv &env, test::SimClient &sim) {
    sim.reset();
    const Probe command{"getdoscenemode=", "/network.cgi?getdoscenemode=", "done"};
    for (int i = 0; i < kWarmup; ++i) timed_get(env.port(), command);
    const ChildMemory plain = measure_child_memory(env, command, kRequests, std::chrono::seconds(40));
    sim.clear_records();

    sim.set_rule(R"({"destination":"com.korvex-labs.www.platform","interface":"com.KorvexLabs.platform.nvram",)"
                 R"("member":"get","mode":"values","signature":"s","values":[")" +
                 std::string(kLateReplyKb * 1024, 'r') + R"("],"delay_ms":)" + std::to_string(kLateDelayMs) + "}");
    // Each snapshot first clears the server's memory of silent daemons (a test hook of the
    // development build): otherwise, after the first time-outs, its reads would not be sent.
    const Probe snapshot{"jsongetupdate=", "/network.cgi?jsongetupdate=", "jsongetupdate done", 10000,
                         {"X-Korvex-Fault: forget-silent-peers"}};
    const size_t log_before = env.error_log_size();
    const ChildMemory late = measure_child_memory(env, snapshot, kLateRequests, std::chrono::seconds(25));
    const size_t timeouts = env.count_log_lines("No reply", log_before);
    sim.reset();

    Table table("3. Memory of the serving child (VmRSS)",
                {"series", "requests", "served/children", "start kB", "end kB", "growth kB", "end/start"});
    add_row(table, "getdoscenemode= (1 bus call)", plain);
    add_row(table, "jsongetupdate=, late replies", late);
    table.note("start = after " + std::to_string(kWarmup) + " warm-up requests; the busiest child is reported");
    table.note("late: " + std::to_string(kLatePerRequest) + " replies of " + std::to_string(kLateReplyKb) +
               " KiB per request arrive " + std::to_string(kLateDelayMs) + " ms after the call (time-out 1000 ms); " +
               std::to_string(timeouts) + " time-outs logged");
    if (late.known() && late.served > 1) {
        table.note("kept instead of dropped, they would add ~" +
                   std::to_string(static_cast<long>(late.served - 1) * kLatePerRequest * kLateReplyKb) + " kB");
    }
    table.note("took " + fixed(plain.seconds, 1) + " s and " + fixed(late.seconds, 1) + " s");
    table.print(stdout);
}

}  // namespace korvex::bench
