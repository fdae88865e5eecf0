// The system bus goes away under a running server: calls fail at once without ending the
// child, and once the bus daemon is back the next request works without an Apache restart.
#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/access_log.h"
#include "tests/support/gateway_env.h"
#include "tests/support/http_client.h"
#include "tests/support/log_lines.h"
#include "tests/support/record_text.h"
#include "tests/support/sim_client.h"

namespace korvex::test {
namespace {

const std::string kTestOne = "in testAPI, value: 1<br>test done";

class BusRestartTest : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        children_before_ = children();
        log_before_ = env().error_log_size();
    }

    static std::set<pid_t> children() {
        const std::vector<pid_t> pids = env().server_child_pids();
        return std::set<pid_t>(pids.begin(), pids.end());
    }

    // Sends count "test=1" requests at once (answers delayed, so that they spread over the
    // children) and checks the answers; returns the paths the calls came from.
    std::set<std::string> run_parallel(SimClient &sim, int count) {
        sim.set_rule(R"({"destination":"com.korvex-labs.www.sdk","mode":"default","delay_ms":300})");
        std::vector<std::future<HttpResponse>> answers;
        for (int i = 0; i < count; ++i)
            answers.push_back(std::async(std::launch::async, [] { return get(port(), "/network.cgi?test=1"); }));
        for (auto &answer : answers) EXPECT_EQ(answer.get().body, kTestOne);
        std::set<std::string> paths;
        for (const SimRecord &record : sim.records()) paths.insert(record.path);
        EXPECT_EQ(sim.records().size(), static_cast<size_t>(count));
        return paths;
    }

    // No child ended or crashed since the test began.
    void expect_children_unharmed() {
        for (pid_t child : children_before_) {
            EXPECT_EQ(children().count(child), 1u) << "child " << child << " is gone";
        }
        EXPECT_EQ(env().count_log_lines("exit signal", log_before_), 0u);
        EXPECT_EQ(env().count_log_lines("AH00052", log_before_), 0u);
    }

    std::set<pid_t> children_before_;
    size_t log_before_ = 0;
};

TEST_F(BusRestartTest, RestartedBusServesTheNextRequests) {
    {
        SimClient sim(env().bus_address());
        sim.reset();
        EXPECT_EQ(run_parallel(sim, 2).size(), 2u);
    }
    env().bus_stop();
    env().bus_start();

    SimClient sim(env().bus_address());
    sim.reset();
    // Both children had a connection to the old bus; neither fails its first call now.
    const std::set<std::string> paths = run_parallel(sim, 2);
    EXPECT_EQ(paths.size(), 2u);
    for (const std::string &path : paths) EXPECT_EQ(path.rfind("/com/KorvexLabs/Apache/", 0), 0u);
    EXPECT_EQ(module_log_lines(env().error_log_since(log_before_), "[korvex:error]"), std::vector<std::string>{});
    expect_children_unharmed();
}

TEST_F(BusRestartTest, WhileTheBusIsDownCallsFailAtOnce) {
    env().bus_stop();
    const auto started = std::chrono::steady_clock::now();
    HttpResponse response = get(port(), "/network.cgi?test=2");
    const auto elapsed = std::chrono::steady_clock::now() - started;
    const std::vector<std::string> failures =
        module_log_lines(env().error_log_since(log_before_), "apache_dbus_string_message");
    env().bus_start();

    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "in testAPI, value: 2<br>test done");
    EXPECT_LT(elapsed, std::chrono::seconds(1));
    EXPECT_EQ(failures, (std::vector<std::string>(
                            2, "[korvex:error] [pid N] apache_dbus_string_message:L apache: dbusData is NULL")));

    SimClient sim(env().bus_address());
    sim.reset();
    EXPECT_EQ(get(port(), "/network.cgi?test=1").body, kTestOne);
    EXPECT_EQ(sim.records().size(), 1u);
    expect_children_unharmed();
}

TEST_F(BusRestartTest, BusGoingAwayDuringACallFailsItAsNoReply) {
    SimClient sim(env().bus_address());
    sim.reset();
    // The daemon would answer after the call's 5000 ms; the bus is gone long before that.
    sim.set_rule(R"({"destination":"com.korvex-labs.www.sdk","mode":"silent"})");
    const size_t access_before = access_log_size(env());
    const auto started = std::chrono::steady_clock::now();
    auto answer = std::async(std::launch::async, [] { return get(port(), "/network.cgi?test=1"); });
    ASSERT_EQ(sim.wait_for_records(1, 5000).size(), 1u);
    env().bus_stop();
    HttpResponse response = answer.get();
    const auto elapsed = std::chrono::steady_clock::now() - started;

    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, kTestOne);
    EXPECT_LT(elapsed, std::chrono::milliseconds(4500));
    EXPECT_EQ(module_log_lines(env().error_log_since(log_before_), "[korvex:error]"),
              std::vector<std::string>{"[korvex:error] [pid N] apache_dbus_string_message:L apache: No reply, str: "
                                       "{\"control\":{\"cmd\":\"getdevice\",\"uid\":256}}, dest: "
                                       "com.korvex-labs.www.sdk, ifac: com.KorvexLabs.json.command, command: command"});
    const std::vector<std::string> served = wait_for_access_lines(env(), access_before, 1);
    ASSERT_EQ(served.size(), 1u);

    env().bus_start();
    SimClient back(env().bus_address());
    back.reset();
    EXPECT_EQ(run_parallel(back, 2).size(), 2u);
    expect_children_unharmed();
}

// A bus daemon that stops reading (stopped here; a full socket buffer looks the same to the
// module) costs the status snapshot its deadline and no more, and is served again as soon
// as it goes on.
TEST_F(BusRestartTest, StoppedBusCostsTheSnapshotItsDeadlineAndNoMore) {
    SimClient sim(env().bus_address());
    sim.reset();
    const std::string healthy = get(port(), "/network.cgi?jsongetupdate=").body;
    const pid_t bus = static_cast<pid_t>(std::atol(env().env_value("BUS_PID").c_str()));
    ASSERT_GT(bus, 0);
    ASSERT_EQ(kill(bus, SIGSTOP), 0);
    const auto started = std::chrono::steady_clock::now();
    const HttpResponse stopped = get(port(), "/network.cgi?jsongetupdate=", 20000);
    const auto elapsed = std::chrono::steady_clock::now() - started;
    ASSERT_EQ(kill(bus, SIGCONT), 0);

    EXPECT_EQ(stopped.status, 200);
    EXPECT_NE(stopped.body, healthy);
    EXPECT_GE(elapsed, std::chrono::milliseconds(4800));
    EXPECT_LT(elapsed, std::chrono::milliseconds(7000)) << "the snapshot's 5 s deadline bounds it";
    EXPECT_EQ(get(port(), "/network.cgi?test=1").body, kTestOne);
    // The reads that ran out their time-out made the daemons look silent; once their window
    // and a probe are through, the snapshot is whole again.
    std::string again;
    for (int i = 0; i < 50 && again != healthy; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        again = get(port(), "/network.cgi?jsongetupdate=").body;
    }
    EXPECT_EQ(again, healthy);
    expect_children_unharmed();
}

}  // namespace
}  // namespace korvex::test
