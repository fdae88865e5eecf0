// Start-up and end of the simulator process.
#include <filesystem>
#include <fstream>

#include "tests/sim/private_gateway.h"
#include "tests/support/sim_client.h"

#include <gtest/gtest.h>

namespace korvex::test {
namespace {

TEST(SimulatorLifecycleTest, AnnouncesReadinessOnStdoutAndInTheReadyFile) {
    PrivateGateway gateway;
    EXPECT_TRUE(std::filesystem::exists(gateway.ready_file()));
    EXPECT_FALSE(std::filesystem::exists(gateway.ready_file() + ".tmp"));
    EXPECT_EQ(gateway.simulator_stdout(), "READY\n");
    SimClient sim(gateway.bus_address());
    EXPECT_EQ(sim.ping(), "pong");
}

TEST(SimulatorLifecycleTest, EndsWithStatusZeroOnSigterm) {
    PrivateGateway gateway;
    EXPECT_EQ(gateway.stop_simulator(), 0);
}

TEST(SimulatorLifecycleTest, EndsWithStatusOneWhenTheBusGoesAway) {
    PrivateGateway gateway;
    gateway.stop_bus();
    EXPECT_EQ(gateway.wait_for_simulator_exit(2000), 1);
}

TEST(SimulatorLifecycleTest, RefusesToStartWithoutItsSettingsFiles) {
    int status = std::system(KORVEX_BUILD_DIR "/sim/korvex-gateway-sim --nvram-file /tmp/x 2>/dev/null");
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 2);
}

}  // namespace
}  // namespace korvex::test
