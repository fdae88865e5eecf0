// The gateway comes up and answers: the module's test command and the static index.
#include <fstream>
#include <sstream>

#include "tests/support/gateway_env.h"
#include "tests/support/http_client.h"

namespace korvex::test {
namespace {

class SmokeTest : public GatewayTest {
protected:
    static void SetUpTestSuite() { use_log_level(KORVEX_LOG_TRACE); }
};

TEST_F(SmokeTest, TestCommandAnswers) {
    HttpResponse response = get(port(), "/network.cgi?test=0");
    ASSERT_EQ(response.error, "");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "in testAPI, value: 0<br>test done");
}

TEST_F(SmokeTest, StaticIndexIsServed) {
    std::ifstream file(env().run_dir() + "/htdocs/index.html");
    std::stringstream expected;
    expected << file.rdbuf();

    HttpResponse response = get(port(), "/");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, expected.str());
    EXPECT_EQ(response.headers["content-type"], "text/html");
}

TEST_F(SmokeTest, ModuleTraceReachesTheErrorLog) {
    size_t before = env().error_log_size();
    ASSERT_EQ(get(port(), "/network.cgi?test=0").status, 200);
    EXPECT_TRUE(env().wait_for_log("[korvex:", std::chrono::seconds(5), before))
        << env().error_log_since(before);
}

}  // namespace
}  // namespace korvex::test
