// A server whose "/tmp/lockHttpd" cannot be created (a directory of that name, owned by
// another account, is in its way) still starts, and its commands work.
#include <sys/stat.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/gateway_env.h"
#include "tests/support/http_client.h"
#include "tests/support/log_lines.h"
#include "tests/support/sim_client.h"

namespace korvex::test {
namespace {

class LockFileTest : public GatewayTest {
  protected:
    static void SetUpTestSuite() {
        GatewayEnv::Options options;
        options.server_tmp_dirs = {"lockHttpd"};
        options.log_level = KORVEX_LOG_TRACE;  // the table's "hashItemNum" line is a trace line
        use_env(options);
    }

    void SetUp() override {
        GatewayTest::SetUp();
        if (!env().has_isolation()) GTEST_SKIP() << "needs the server's private /tmp";
    }
};

TEST_F(LockFileTest, ServerStartsAndCommandsWork) {
    struct stat st{};
    ASSERT_EQ(stat(env().server_tmp_path("lockHttpd").c_str(), &st), 0);
    EXPECT_TRUE(S_ISDIR(st.st_mode)) << "the obstacle is still in place";

    SimClient sim(env().bus_address());
    sim.reset();
    HttpResponse response = get(port(), "/network.cgi?test=1");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "in testAPI, value: 1<br>test done");
    EXPECT_EQ(sim.records().size(), 1u);

    // The table was built and kept, whatever became of the lock.
    EXPECT_EQ(module_log_lines(env().error_log(), "hashItemNum").size(), 1u);
    // The obstacle was really met: exactly one failure, at the first configuration pass.
    EXPECT_EQ(module_log_lines(env().error_log(), "apr_global_mutex_create"),
              std::vector<std::string>{"[korvex:error] [pid N] shm_counter_post_config:L apache: "
                                       "apr_global_mutex_create failed: File exists"});
}

}  // namespace
}  // namespace korvex::test
