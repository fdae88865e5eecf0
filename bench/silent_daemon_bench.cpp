// A silent daemon under load: 32 clients, 16 reading the SDK daemon's firmware version
// (reads are what fail fast once it is silent) and 16 calling a getter of the platform daemon, first with every daemon answering, then with the
// SDK daemon silent, then once it answers again.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "bench/benches.h"
#include "bench/probe.h"
#include "bench/samples.h"
#include "bench/table.h"
#include "tests/support/http_client.h"

namespace korvex::bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kClientsPerKind = 16;
constexpr char kSdkTarget[] = "/network.cgi?getswversion=";
constexpr char kGetterTarget[] = "/network.cgi?getdoscenemode=";

double ms_between(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double, std::milli>(to - from).count();
}

// One request as a client saw it.
struct Sample {
    bool sdk;
    Clock::time_point sent;
    Clock::time_point answered;
    bool answered_by_daemon;  // the version came from the daemon
};

// 32 clients that run until stopped, keeping every sample.
class Load {
public:
    explicit Load(int port) : port_(port) {
        for (int i = 0; i < 2 * kClientsPerKind; ++i) clients_.emplace_back([this, i] { run(i < kClientsPerKind); });
    }
    ~Load() { stop(); }

    void stop() {
        stop_ = true;
        for (std::thread &client : clients_) {
            if (client.joinable()) client.join();
        }
    }
    int failures() const { return failures_; }
    std::vector<Sample> samples() {
        std::lock_guard<std::mutex> hold(lock_);
        return samples_;
    }

private:
    void run(bool sdk) {
        while (!stop_) {
            const Clock::time_point sent = Clock::now();
            const test::HttpResponse response = test::get(port_, sdk ? kSdkTarget : kGetterTarget, 20000);
            const Sample sample{sdk, sent, Clock::now(), sdk && response.status == 200 && response.body.find("(null)") == std::string::npos};
            if (response.status != 200) failures_++;
            std::lock_guard<std::mutex> hold(lock_);
            samples_.push_back(sample);
        }
    }

    int port_;
    std::atomic<bool> stop_{false};
    std::atomic<int> failures_{0};
    std::mutex lock_;
    std::vector<Sample> samples_;
    std::vector<std::thread> clients_;
};

struct Phase {
    Samples getter;
    Samples sdk;
    double seconds = 0;
    std::size_t requests = 0;
};

// The samples sent within [from, to).
Phase phase_of(const std::vector<Sample> &samples, Clock::time_point from, Clock::time_point to) {
    Phase phase;
    phase.seconds = ms_between(from, to) / 1000.0;
    for (const Sample &s : samples) {
        if (s.sent < from || s.sent >= to) continue;
        (s.sdk ? phase.sdk : phase.getter).add(ms_between(s.sent, s.answered));
        ++phase.requests;
    }
    return phase;
}

// The last back-off window the log announced ("... calls to it fail at once for N ms ..."):
// read once the daemon recovered, the window that the successful probe waited out.
long window_in_force(const std::string &log) {
    static const std::regex kWindow("fail at once for ([0-9]+) ms");
    long window = -1;
    for (auto it = std::sregex_iterator(log.begin(), log.end(), kWindow); it != std::sregex_iterator(); ++it) {
        window = std::stol((*it)[1]);
    }
    return window;
}

bool wait_for(const test::GatewayEnv &env, const char *text, std::size_t since, Clock::time_point *when) {
    const bool seen = env.wait_for_log(text, std::chrono::seconds(30), since);
    *when = Clock::now();
    return seen;
}

}  // namespace

void run_silent_daemon_bench(const test::GatewayEnv &env, test::SimClient &sim) {
    sim.reset();
    env.forget_silent_peers();
    Load load(env.port());
    const Clock::time_point healthy_start = Clock::now();
    std::this_thread::sleep_for(std::chrono::seconds(3));
    const Clock::time_point silent_start = Clock::now();
    const std::size_t since = env.error_log_size();
    sim.set_rule(R"({"destination":"com.korvex-labs.www.sdk","mode":"silent"})");

    Clock::time_point declared;
    if (!wait_for(env, "stopped answering", since, &declared)) {
        throw BenchFailure("the SDK daemon was never declared silent");
    }
    std::this_thread::sleep_for(std::chrono::seconds(8));
    const Clock::time_point answering_again = Clock::now();
    sim.reset();
    Clock::time_point recovered;
    if (!wait_for(env, "answers again", since, &recovered)) throw BenchFailure("the SDK daemon never recovered");
    const long window_ms = window_in_force(env.error_log_since(since));
    std::this_thread::sleep_for(std::chrono::seconds(1));
    load.stop();

    const std::vector<Sample> samples = load.samples();
    const Phase healthy = phase_of(samples, healthy_start + std::chrono::milliseconds(500), silent_start);
    const Phase silent = phase_of(samples, declared, answering_again);
    double first_success_ms = -1;
    for (const Sample &s : samples) {
        if (!s.answered_by_daemon || s.answered < answering_again) continue;
        const double ms = ms_between(answering_again, s.answered);
        if (first_success_ms < 0 || ms < first_success_ms) first_success_ms = ms;
    }

    const double floor = healthy.getter.median();
    Table table("5. SDK daemon silent, 32 clients (16 getswversion=, 16 getdoscenemode=), prefork",
                {"measure", "healthy", "SDK silent", "silent / healthy getter p50"});
    table.add({"getter p50 (ms)", fixed(floor, 2), fixed(silent.getter.median(), 2),
               times(ratio(silent.getter.median(), floor))});
    table.add({"getter p99 (ms)", fixed(healthy.getter.percentile(99), 2), fixed(silent.getter.percentile(99), 2),
               times(ratio(silent.getter.percentile(99), floor))});
    table.add({"getswversion= p50 (ms)", fixed(healthy.sdk.median(), 2), fixed(silent.sdk.median(), 2),
               times(ratio(silent.sdk.median(), floor))});
    table.add({"throughput (req/s)", fixed(static_cast<double>(healthy.requests) / healthy.seconds, 0),
               fixed(static_cast<double>(silent.requests) / silent.seconds, 0), ""});
    table.add({"answering again -> first version read (ms)", "", fixed(first_success_ms, 0), ""});
    table.add({"answering again -> recovery logged (ms)", "", fixed(ms_between(answering_again, recovered), 0), ""});
    table.add({"probe interval: last window + probe time-out (ms)", "", std::to_string(window_ms + 5000), ""});
    table.note("SDK silent = requests sent after the first time-out declared it silent (" +
               fixed(ms_between(silent_start, declared), 0) + " ms after it went silent), until it answered again");
    table.note("answers other than 200: " + std::to_string(load.failures()));
    table.note("a silent rule swallows the probe under way, so recovery waits out that probe's time-out and the");
    table.note("window after it: at most one probe interval; a daemon that resumes (SIGCONT) answers it at once");
    table.note("goals: getter p99 <= 2x healthy p50; getswversion= p50 <= 50 ms; recovery within one probe interval");
    table.print(stdout);
}

}  // namespace korvex::bench
