// A bus daemon that stops reading while a child has filled its socket: every call still
// ends by its own deadline (no write waits without one), the status snapshot answers within
// its 5 s, and once the bus reads again the writes that were queued reach the daemon, none
// lost. One prefork child, so that both requests share its connection.
#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>

#include "tests/support/call_texts.h"
#include "tests/support/command_test.h"
#include "tests/support/http_client.h"

namespace korvex::test {
namespace {

const char kOneChild[] = R"(
<IfModule mpm_prefork_module>
    StartServers 1
    MinSpareServers 1
    MaxSpareServers 1
    MaxRequestWorkers 1
</IfModule>
)";

constexpr int kBigWrites = 8;
constexpr size_t kValueBytes = 64 * 1024;  // 8 of them: more than twice a socket's buffer

// The size of a socket's send buffer on this host, 0 when it cannot be read.
size_t socket_buffer_bytes() {
    std::ifstream in("/proc/sys/net/core/wmem_default");
    size_t bytes = 0;
    in >> bytes;
    return bytes;
}

using Clock = std::chrono::steady_clock;

long ms_since(Clock::time_point start) {
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

class FullSocketTest : public CommandTest {
protected:
    static void SetUpTestSuite() {
        GatewayEnv::Options options;
        options.site_config = kOneChild;
        use_env(options);
    }
};

TEST_F(FullSocketTest, SnapshotAnswersWithinItsDeadlineAndQueuedWritesArriveLater) {
    // Once the socket is full, each further write waits out its own deadline: the writes
    // must overfill it for that to show.
    const size_t buffer = socket_buffer_bytes();
    ASSERT_GT(buffer, 0u);
    ASSERT_GE(kBigWrites * kValueBytes, 2 * buffer) << "a send buffer of " << buffer << " bytes";
    const std::string healthy = run("jsongetupdate=");
    sim().clear_records();
    const pid_t bus = static_cast<pid_t>(std::atol(env().env_value("BUS_PID").c_str()));
    ASSERT_GT(bus, 0);
    ASSERT_EQ(kill(bus, SIGSTOP), 0);

    // A read that runs out its time-out, then settings far larger than the socket holds,
    // each in a request of its own (a query names each command once).
    auto start = Clock::now();
    EXPECT_EQ(get(port(), "/network.cgi?getdoscenemode=", 30000).status, 200);
    for (int i = 0; i < kBigWrites; ++i) {
        const std::string body = "setntpserver=" + std::string(kValueBytes, static_cast<char>('a' + i));
        const HttpResponse filled = post(port(), "/network.cgi", body, "application/x-www-form-urlencoded", {}, 30000);
        EXPECT_EQ(filled.status, 200);
        EXPECT_EQ(filled.body, "setntpserver done");
    }
    const long filled_ms = ms_since(start);
    // Each call ends by its own deadline (1 s for these), not when the bus reads again.
    EXPECT_LT(filled_ms, 2 * (kBigWrites + 1) * 1000);

    start = Clock::now();
    const HttpResponse snapshot = get(port(), "/network.cgi?jsongetupdate=", 30000);
    const long snapshot_ms = ms_since(start);
    ASSERT_EQ(kill(bus, SIGCONT), 0);
    EXPECT_EQ(snapshot.status, 200);
    EXPECT_NE(snapshot.body, healthy);
    EXPECT_LT(snapshot_ms, 10000) << "the snapshot's 5 s deadline bounds it, full socket or not";
    std::printf("[full socket] %d writes of %zu bytes took %ld ms; the snapshot then %ld ms\n", kBigWrites,
                kValueBytes, filled_ms, snapshot_ms);

    // The bus reads again: the next request is served and every queued setting arrives.
    EXPECT_EQ(get(port(), "/network.cgi?test=1").body, "in testAPI, value: 1<br>test done");
    std::string values;
    for (const SimRecord &record : sim().wait_for_records(kBigWrites + 1, 10000)) {
        if (record.member == "set" && record.args.size() == 2 && record.args[0] == "s:NTPServerIP")
            values += record.args[1].substr(2, 1);
    }
    EXPECT_EQ(values, "abcdefgh") << "every queued write arrives, in order";
    EXPECT_EQ(sim().nvram("NTPServerIP"), std::string(kValueBytes, static_cast<char>('a' + kBigWrites - 1)));
}

}  // namespace
}  // namespace korvex::test
