// Error-log volume: the bytes the error log grows by per request of three kinds, on
// gateways that differ only in the module's log level (the production default, the trace
// of every request, and every record the module writes).
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/benches.h"
#include "bench/probe.h"
#include "bench/table.h"

namespace korvex::bench {
namespace {

constexpr int kRequests = 200;
constexpr int kWarmup = 5;

struct Level {
    const char *label;
    int level;
};

// The error log's size once it has stopped growing (records of the last request may still
// be on their way), waiting at most two seconds.
size_t settled_log_size(const test::GatewayEnv &env) {
    size_t size = env.error_log_size();
    for (int quiet = 0, waited = 0; quiet < 4 && waited < 40; ++waited) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        const size_t now = env.error_log_size();
        quiet = now == size ? quiet + 1 : 0;
        size = now;
    }
    return size;
}

double bytes_per_request(const test::GatewayEnv &env, const Probe &probe) {
    for (int i = 0; i < kWarmup; ++i) timed_get(env.port(), probe);
    const size_t before = settled_log_size(env);
    for (int i = 0; i < kRequests; ++i) timed_get(env.port(), probe);
    return double(settled_log_size(env) - before) / kRequests;
}

}  // namespace

void run_log_volume_bench() {
    const std::vector<Probe> probes = {
        {"jsongetupdate= (status snapshot)", "/network.cgi?jsongetupdate=", "jsongetupdate done"},
        {"getdoscenemode= (1 bus call)", "/network.cgi?getdoscenemode=", "done"},
        {"test=0 (no bus call)", "/network.cgi?test=0", "test done"},
    };
    const std::vector<Level> levels = {
        {"korvex:notice (default)", KORVEX_LOG_STATE},
        {"korvex:debug", KORVEX_LOG_TRACE},
        {"korvex:trace1 (all)", KORVEX_LOG_CHILD},
    };
    std::vector<std::vector<std::string>> rows(probes.size());
    for (size_t p = 0; p < probes.size(); ++p) rows[p].push_back(probes[p].label);
    for (const Level &level : levels) {
        test::GatewayEnv::Options options;
        options.mpm = "prefork";
        options.log_level = level.level;
        const std::unique_ptr<test::GatewayEnv> env = test::GatewayEnv::start(options);
        for (size_t p = 0; p < probes.size(); ++p) rows[p].push_back(fixed(bytes_per_request(*env, probes[p]), 1));
    }
    std::vector<std::string> header = {"request"};
    for (const Level &level : levels) header.push_back(level.label);
    Table table("4. Error-log bytes per request (" + std::to_string(kRequests) + " requests of each kind)", header);
    for (auto &row : rows) table.add(std::move(row));
    table.note("same requests against prefork gateways that differ only in \"LogLevel warn korvex:<level>\"");
    table.print(stdout);
}

}  // namespace korvex::bench
