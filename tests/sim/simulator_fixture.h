// One private bus with the simulator for a whole test suite; every test starts from a
// reset simulator with a fresh control client and a fresh caller connection.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "dbus/peer_catalog.h"
#include "tests/sim/raw_bus_caller.h"
#include "tests/support/bus_env.h"
#include "tests/support/sim_client.h"

namespace korvex::test {

class SimulatorTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { bus_ = new BusEnv(); }
    static void TearDownTestSuite() {
        delete bus_;
        bus_ = nullptr;
    }

    void SetUp() override {
        sim_ = std::make_unique<SimClient>(bus_->address());
        sim_->reset();
        caller_ = std::make_unique<RawBusCaller>(bus_->address());
    }

    inline static BusEnv *bus_ = nullptr;
    std::unique_ptr<SimClient> sim_;
    std::unique_ptr<RawBusCaller> caller_;
};

}  // namespace korvex::test
