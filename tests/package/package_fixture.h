// Fixtures of the package test. The packages of the build tree are brought up to date and
// extracted once per test binary into one run directory (under $KORVEX_RUN_ROOT or
// /var/tmp/korvex-runs), which is removed when every test passed and kept otherwise.
// The test needs root and a www-data account (the server and the bus policy run as
// www-data); without them every test is skipped.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/package/extracted_packages.h"
#include "tests/package/shipped_gateway.h"

namespace korvex::test::package {

class PackageTest : public ::testing::Test {
protected:
    // Builds (when stale) and extracts the packages, once.
    static void SetUpTestSuite();
    // Skips without root or www-data; fails when the packages could not be extracted.
    void SetUp() override;
    // True when the packages are extracted and the tests can go on.
    static bool ready();
    static const ExtractedPackages &packages();
};

// A suite sharing one gateway of the packages: a fixture derived from it starts it in its
// SetUpTestSuite (start_gateway) and stops it in TearDownTestSuite (stop_gateway). Every
// test starts with the simulator's records cleared.
class ShippedGatewayTest : public PackageTest {
protected:
    void SetUp() override;
    static void start_gateway(const ShippedGatewayPlan &plan);
    static void stop_gateway();
    static ShippedGateway &gateway();
    static int port() { return gateway().port(); }
    // The settings the status snapshot is checked with (as in the end-to-end tests).
    static void seed_snapshot_settings();

private:
    static std::unique_ptr<ShippedGateway> gateway_;
    static std::string start_error_;
};

}  // namespace korvex::test::package
