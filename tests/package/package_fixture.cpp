#include "tests/package/package_fixture.h"

#include <pwd.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <optional>
#include <utility>
#include <vector>

#include "sim/harness/gateway.h"

namespace korvex::test::package {
namespace {

struct Prepared {
    bool done = false;
    std::string skip_reason;  // the machine cannot run the test
    std::string error;        // the packages could not be built or extracted
    std::optional<ExtractedPackages> packages;
};

Prepared &prepared() {
    static Prepared state;
    return state;
}

std::string missing_prerequisite() {
    if (geteuid() != 0 || getpwnam("www-data") == nullptr)
        return "the package test needs root and a www-data account (the server and the bus policy run as www-data)";
    return "";
}

// Removes the run directory when every test passed; names it otherwise.
class RunDirKeeper : public ::testing::Environment {
public:
    void TearDown() override {
        const Prepared &state = prepared();
        if (!state.packages) return;
        const std::string &run_dir = state.packages->run_dir;
        if (::testing::UnitTest::GetInstance()->Passed()) {
            std::error_code ec;
            std::filesystem::remove_all(run_dir, ec);
        } else {
            std::cout << "package test: run directories kept in " << run_dir << "\n";
        }
    }
};

[[maybe_unused]] ::testing::Environment *const kRunDirKeeper =
    ::testing::AddGlobalTestEnvironment(new RunDirKeeper);

}  // namespace

void PackageTest::SetUpTestSuite() {
    Prepared &state = prepared();
    if (state.done) return;
    state.done = true;
    state.skip_reason = missing_prerequisite();
    if (!state.skip_reason.empty()) return;
    try {
        const std::string run_dir = harness::make_run_dir("package");
        build_packages_if_stale(KORVEX_SOURCE_DIR, KORVEX_DEB_DIR, run_dir + "/build-deb.log");
        state.packages = extract_packages(KORVEX_DEB_DIR, run_dir);
    } catch (const std::exception &e) {
        state.error = e.what();
    }
}

void PackageTest::SetUp() {
    const Prepared &state = prepared();
    if (!state.skip_reason.empty()) GTEST_SKIP() << state.skip_reason;
    ASSERT_TRUE(state.packages) << "the packages are not extracted: " << state.error;
}

bool PackageTest::ready() { return prepared().packages.has_value(); }

const ExtractedPackages &PackageTest::packages() { return *prepared().packages; }

std::unique_ptr<ShippedGateway> ShippedGatewayTest::gateway_;
std::string ShippedGatewayTest::start_error_;

void ShippedGatewayTest::start_gateway(const ShippedGatewayPlan &plan) {
    gateway_.reset();
    start_error_.clear();
    if (!ready()) return;
    try {
        gateway_ = std::make_unique<ShippedGateway>(packages(), plan);
    } catch (const std::exception &e) {
        start_error_ = "the gateway " + plan.name + " did not start: " + e.what();
    }
}

void ShippedGatewayTest::stop_gateway() { gateway_.reset(); }

void ShippedGatewayTest::SetUp() {
    PackageTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    ASSERT_TRUE(gateway_) << start_error_;
    gateway_->sim().clear_records();
}

ShippedGateway &ShippedGatewayTest::gateway() { return *gateway_; }

void ShippedGatewayTest::seed_snapshot_settings() {
    static const std::vector<std::pair<std::string, std::string>> kSettings = {
        {"jsonsetall_number", "1760518412"}, {"jsongetuserdata_number", "1760432011"},
        {"setastclock_lon", "13.4050"},      {"setastclock_lat", "52.5200"},
        {"TUTK_UUID", "E7KA9ZB1XH4WTRGU111A"}, {"UUID", "4F61A2C95DE3B07810KQ"},
        {"WifiMode", "AP"},                  {"SSID1", "Korvex-QTR58-3457"},
        {"STA_SSID1", "Vodafone-7A21"},      {"TimeZone", "MET_001"},
        {"jsonsetcheckbox", "3"},            {"jsonsetcheckbox2", "0"},
        {"SU_PASSWORD", "su7Qx2rT"},         {"enablelock", "0"},
        {"enableastclock", "1"},             {"doscenemode", "2"},
        {"language", "1"}};
    for (const auto &[key, value] : kSettings) gateway().sim().nvram_put(key, value, true);
}

}  // namespace korvex::test::package
