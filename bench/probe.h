// Timed GET requests against the private gateway. A request that does not answer as
// expected is a failure of the run (BenchFailure), never a slow sample.
#pragma once

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/samples.h"

namespace korvex::bench {

struct BenchFailure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Probe {
    std::string label;   // printed name
    std::string target;  // path and query
    std::string expect;  // the body must contain this ("" = status 200 is enough)
    long timeout_ms = 10000;
    std::vector<std::string> headers = {};  // "Name: value", sent with the request
};

// One GET of probe.target; returns its latency in ms, throws BenchFailure on a wrong answer.
double timed_get(int port, const Probe &probe);

// Bounds of one measurement: at most `rounds` rounds (after `warmup_rounds` unrecorded
// ones) and no round started after `budget` has passed.
struct Bounds {
    int warmup_rounds = 5;
    int rounds = 100;
    std::chrono::milliseconds budget{10000};
};

// Rounds in which every probe runs once, interleaved so that drift of a shared machine
// hits all of them alike; the first probe of a round rotates. One Samples per probe.
std::vector<Samples> measure_interleaved(int port, const std::vector<Probe> &probes, const Bounds &bounds);

}  // namespace korvex::bench
