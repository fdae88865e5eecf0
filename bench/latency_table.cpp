#include "bench/latency_table.h"

namespace korvex::bench {

Table latency_table(const std::string &title, const std::vector<Probe> &probes, const std::vector<Samples> &samples) {
    Table table(title, {"request", "median ms", "p90 ms", "n", "vs floor"});
    const double floor = samples.at(0).median();
    for (size_t i = 0; i < probes.size(); ++i) {
        const Samples &s = samples[i];
        table.add({(i == 0 ? "floor: " : "") + probes[i].label, fixed(s.median(), 2), fixed(s.percentile(90), 2),
                   std::to_string(s.size()), times(ratio(s.median(), floor))});
    }
    return table;
}

}  // namespace korvex::bench
