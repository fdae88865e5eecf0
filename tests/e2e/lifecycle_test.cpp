// The module's life in a prefork server: the command table built once per server process
// (also across a graceful restart), and one connection per child with its own key and path.
#include <signal.h>

#include <chrono>
#include <fstream>
#include <future>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
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

// The table holds the whole catalog: 152 commands in 2 * 152 + 1 buckets.
std::string hash_line() { return "[korvex:debug] [pid N] hash_init:L apache: hashItemNum: 152, hashTableSize:305"; }

// Module records of text (time stamp and thread id removed, pid and line kept) that contain what.
std::vector<std::string> raw_lines(const std::string &text, const std::string &what) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        const std::string record = module_log_record(line);
        if (!record.empty() && record.find(what) != std::string::npos) lines.push_back(record);
    }
    return lines;
}

class LifecycleTest : public GatewayTest {
  protected:
    // Configuration passes and child starts are followed through their trace lines.
    static void SetUpTestSuite() { use_log_level(KORVEX_LOG_CHILD); }

    void SetUp() override {
        GatewayTest::SetUp();
        sim_ = std::make_unique<SimClient>(env().bus_address());
        sim_->reset();
    }

    // Namespace pids of the server's children (what their log lines and paths show).
    static std::set<long> child_ids() {
        std::set<long> ids;
        for (pid_t child : env().server_child_pids()) ids.insert(GatewayEnv::namespace_pid(child));
        return ids;
    }

    std::unique_ptr<SimClient> sim_;
};

TEST_F(LifecycleTest, TableIsBuiltOnceAtTheFirstOfTwoConfigurationPasses) {
    const std::string log = env().error_log();
    EXPECT_EQ(module_log_lines(log, "hashItemNum"), std::vector<std::string>{hash_line()});
    // The server reads its configuration twice at start; the second pass keeps the table.
    std::vector<std::string> config_lines;
    for (const std::string &line : module_log_lines(log)) {
        if (line.find("shm_counter_post_config:") != std::string::npos || line.find("hash_init:") != std::string::npos)
            config_lines.push_back(line);
    }
    const std::string enter =
        "[korvex:debug] [pid N] shm_counter_post_config:L apache: enter shm_counter_post_config, s->process->pool addr: 0x?";
    const std::string leave = "[korvex:debug] [pid N] shm_counter_post_config:L apache: leave shm_counter_post_config";
    ASSERT_GE(config_lines.size(), 7u);
    EXPECT_EQ(std::vector<std::string>(config_lines.begin(), config_lines.begin() + 7),
              (std::vector<std::string>{enter, "[korvex:debug] [pid N] hash_init:L apache: enter hash_init", hash_line(),
                                        "[korvex:debug] [pid N] hash_init:L apache: leave hash_init()", leave, enter,
                                        leave}));
    // Both passes ran in the server's parent, on the same process pool.
    const std::vector<std::string> enters = raw_lines(log, "enter shm_counter_post_config");
    ASSERT_GE(enters.size(), 2u);
    const std::string parent = "[pid " + std::to_string(GatewayEnv::namespace_pid(env().server_pid())) + "]";
    for (const std::string &line : enters) EXPECT_NE(line.find(parent), std::string::npos) << line;
    EXPECT_EQ(enters[0].substr(enters[0].find("0x")), enters[1].substr(enters[1].find("0x")));
    EXPECT_EQ(env().count_log_lines("apr_global_mutex_create failed"), 0u);
}

TEST_F(LifecycleTest, EachChildOpensItsConnectionOnItsOwnPath) {
    const std::string log = env().error_log();
    const std::regex init(R"(^\[korvex:trace1\] \[pid ([0-9]+)\] initialize_child:[0-9]+ apache: enter initialize_child, )"
                          R"(pool addr: 0x[0-9a-f]+, s->process->pool: 0x[0-9a-f]+, tid: ([0-9]+)$)");
    std::set<long> initialised;
    for (const std::string &line : raw_lines(log, "enter initialize_child")) {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(line, match, init)) << line;
        EXPECT_EQ(match[1], match[2]) << "prefork: the initialising thread is the child itself";
        const long child = std::stol(match[1]);
        initialised.insert(child);
        const std::string pid = "[pid " + std::to_string(child) + "] ";
        const std::string path = module_path(child);
        EXPECT_EQ(module_log_lines(log, pid + "dbus_init:"),
                  (std::vector<std::string>{
                      "[korvex:trace1] [pid N] dbus_init:L apache: enter dbus_init",
                      "[korvex:debug] [pid N] dbus_init:L apache: dbus_bus_get_private success.",
                      "[korvex:trace1] [pid N] dbus_init:L apache: objPath: " + path,
                      "[korvex:trace1] [pid N] dbus_init:L apache: leave dbus_init, dbusData->objPath: " + path,
                  }));
        EXPECT_EQ(raw_lines(log, pid + "initialize_child:").size(), 2u);
    }
    // Every running child went through child initialisation.
    for (long child : child_ids()) EXPECT_EQ(initialised.count(child), 1u) << "child " << child;
    EXPECT_GE(initialised.size(), 2u);
}

TEST_F(LifecycleTest, TwoChildrenCallOnDifferentPaths) {
    // Each answer takes a while, so concurrent requests must be served by different children.
    sim_->set_rule(R"({"destination":"com.korvex-labs.www.sdk","mode":"default","delay_ms":400})");
    std::vector<std::future<HttpResponse>> answers;
    for (int i = 0; i < 2; ++i)
        answers.push_back(std::async(std::launch::async, [] { return get(port(), "/network.cgi?test=1"); }));
    for (auto &answer : answers) EXPECT_EQ(answer.get().body, "in testAPI, value: 1<br>test done");

    std::set<std::string> paths;
    for (const SimRecord &record : sim_->records()) paths.insert(record.path);
    ASSERT_EQ(paths.size(), 2u);
    const std::set<long> children = child_ids();
    for (const std::string &path : paths) {
        const long id = std::stol(path.substr(path.rfind('/') + 1));
        EXPECT_EQ(path, module_path(id));
        EXPECT_EQ(children.count(id), 1u) << path << " is no child of the server";
    }
}

TEST_F(LifecycleTest, GracefulRestartKeepsTheTableAndTheCommandsWork) {
    const size_t before = env().error_log_size();
    const size_t passes = env().count_log_lines("enter shm_counter_post_config");
    ASSERT_EQ(::kill(env().server_pid(), SIGUSR1), 0);
    ASSERT_TRUE(env().wait_for_log("resuming normal operations", std::chrono::seconds(20), before))
        << env().error_log_since(before);
    ASSERT_TRUE(env().wait_for_log("leave initialize_child", std::chrono::seconds(20), before));

    EXPECT_EQ(env().count_log_lines("enter shm_counter_post_config"), passes + 1);
    EXPECT_EQ(module_log_lines(env().error_log(), "hashItemNum"), std::vector<std::string>{hash_line()});

    // The handlers of the reloaded module run, on the path of a child of the new generation.
    const size_t access_before = access_log_size(env());
    HttpResponse response = get(port(), "/network.cgi?test=1&nosuch=0");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "in testAPI, value: 1<br>test donenosuch doesn't exist");
    const std::vector<std::string> lines = wait_for_access_lines(env(), access_before, 1);
    ASSERT_EQ(lines.size(), 1u);
    const auto records = sim_->records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].path, module_path(served_pid(lines[0])));
    EXPECT_EQ(env().count_log_lines("objPath: " + records[0].path, before), 2u);
    EXPECT_EQ(env().count_log_lines("exit signal", before), 0u);
}

}  // namespace
}  // namespace korvex::test
