// Start-up and end of the simulator process.
#include <filesystem>
#include <fstream>

#include "tests/support/bus_env.h"
#include "tests/support/sim_client.h"

#include <gtest/gtest.h>

namespace korvex::test {
namespace {

TEST(SimulatorLifecycleTest, AnnouncesReadinessOnItsOutputAndInTheReadyFile) {
    BusEnv bus;
    EXPECT_TRUE(std::filesystem::exists(bus.ready_file()));
    EXPECT_FALSE(std::filesystem::exists(bus.ready_file() + ".tmp"));
    EXPECT_EQ(bus.simulator_output(), "READY\n");
    SimClient sim(bus.address());
    EXPECT_EQ(sim.ping(), "pong");
}

TEST(SimulatorLifecycleTest, EndsWithStatusZeroOnSigterm) {
    BusEnv bus;
    EXPECT_EQ(bus.stop_simulator(), 0);
}

TEST(SimulatorLifecycleTest, EndsWithStatusOneWhenTheBusGoesAway) {
    BusEnv bus;
    bus.stop_bus();
    EXPECT_EQ(bus.wait_for_simulator_exit(2000), 1);
}

TEST(SimulatorLifecycleTest, RefusesToStartWithoutItsSettingsFiles) {
    int status = std::system(KORVEX_BUILD_DIR "/sim/korvex-gateway-sim --nvram-file /tmp/x 2>/dev/null");
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 2);
}

}  // namespace
}  // namespace korvex::test
