#include "bench/child_memory.h"

#include <map>
#include <string>
#include <vector>

#include "tests/support/access_log.h"

namespace korvex::bench {
namespace {

std::map<pid_t, long> rss_of_children(const test::GatewayEnv &env) {
    std::map<pid_t, long> rss;
    for (pid_t child : env.server_child_pids()) rss[child] = test::GatewayEnv::vm_rss_kb(child);
    return rss;
}

}  // namespace

ChildMemory measure_child_memory(const test::GatewayEnv &env, const Probe &probe, int count,
                                 std::chrono::milliseconds budget) {
    ChildMemory result;
    const std::map<pid_t, long> before = rss_of_children(env);
    const size_t access_before = test::access_log_size(env);
    const auto started = std::chrono::steady_clock::now();
    while (result.requests < count && std::chrono::steady_clock::now() - started < budget) {
        timed_get(env.port(), probe);
        ++result.requests;
    }
    result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    const std::map<pid_t, long> after = rss_of_children(env);

    // The access log names the serving child by the pid its namespace gives it.
    std::map<long, int> served;
    for (const std::string &line : test::wait_for_access_lines(env, access_before, result.requests))
        ++served[test::served_pid(line)];
    result.children = static_cast<int>(served.size());
    for (const auto &[child, end_kb] : after) {
        const auto it = served.find(test::GatewayEnv::namespace_pid(child));
        if (it == served.end() || it->second <= result.served) continue;
        result.child = child;
        result.served = it->second;
        result.end_kb = end_kb;
        const auto start = before.find(child);
        result.start_kb = start == before.end() ? -1 : start->second;
    }
    return result;
}

}  // namespace korvex::bench
