// Resident memory (VmRSS) of the serving child across a series of requests. With several
// prefork children, the one that served most of the series is the one reported.
#pragma once

#include <sys/types.h>

#include <chrono>

#include "bench/probe.h"
#include "tests/support/gateway_env.h"

namespace korvex::bench {

struct ChildMemory {
    int requests = 0;     // requests sent in the series
    pid_t child = -1;     // host pid of the busiest child, -1 when unknown
    int served = 0;       // requests of the series it served
    int children = 0;     // children that served any of them
    long start_kb = -1;   // its VmRSS before the series
    long end_kb = -1;     // and after it
    double seconds = 0;

    bool known() const { return child > 0 && start_kb > 0 && end_kb > 0; }
};

// Sends probe up to `count` times in a row (none started after `budget`) and reports the
// memory of the child that served most of them.
ChildMemory measure_child_memory(const test::GatewayEnv &env, const Probe &probe, int count,
                                 std::chrono::milliseconds budget);

}  // namespace korvex::bench
