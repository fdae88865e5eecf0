// What one bus call costs inside the server compared with the bus itself: a one-call getter
// minus "test=0" (same request, no bus call) against a raw libdbus call of the same member
// on the same bus, and the system calls the serving children make per bus call (counted
// with strace over the same requests).
#include <dbus/dbus.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>

#include "bench/benches.h"
#include "bench/probe.h"
#include "bench/table.h"
#include "dbus/peer_catalog.h"
#include "tests/support/process_runner.h"

namespace korvex::bench {
namespace {

constexpr int kRounds = 300;
constexpr int kCountedRequests = 200;

const Probe kNoBusCall{"test=0", "/network.cgi?test=0", "test done"};
const Probe kGetter{"getdoscenemode=", "/network.cgi?getdoscenemode=", "done"};

// A private connection of the bench's own, as the module's children hold one.
class RawCaller {
public:
    explicit RawCaller(const std::string &address) {
        DBusError error;
        dbus_error_init(&error);
        conn_ = dbus_connection_open_private(address.c_str(), &error);
        if (conn_ != nullptr && !dbus_bus_register(conn_, &error)) {
            dbus_connection_close(conn_);
            dbus_connection_unref(conn_);
            conn_ = nullptr;
        }
        dbus_error_free(&error);
        if (conn_ == nullptr) throw BenchFailure("raw caller: cannot connect to the bus");
    }
    ~RawCaller() {
        dbus_connection_close(conn_);
        dbus_connection_unref(conn_);
    }
    RawCaller(const RawCaller &) = delete;
    RawCaller &operator=(const RawCaller &) = delete;

    // nvram get of the key the getter reads; its latency in ms.
    double timed_get() {
        const auto started = std::chrono::steady_clock::now();
        const auto &spec = peer::kNvramGet;
        DBusMessage *call = dbus_message_new_method_call(spec.dest, "/bench", spec.ifac, spec.cmd);
        const char *key = "doscenemode";
        dbus_message_append_args(call, DBUS_TYPE_STRING, &key, DBUS_TYPE_INVALID);
        DBusError error;
        dbus_error_init(&error);
        DBusMessage *reply = dbus_connection_send_with_reply_and_block(conn_, call, spec.timeout, &error);
        dbus_message_unref(call);
        const bool ok = reply != nullptr;
        if (reply != nullptr) dbus_message_unref(reply);
        dbus_error_free(&error);
        if (!ok) throw BenchFailure("raw caller: no reply to nvram get");
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started).count();
    }

private:
    DBusConnection *conn_ = nullptr;
};

// System calls of the server's children while `count` requests of `probe` are served,
// per system call name; empty when strace is missing.
std::map<std::string, long> count_syscalls(const test::GatewayEnv &env, const Probe &probe, int count,
                                           const std::string &out_path) {
    if (access("/usr/bin/strace", X_OK) != 0) return {};
    // The parent too, so that with -f a child it starts meanwhile is counted as well: a
    // request served by an uncounted child would count as a call that cost nothing.
    std::vector<std::string> argv = {"/usr/bin/strace", "-f", "-c", "-o", out_path,
                                     "-p", std::to_string(env.server_pid())};
    for (pid_t child : env.server_child_pids()) {
        argv.push_back("-p");
        argv.push_back(std::to_string(child));
    }
    test::ChildProcess strace(argv, "/dev/null");
    std::this_thread::sleep_for(std::chrono::milliseconds(500));  // attached to every child
    for (int i = 0; i < count; ++i) timed_get(env.port(), probe);
    strace.terminate(5000);  // detaches and writes the summary

    std::map<std::string, long> calls;
    std::ifstream summary(out_path);
    for (std::string line; std::getline(summary, line);) {
        std::istringstream fields(line);
        std::vector<std::string> words;
        for (std::string word; fields >> word;) words.push_back(word);
        if (words.size() < 5 || words.back() == "total" || words[0].find_first_not_of("0123456789.") != std::string::npos)
            continue;
        calls[words.back()] = std::atol(words[3].c_str());
    }
    return calls;
}

long total(const std::map<std::string, long> &calls) {
    long sum = 0;
    for (const auto &[name, count] : calls) sum += count;
    return sum;
}

}  // namespace

void run_bus_cost_bench(const test::GatewayEnv &env, test::SimClient &sim) {
    sim.reset();
    RawCaller raw(env.bus_address());
    Samples no_bus, getter, direct;
    for (int round = 0; round < 10 + kRounds; ++round) {
        const double a = timed_get(env.port(), kNoBusCall);
        const double b = timed_get(env.port(), kGetter);
        const double c = raw.timed_get();
        if (round < 10) continue;
        no_bus.add(a);
        getter.add(b);
        direct.add(c);
    }
    const double in_server = getter.median() - no_bus.median();
    Table latency("7. One bus call in the server against the bus itself", {"measure", "median ms", "ratio"});
    latency.add({"raw libdbus call (floor)", fixed(direct.median(), 3), "1.00x"});
    latency.add({"getter minus test=0", fixed(in_server, 3), times(ratio(in_server, direct.median()))});
    latency.note(std::to_string(kRounds) + " interleaved rounds; the same member (nvram get) on the same bus");
    latency.print(stdout);

    const std::string out = "/tmp/korvex-bench-strace-" + std::to_string(getpid()) + ".txt";
    const std::map<std::string, long> base = count_syscalls(env, kNoBusCall, kCountedRequests, out);
    const std::map<std::string, long> with_call = count_syscalls(env, kGetter, kCountedRequests, out);
    unlink(out.c_str());
    Table syscalls("7b. System calls per bus call (strace over the serving children)", {"system call", "per call"});
    if (base.empty() || with_call.empty()) {
        syscalls.note("strace is not installed: not measured");
    } else {
        for (const auto &[name, count] : with_call) {
            const auto found = base.find(name);
            const double extra = double(count - (found == base.end() ? 0 : found->second)) / kCountedRequests;
            if (extra >= 0.5 || extra <= -0.5) syscalls.add({name, fixed(extra, 2)});
        }
        syscalls.add({"all", fixed(double(total(with_call) - total(base)) / kCountedRequests, 2)});
        syscalls.note(std::to_string(kCountedRequests) + " getters against as many test=0; libdbus's own blocking "
                      "call needs 4 (sendmsg, poll, recvmsg, recvmsg)");
    }
    syscalls.print(stdout);
}

}  // namespace korvex::bench
