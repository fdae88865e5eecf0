#include "bench/probe.h"

#include "tests/support/http_client.h"

namespace korvex::bench {

double timed_get(int port, const Probe &probe) {
    const auto started = std::chrono::steady_clock::now();
    test::HttpRequest request;
    request.target = probe.target;
    request.headers = probe.headers;
    request.timeout_ms = probe.timeout_ms;
    const test::HttpResponse response = test::send(port, request);
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - started;
    if (response.status != 200 || (!probe.expect.empty() && response.body.find(probe.expect) == std::string::npos)) {
        const std::string what = response.status == 0 ? response.error : response.body.substr(0, 200);
        throw BenchFailure("GET " + probe.target + ": status " + std::to_string(response.status) + ": " + what);
    }
    return took.count();
}

std::vector<Samples> measure_interleaved(int port, const std::vector<Probe> &probes, const Bounds &bounds) {
    std::vector<Samples> samples(probes.size());
    const auto deadline = std::chrono::steady_clock::now() + bounds.budget;
    for (int round = 0; round < bounds.warmup_rounds + bounds.rounds; ++round) {
        if (round >= bounds.warmup_rounds && std::chrono::steady_clock::now() > deadline) break;
        for (size_t k = 0; k < probes.size(); ++k) {
            const size_t i = (k + static_cast<size_t>(round)) % probes.size();
            const double ms = timed_get(port, probes[i]);
            if (round >= bounds.warmup_rounds) samples[i].add(ms);
        }
    }
    return samples;
}

}  // namespace korvex::bench
