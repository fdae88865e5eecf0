// Fixture for tests that upload firmware images to "update.cgi" and look at what the server
// stored in its private /tmp: the shared gateway (skipped without isolation, where there is
// no private /tmp) and a simulator client reset before every test.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "tests/support/gateway_env.h"
#include "tests/support/multipart.h"
#include "tests/support/sim_client.h"

namespace korvex::test {

class UploadFixture : public GatewayTest {
protected:
    void SetUp() override {
        GatewayTest::SetUp();
        if (::testing::Test::IsSkipped() || ::testing::Test::HasFatalFailure()) return;
        if (!env().has_isolation()) GTEST_SKIP() << "needs the server's private /tmp";
        sim_ = std::make_unique<SimClient>(env().bus_address());
        sim_->reset();
    }

    std::unique_ptr<SimClient> sim_;
};

}  // namespace korvex::test
