// The gateway harness itself: gateways started at once never collide, and a test process
// that is killed leaves no server, bus or simulator behind.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <string>
#include <thread>

#include "sim/harness/gateway.h"
#include "sim/harness/port_reservation.h"
#include "sim/harness/process_record.h"
#include "tests/support/http_client.h"

namespace korvex::harness {
namespace {

using Clock = std::chrono::steady_clock;

GatewaySpec spec_for(const std::string &run_dir) {
    GatewaySpec spec = GatewaySpec::defaults(run_dir, KORVEX_SOURCE_DIR, KORVEX_BUILD_DIR);
    spec.module_file = KORVEX_TEST_MODULE;
    spec.owner_pid = getpid();
    return spec;
}

bool port_lock_free(int port) {
    const int fd = open(port_lock_file(port).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return true;
    const bool free = flock(fd, LOCK_EX | LOCK_NB) == 0;
    close(fd);
    return free;
}

TEST(HarnessTest, GatewaysStartedAtOnceGetTheirOwnPortsAndAnswer) {
    const std::string dirs[] = {make_run_dir("harness-a"), make_run_dir("harness-b"), make_run_dir("harness-c")};
    std::future<std::unique_ptr<Gateway>> starts[3];
    for (int i = 0; i < 3; ++i)
        starts[i] = std::async(std::launch::async, [&, i] { return Gateway::up(spec_for(dirs[i])); });
    std::unique_ptr<Gateway> gateways[3];
    for (int i = 0; i < 3; ++i) gateways[i] = starts[i].get();
    EXPECT_NE(gateways[0]->facts().port, gateways[1]->facts().port);
    EXPECT_NE(gateways[1]->facts().port, gateways[2]->facts().port);
    EXPECT_NE(gateways[0]->facts().port, gateways[2]->facts().port);
    for (auto &gateway : gateways) {
        const test::HttpResponse response = test::get(gateway->facts().port, "/network.cgi?test=0");
        EXPECT_EQ(response.status, 200) << response.error;
        EXPECT_NE(response.body.find("test done"), std::string::npos) << response.body;
        EXPECT_FALSE(port_lock_free(gateway->facts().port));
    }
    for (int i = 0; i < 3; ++i) {
        const int port = gateways[i]->facts().port;
        gateways[i].reset();
        EXPECT_TRUE(port_lock_free(port));
        std::filesystem::remove_all(dirs[i]);
    }
}

TEST(HarnessTest, AKilledOwnerLeavesNothingBehind) {
    const std::string run_dir = make_run_dir("harness-killed");
    int facts_pipe[2];
    ASSERT_EQ(pipe(facts_pipe), 0);
    const pid_t owner = fork();
    ASSERT_GE(owner, 0);
    if (owner == 0) {
        // The owner is this child: the test process that is about to be killed.
        close(facts_pipe[0]);
        pid_t pids[4] = {0, 0, 0, 0};
        try {
            GatewaySpec spec = spec_for(run_dir);
            spec.owner_pid = getpid();
            std::unique_ptr<Gateway> gateway = Gateway::up(spec);
            gateway->release();
            pids[0] = gateway->facts().server_pid;
            pids[1] = gateway->facts().bus_pid;
            pids[2] = gateway->facts().sim_pid;
            pids[3] = gateway->facts().port;
        } catch (...) {
        }
        if (write(facts_pipe[1], pids, sizeof pids) != sizeof pids) _exit(1);
        pause();
        _exit(0);
    }
    close(facts_pipe[1]);
    pid_t pids[4] = {0, 0, 0, 0};
    ASSERT_EQ(read(facts_pipe[0], pids, sizeof pids), static_cast<ssize_t>(sizeof pids));
    close(facts_pipe[0]);
    const int port = pids[3];
    ASSERT_GT(pids[0], 0);
    ASSERT_GT(pids[1], 0);
    ASSERT_GT(pids[2], 0);
    ASSERT_GT(port, 0);
    EXPECT_EQ(test::get(port, "/network.cgi?test=0").status, 200);
    EXPECT_FALSE(port_lock_free(port));

    kill(owner, SIGKILL);
    waitpid(owner, nullptr, 0);
    const auto deadline = Clock::now() + std::chrono::seconds(30);
    auto anything_left = [&] {
        return process_alive(pids[0]) || process_alive(pids[1]) || process_alive(pids[2]) || !port_lock_free(port);
    };
    while (anything_left() && Clock::now() < deadline) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(process_alive(pids[0])) << "server";
    EXPECT_FALSE(process_alive(pids[1])) << "bus";
    EXPECT_FALSE(process_alive(pids[2])) << "simulator";
    EXPECT_TRUE(port_lock_free(port));
    std::filesystem::remove_all(run_dir);
}

TEST(HarnessTest, TheNextStartSweepsAGatewayWhoseOwnerAndWatcherAreGone) {
    const std::string run_dir = make_run_dir("harness-orphan");
    // An owner that is gone at once, and no watcher: as if both had been killed together.
    const pid_t owner = fork();
    ASSERT_GE(owner, 0);
    if (owner == 0) {
        pause();
        _exit(0);
    }
    GatewaySpec spec = spec_for(run_dir);
    spec.owner_pid = owner;
    std::unique_ptr<Gateway> orphan = Gateway::up(spec);
    orphan->release();
    const pid_t server = orphan->facts().server_pid;
    const pid_t watcher = orphan->live_pid("watcher");
    ASSERT_GT(watcher, 0);
    kill(watcher, SIGKILL);
    reap_if_child(watcher);
    kill(owner, SIGKILL);
    waitpid(owner, nullptr, 0);
    const auto settle = Clock::now() + std::chrono::seconds(5);
    while (process_alive(watcher) && Clock::now() < settle) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_TRUE(process_alive(server));

    const std::string next_dir = make_run_dir("harness-next");
    GatewaySpec next = spec_for(next_dir);
    next.with_server = false;
    std::unique_ptr<Gateway> fresh = Gateway::up(next);
    EXPECT_FALSE(process_alive(server));
    fresh.reset();
    std::filesystem::remove_all(run_dir);
    std::filesystem::remove_all(next_dir);
}

}  // namespace
}  // namespace korvex::harness
