// korvex_soak ("make soak"): hostile-free load with faults, all on 127.0.0.1 and bounded in
// count and time. 100,000 requests at concurrency 32 mixing the five resources, then, with
// the load still running: the simulator killed and started again, the bus daemon killed and
// started again, the simulator stopped (SIGSTOP) for 10 s and continued, with settings written
// to it meanwhile. Prints non-200
// answers, answers that differ from the healthy ones outside the fault windows, child
// crashes in the error log, resident memory of each child and of the simulator at start and
// end, error-log bytes per request, and the time to full recovery after each fault.
#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "bench/table.h"
#include "tests/support/gateway_env.h"
#include "tests/support/http_client.h"
#include "tests/support/sim_client.h"

namespace {

using Clock = std::chrono::steady_clock;
using korvex::test::GatewayEnv;
using korvex::test::HttpResponse;

constexpr int kClients = 32;
constexpr long kHealthyRequests = 100000;
constexpr auto kHealthyBudget = std::chrono::seconds(180);
constexpr auto kFaultHold = std::chrono::seconds(3);
constexpr auto kStopHold = std::chrono::seconds(10);
constexpr auto kRecoveryBudget = std::chrono::seconds(30);
// Healthy again: this many answers in a row as they were before the fault.
constexpr int kHealthyStreak = 200;
// Requests sent during a fault may answer after the recovery, at most one bus time-out
// (5 s) later; the window stays open that long.
constexpr auto kSettle = std::chrono::seconds(6);

struct Target {
    std::string name;
    bool post;
    std::string path;
    std::string body;
    int weight;      // out of the mix's total
    bool needs_bus;  // its answer shows whether the daemons answer
};

// The mix: mostly commands, forwarding and the data file; a firmware "upload" without an
// image (answered 400 after the purge second) now and then.
const std::vector<Target> kMix = {
    {"network.cgi getter", false, "/network.cgi?getwifimode=&getdoscenemode=", "", 400, true},
    {"network.cgi test", false, "/network.cgi?test=1", "", 200, false},
    {"sdk.cgi", true, "/sdk.cgi", "json=%7B%22cmd%22%3A%22getdevice%22%7D", 200, true},
    {"send.dat", true, "/send.dat", "json=%7B%22cmd%22%3A%22x%22%7D", 100, false},
    {"get.dat", false, "/get.dat", "", 99, true},
    {"update.cgi", false, "/update.cgi", "", 1, false},
};

struct Answer {
    long status;
    std::string body;
    bool operator==(const Answer &o) const { return status == o.status && body == o.body; }
};

Answer ask(int port, const Target &target) {
    const HttpResponse r = target.post ? korvex::test::post(port, target.path, target.body, "application/x-www-form-urlencoded", {}, 20000)
                                       : korvex::test::get(port, target.path, 20000);
    return Answer{r.status, r.body};
}

class Load {
public:
    Load(int port, std::vector<Answer> healthy) : port_(port), healthy_(std::move(healthy)) {
        for (const Target &t : kMix) total_weight_ += t.weight;
    }
    void start() {
        for (int c = 0; c < kClients; ++c) threads_.emplace_back([this, c] { run(c); });
    }
    void stop() {
        stop_ = true;
        for (std::thread &t : threads_) t.join();
        threads_.clear();
    }
    // Counts since the start, and whether the window is a fault's (differences expected).
    long requests() const { return requests_; }
    long non_200() const { return non_200_; }
    long mismatches_outside_faults() const { return mismatches_outside_; }
    void set_fault_window(bool open) {
        fault_ = open;
        streak_ = 0;
    }
    int streak() const { return streak_; }
    void reset_streak() { streak_ = 0; }
    std::vector<std::string> examples() {
        std::lock_guard<std::mutex> hold(examples_lock_);
        return examples_;
    }

private:
    void run(int client) {
        unsigned slot = static_cast<unsigned>(client) * 7919u;
        while (!stop_) {
            slot = slot * 1103515245u + 12345u;
            int pick = static_cast<int>((slot >> 8) % static_cast<unsigned>(total_weight_));
            size_t i = 0;
            while (pick >= kMix[i].weight) pick -= kMix[i++].weight;
            Answer answer = ask(port_, kMix[i]);
            ++requests_;
            // Two uploads at once: the second answers "updating", as it should.
            if (kMix[i].name == "update.cgi" && answer.status == 200 && answer.body == "updating") answer = healthy_[i];
            const bool expected_status = answer.status == healthy_[i].status;
            if (answer.status != 200 && !(kMix[i].name == "update.cgi" && expected_status)) ++non_200_;
            if (answer == healthy_[i]) {
                if (kMix[i].needs_bus) ++streak_;
            } else {
                streak_ = 0;
                if (!fault_) {
                    ++mismatches_outside_;
                    std::lock_guard<std::mutex> hold(examples_lock_);
                    if (examples_.size() < 5) {
                        examples_.push_back(kMix[i].name + ": " + std::to_string(answer.status) + " \"" +
                                            answer.body.substr(0, 80) + "\"");
                    }
                }
            }
        }
    }

