// One private bus with the simulator for a whole test suite; every test starts from a
// reset simulator with a fresh control client and a fresh caller connection.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "dbus/peer_catalog.h"
#include "tests/sim/private_gateway.h"
#include "tests/sim/raw_bus_caller.h"
#include "tests/support/sim_client.h"

namespace korvex::test {

class SimulatorTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { gateway_ = new PrivateGateway(); }
    static void TearDownTestSuite() {
        delete gateway_;
        gateway_ = nullptr;
    }

    void SetUp() override {
        sim_ = std::make_unique<SimClient>(gateway_->bus_address());
        sim_->reset();
        caller_ = std::make_unique<RawBusCaller>(gateway_->bus_address());
    }

    inline static PrivateGateway *gateway_ = nullptr;
    std::unique_ptr<SimClient> sim_;
    std::unique_ptr<RawBusCaller> caller_;
};

}  // namespace korvex::test
