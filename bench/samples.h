// Latency samples of one measure and the order statistics the reports print.
#pragma once

#include <cstddef>
#include <vector>

namespace korvex::bench {

class Samples {
public:
    void add(double ms) { ms_.push_back(ms); }
    std::size_t size() const { return ms_.size(); }
    // Nearest-rank percentile (0 < p <= 100); 0 when there are no samples.
    double percentile(double p) const;
    double median() const { return percentile(50); }

private:
    std::vector<double> ms_;
};

// a / b, or 0 when b is not positive.
double ratio(double a, double b);

}  // namespace korvex::bench