    int port_;
    std::vector<Answer> healthy_;
    int total_weight_ = 0;
    std::vector<std::thread> threads_;
    std::atomic<bool> stop_{false};
    std::atomic<bool> fault_{false};
    std::atomic<long> requests_{0};
    std::atomic<long> non_200_{0};
    std::atomic<long> mismatches_outside_{0};
    std::atomic<int> streak_{0};
    std::mutex examples_lock_;
    std::vector<std::string> examples_;  // answers unlike the healthy ones outside fault windows
};

// Seconds from now until the load has answered kHealthyStreak requests in a row as before;
// -1 when that did not happen within the budget.
double await_recovery(Load &load) {
    const auto start = Clock::now();
    while (Clock::now() - start < kRecoveryBudget) {
        if (load.streak() >= kHealthyStreak) {
            return std::chrono::duration<double>(Clock::now() - start).count();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return -1;
}

// Settings written while the simulator is stopped, one request each: how each was answered,
// and later which of them reached the daemon. A write answered "done" that never arrives is
// lost.
class StoppedWriter {
public:
    explicit StoppedWriter(int port) : port_(port) {}
    // Writers in parallel: each write waits for its answer, which a stopped daemon delays.
    void start() {
        for (int writer = 0; writer < kWriters; ++writer) {
            threads_.emplace_back([this, writer] {
                for (int n = 0; !stop_; ++n) {
                    const std::string value = "soak-" + std::to_string(writer) + "-" + std::to_string(n);
                    const HttpResponse answer =
                        korvex::test::get(port_, "/network.cgi?setntpserver=" + value, 30000);
                    std::lock_guard<std::mutex> hold(lock_);
                    sent_.push_back(value);
                    if (answer.body == "setntpserver done") done_.push_back(value);
                }
            });
        }
    }
    void stop() {
        stop_ = true;
        for (std::thread &thread : threads_) thread.join();
    }
    // Against the records of the simulator once it runs again.
    void count_arrivals(const std::vector<korvex::test::SimRecord> &records) {
        for (const auto &record : records) {
            if (record.member == "set" && record.args.size() == 2 && record.args[0] == "s:NTPServerIP" &&
                record.args[1].rfind("s:soak-", 0) == 0)
                arrived_.insert(record.args[1].substr(2));
        }
    }
    size_t sent() const { return sent_.size(); }
    size_t done() const { return done_.size(); }
    size_t arrived() const { return arrived_.size(); }
    size_t lost() const {
        size_t lost = 0;
        for (const std::string &value : done_) lost += arrived_.count(value) == 0;
        return lost;
    }

private:
    static constexpr int kWriters = 8;
    int port_;
    std::atomic<bool> stop_{false};
    std::vector<std::thread> threads_;
    std::mutex lock_;
    std::vector<std::string> sent_, done_;
    std::set<std::string> arrived_;
};

std::map<std::string, long> memory_kb(const GatewayEnv &env) {
    std::map<std::string, long> rss;
    for (pid_t child : env.server_child_pids()) rss["child " + std::to_string(child)] = GatewayEnv::vm_rss_kb(child);
    const std::string sim = env.env_value("SIM_PID");
    if (!sim.empty()) rss["simulator"] = GatewayEnv::vm_rss_kb(static_cast<pid_t>(std::stol(sim)));
    return rss;
}

}  // namespace

int main() {
    try {
        GatewayEnv::Options options;
        options.log_level = 5;  // errors and notable state, as a production server logs
        std::unique_ptr<GatewayEnv> env = GatewayEnv::start(options);
        const int port = env->port();
        std::printf("korvex_soak: prefork gateway on 127.0.0.1:%d, %d clients\n", port, kClients);

        std::vector<Answer> healthy;
        for (const Target &target : kMix) healthy.push_back(ask(port, target));
        const auto memory_start = memory_kb(*env);
        const size_t log_start = env->error_log_size();

        Load load(port, healthy);
        load.start();
        const auto healthy_start = Clock::now();
        while (load.requests() < kHealthyRequests && Clock::now() - healthy_start < kHealthyBudget) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        const double healthy_seconds = std::chrono::duration<double>(Clock::now() - healthy_start).count();
        const long healthy_requests = load.requests();
        const size_t healthy_log_bytes = env->error_log_size() - log_start;

        korvex::bench::Table faults("Faults under load (recovery: " + std::to_string(kHealthyStreak) +
                                        " answers in a row as before)",
                                    {"fault", "held", "recovery after healing"});
        StoppedWriter writer(port);
        auto fault = [&](const std::string &name, const std::string &held, auto &&inject, auto &&heal) {
            const bool stopped = name == "simulator stopped";
            load.set_fault_window(true);
            inject();
            if (stopped) writer.start();
            std::this_thread::sleep_for(stopped ? kStopHold : kFaultHold);
            if (stopped) writer.stop();
            heal();
            load.reset_streak();
            const double recovery = await_recovery(load);
            // The writes queued while it was stopped come first; the newest 50,000 records
            // still hold them this soon.
            if (stopped) writer.count_arrivals(korvex::test::SimClient(env->bus_address()).records());
            std::this_thread::sleep_for(kSettle);
            load.set_fault_window(false);
            faults.add({name, held, recovery < 0 ? "not within 30 s" : korvex::bench::fixed(recovery, 2) + " s"});
        };
        fault("simulator killed", "3 s", [&] { env->sim_stop(); }, [&] { env->sim_start(); });
        fault("bus daemon killed", "3 s", [&] { env->bus_stop(); }, [&] { env->bus_start(); });
        const pid_t sim = static_cast<pid_t>(std::stol(env->env_value("SIM_PID")));
        fault("simulator stopped", "10 s", [&] { kill(sim, SIGSTOP); }, [&] { kill(sim, SIGCONT); });
        // A last healthy stretch, counted outside the fault windows.
        std::this_thread::sleep_for(std::chrono::seconds(5));
        load.stop();

        const size_t log_bytes = env->error_log_size() - log_start;
        const size_t crashes = env->count_log_lines("exit signal", log_start);
        const auto memory_end = memory_kb(*env);

        korvex::bench::Table summary("Soak", {"figure", "value"});
        summary.add({"requests (healthy phase)", std::to_string(healthy_requests)});
        summary.add({"healthy throughput", korvex::bench::fixed(healthy_requests / healthy_seconds, 0) + " req/s"});
        summary.add({"requests (all)", std::to_string(load.requests())});
        summary.add({"non-200 answers (all phases)", std::to_string(load.non_200())});
        summary.add({"answers unlike the healthy ones outside fault windows", std::to_string(load.mismatches_outside_faults())});
        summary.add({"child crashes in the error log", std::to_string(crashes)});
        summary.add({"writes while the simulator was stopped: sent / answered done",
                     std::to_string(writer.sent()) + " / " + std::to_string(writer.done())});
        summary.add({"  of those, reached the daemon after it continued", std::to_string(writer.arrived())});
        summary.add({"  lost (answered done, never arrived)", std::to_string(writer.lost())});
        summary.add({"error-log bytes per request (healthy phase)",
                     korvex::bench::fixed(double(healthy_log_bytes) / double(healthy_requests), 2)});
        summary.add({"error-log bytes per request (all, faults included)",
                     korvex::bench::fixed(double(log_bytes) / double(load.requests()), 2)});
        for (const std::string &example : load.examples()) summary.note("unlike the healthy answer: " + example);
        summary.print(stdout);
        faults.print(stdout);
        korvex::bench::Table memory("Resident memory (kB)", {"process", "start", "end"});
        for (const auto &[name, kb] : memory_end) {
            auto before = memory_start.find(name);
            memory.add({name, before != memory_start.end() ? std::to_string(before->second) : "(new)", std::to_string(kb)});
        }
        memory.note("children started after the first measurement show \"(new)\"; the simulator is a new process after its restart");
        memory.print(stdout);
        return 0;
    } catch (const std::exception &e) {
        std::fprintf(stderr, "korvex_soak: %s\n", e.what());
        return 1;
    }
}
