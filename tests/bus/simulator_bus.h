// The suite-wide set-up of the bus-client tests: a private bus with the simulator on it, a
// client of the simulator and a fake server whose child connection is open. `Base` is the
// googletest base (a plain or a parameterised test).
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/bus/fake_server.h"
#include "tests/support/bus_env.h"
#include "tests/support/sim_client.h"

namespace korvex::test {

template <class Base = ::testing::Test>
class WithSimulatorBus : public Base {
protected:
    static void SetUpTestSuite() {
        setenv("KORVEX_LOG_LEVEL", "2", 1);
        apr_initialize();
        bus_ = new BusEnv();
        sim_ = new SimClient(bus_->address());
        server_ = new FakeServer();
    }
    static void TearDownTestSuite() {
        delete server_;
        delete sim_;
        delete bus_;
        apr_terminate();
    }

    inline static BusEnv *bus_ = nullptr;
    inline static SimClient *sim_ = nullptr;
    inline static FakeServer *server_ = nullptr;
};

}  // namespace korvex::test
