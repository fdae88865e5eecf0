// The module under each of Apache's processing models: prefork (one connection per child,
// on the child's path) and worker and event (each serving thread opens a connection of its
// own on first use, with its own path), including concurrent requests.
#include <dirent.h>

#include <chrono>
#include <fstream>
#include <future>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/mpm_fixture.h"
#include "tests/support/access_log.h"
#include "tests/support/gateway_env.h"
#include "tests/support/http_client.h"
#include "tests/support/log_lines.h"
#include "tests/support/record_text.h"
#include "tests/support/sim_client.h"

namespace korvex::test {
namespace {

const std::string kTestOne = "in testAPI, value: 1<br>test done";
constexpr int kParallel = 8;

// The innermost id on the "NSpid:" line of a status file (what the server itself sees).
long namespace_id(const std::string &status_path) {
    std::ifstream in(status_path);
    for (std::string line; std::getline(in, line);) {
        if (line.compare(0, 6, "NSpid:") != 0) continue;
        std::istringstream ids(line.substr(6));
        long id = -1;
        for (long next; ids >> next;) id = next;
        return id;
    }
    return -1;
}

// Every thread of the server's children: thread id -> id of its process, as the server sees them.
std::map<long, long> server_threads(const GatewayEnv &env) {
    std::map<long, long> threads;
    for (pid_t child : env.server_child_pids()) {
        const std::string tasks = "/proc/" + std::to_string(child) + "/task";
        const long process = GatewayEnv::namespace_pid(child);
        DIR *dir = opendir(tasks.c_str());
        if (dir == nullptr) continue;
        while (dirent *entry = readdir(dir)) {
            if (entry->d_name[0] == '.') continue;
            const long tid = namespace_id(tasks + "/" + entry->d_name + "/status");
            if (tid > 0) threads[tid] = process;
        }
        closedir(dir);
    }
    return threads;
}

long tid_of(const std::string &path) { return std::stol(path.substr(path.rfind('/') + 1)); }

class MpmTest : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        sim_ = std::make_unique<SimClient>(env().bus_address());
        sim_->reset();
        log_before_ = env().error_log_size();
        access_before_ = access_log_size(env());
    }

    bool threaded() const { return env().options().mpm != "prefork"; }

    // One test=1 request: its call came from a thread of the child that served it; under
    // prefork that thread is the child itself.
    void single_request_calls_on_the_serving_thread() {
        ASSERT_EQ(env().env_value("MPM"), env().options().mpm);
        HttpResponse response = get(port(), "/network.cgi?test=1");
        EXPECT_EQ(response.status, 200);
        EXPECT_EQ(response.body, kTestOne);
        const std::vector<SimRecord> records = sim_->records();
        ASSERT_EQ(records.size(), 1u);
        EXPECT_EQ(record_text(records[0]).substr(0, record_text(records[0]).rfind(' ')),
                  "method_call com.korvex-labs.www.sdk com.KorvexLabs.json.command command(s:{\"control\":"
                  "{\"cmd\":\"getdevice\",\"uid\":256}})");
        const std::vector<std::string> lines = wait_for_access_lines(env(), access_before_, 1);
        ASSERT_EQ(lines.size(), 1u);
        const long child = served_pid(lines[0]);
        const long tid = tid_of(records[0].path);
        EXPECT_EQ(records[0].path, module_path(tid));
        if (threaded()) {
            EXPECT_EQ(server_threads(env()).at(tid), child) << records[0].path;
            EXPECT_NE(tid, child) << "served on a worker thread, not the child's first thread";
        } else {
            EXPECT_EQ(tid, child);
        }
    }

    // kParallel requests at once, each answered after a pause: all succeed; every call
    // comes from a thread of a server child, and each path belongs to one connection.
    void parallel_requests_all_succeed() {
        sim_->set_rule(R"({"destination":"com.korvex-labs.www.sdk","mode":"default","delay_ms":300})");
        std::vector<std::future<HttpResponse>> answers;
        for (int i = 0; i < kParallel; ++i)
            answers.push_back(std::async(std::launch::async, [] { return get(port(), "/network.cgi?test=1"); }));
        // The threads as they are while the calls wait for their answers (a child may be
        // retired as idle right after the burst).
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        std::map<long, long> threads = server_threads(env());
        for (auto &answer : answers) {
            HttpResponse response = answer.get();
            EXPECT_EQ(response.status, 200);
            EXPECT_EQ(response.body, kTestOne);
        }
        const std::vector<SimRecord> records = sim_->records();
        EXPECT_EQ(records.size(), static_cast<size_t>(kParallel));
        threads.merge(server_threads(env()));
        std::set<std::string> paths;
        std::map<std::string, std::set<std::string>> senders;  // path -> bus connections using it
        for (const SimRecord &record : records) {
            paths.insert(record.path);
            senders[record.path].insert(record.sender);
            const long tid = tid_of(record.path);
            ASSERT_EQ(threads.count(tid), 1u) << record.path << " is no thread of the server";
            if (!threaded()) {
                EXPECT_EQ(threads.at(tid), tid) << "prefork: the child's own id";
            }
        }
        // Calls that overlapped in time came from different threads.
        EXPECT_GT(paths.size(), 1u);
        for (const auto &[path, connections] : senders) EXPECT_EQ(connections.size(), 1u) << path;
        if (threaded()) {
            // Each serving thread opened its connection on first use, under its own id.
            const std::string log = env().error_log();
            for (const std::string &path : paths) {
                const std::string pid = "[pid " + std::to_string(threads.at(tid_of(path))) + "] dbus_init:";
                size_t opened = 0;
                for (const std::string &line : module_log_lines(log, pid)) {
                    if (line == "[korvex:trace1] [pid N] dbus_init:L apache: objPath: " + path) ++opened;
                }
                EXPECT_EQ(opened, 1u) << path;
            }
        }
        EXPECT_EQ(module_log_lines(env().error_log_since(log_before_), "[korvex:error]"), std::vector<std::string>{});
    }

    std::unique_ptr<SimClient> sim_;
    size_t log_before_ = 0;
    size_t access_before_ = 0;
};

class PreforkTest : public MpmTest {
  protected:
    // Every child's start is counted through its trace lines.
    static void SetUpTestSuite() { use_log_level(KORVEX_LOG_CHILD); }
};

using WorkerTest = OnMpm<MpmTest, kWorkerMpm, KORVEX_LOG_CHILD>;

using EventTest = OnMpm<MpmTest, kEventMpm, KORVEX_LOG_CHILD>;

TEST_F(PreforkTest, CallComesFromTheServingChild) { single_request_calls_on_the_serving_thread(); }
TEST_F(PreforkTest, ParallelRequestsAllSucceed) { parallel_requests_all_succeed(); }
TEST_F(WorkerTest, CallComesFromTheServingThread) { single_request_calls_on_the_serving_thread(); }
TEST_F(WorkerTest, ParallelRequestsAllSucceed) { parallel_requests_all_succeed(); }
TEST_F(EventTest, CallComesFromTheServingThread) { single_request_calls_on_the_serving_thread(); }
TEST_F(EventTest, ParallelRequestsAllSucceed) { parallel_requests_all_succeed(); }

}  // namespace
}  // namespace korvex::test
