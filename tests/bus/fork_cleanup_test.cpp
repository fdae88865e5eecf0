// A process forked from a serving thread runs the pools' clean-ups for exec while other
// threads are in the middle of bus calls: those clean-ups must neither wait for a lock that
// another thread held at the fork (it is never released in the copy) nor drive libdbus.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <signal.h>
#include <thread>
#include <vector>

#include "dbus/primitives.h"
#include "tests/bus/fake_server.h"
#include "tests/support/bus_env.h"

namespace {

using korvex::test::BusEnv;
using korvex::test::FakeServer;
using Clock = std::chrono::steady_clock;

// The child's exit status once it ended, or -1 when it still ran after `limit` (then it
// is killed).
int wait_for_child(pid_t child, std::chrono::milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    int status = 0;
    while (Clock::now() < deadline) {
        if (waitpid(child, &status, WNOHANG) == child) return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    return -1;
}

TEST(ForkCleanup, ForkedProcessReachesExecPromptlyWhileOtherThreadsCall) {
    setenv("KORVEX_LOG_LEVEL", "2", 1);
    apr_initialize();
    {
        BusEnv bus;
        FakeServer server;
        std::mutex pools;  // the fake server's request pools share one parent
        std::atomic<bool> stop{false};
        std::atomic<long> calls{0};
        std::vector<std::thread> callers;
        for (int i = 0; i < 3; ++i) {
            callers.emplace_back([&] {
                while (!stop) {
                    request_rec *r;
                    {
                        std::lock_guard<std::mutex> hold(pools);
                        r = server.new_request();
                    }
                    if (korvex::nvram_get(r, "SSID1") != nullptr) ++calls;
                    std::lock_guard<std::mutex> hold(pools);
                    apr_pool_destroy(r->pool);
                }
            });
        }
        while (calls < 30) std::this_thread::sleep_for(std::chrono::milliseconds(1));

        int stuck = 0;
        for (int i = 0; i < 200; ++i) {
            const pid_t child = fork();
            if (child == 0) {
                // What apr_proc_create does in the new process before exec.
                apr_pool_cleanup_for_exec();
                _exit(0);
            }
            ASSERT_GT(child, 0);
            if (wait_for_child(child, std::chrono::milliseconds(2000)) != 0) ++stuck;
        }
        stop = true;
        for (std::thread &caller : callers) caller.join();
        EXPECT_EQ(stuck, 0) << "forked processes that never reached exec";
        EXPECT_GT(calls.load(), 30);
    }
    apr_terminate();
}

}  // namespace
