#include "bench/samples.h"

#include <algorithm>
#include <cmath>

namespace korvex::bench {

double Samples::percentile(double p) const {
    if (ms_.empty()) return 0;
    std::vector<double> sorted = ms_;
    std::sort(sorted.begin(), sorted.end());
    const double rank = std::ceil(p / 100.0 * static_cast<double>(sorted.size()));
    const std::size_t index = rank < 1 ? 0 : static_cast<std::size_t>(rank) - 1;
    return sorted[std::min(index, sorted.size() - 1)];
}

double ratio(double a, double b) { return b > 0 ? a / b : 0; }

}  // namespace korvex::bench
