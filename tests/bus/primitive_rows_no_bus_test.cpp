// Each call primitive with no bus to connect to: the value it gives before anything is sent,
// and no "No reply" record (nothing was sent).
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tests/bus/fake_server.h"
#include "tests/bus/primitive_rows.h"
#include "tests/support/bus_env.h"

namespace korvex::test {
namespace {

class PrimitiveRowNoBusTest : public ::testing::TestWithParam<PrimitiveRow> {
protected:
    static void SetUpTestSuite() {
        setenv("KORVEX_LOG_LEVEL", "2", 1);
        // Read once by libdbus: set before the first connection is tried.
        setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/korvex-no-bus", 1);
        apr_initialize();
        server_ = new FakeServer();
    }
    static void TearDownTestSuite() {
        delete server_;
        apr_terminate();
    }
    static FakeServer *server_;
};

FakeServer *PrimitiveRowNoBusTest::server_ = nullptr;

TEST_P(PrimitiveRowNoBusTest, BeforeSendingGivesItsValueAndNoNoReplyRecord) {
    StderrCapture log;
    EXPECT_EQ(GetParam().call(server_->new_request()), GetParam().before_sending);
    EXPECT_NE(log.text().find(std::string(GetParam().name) + ":"), std::string::npos) << "its connection error";
    EXPECT_EQ(log.text().find("No reply"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Rows, PrimitiveRowNoBusTest, ::testing::ValuesIn(primitive_rows()),
                         [](const auto &info) { return std::string(info.param.name); });

}  // namespace
}  // namespace korvex::test
