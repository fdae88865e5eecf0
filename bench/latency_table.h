// The table shape shared by the latency measurements: the floor first, then every other
// probe with its median as a ratio of the floor's.
#pragma once

#include <string>
#include <vector>

#include "bench/probe.h"
#include "bench/table.h"

namespace korvex::bench {

// probes[0] is the floor; samples as returned by measure_interleaved.
Table latency_table(const std::string &title, const std::vector<Probe> &probes, const std::vector<Samples> &samples);

}  // namespace korvex::bench
