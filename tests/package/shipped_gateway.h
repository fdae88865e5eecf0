// One gateway made of what the Debian packages ship, started by the harness library
// (sim/harness/gateway.h) in a run directory of its own: Debian's apache2 (event MPM, as
// www-data in its own namespaces) with the packaged korvex.load (its module path moved
// into the extracted tree, the only change) and korvex.conf (unchanged), the packaged
// platform library, and a private bus that denies by default around a module policy.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sim/harness/gateway.h"
#include "tests/package/extracted_packages.h"
#include "tests/support/http_client.h"
#include "tests/support/sim_client.h"

namespace korvex::test::package {

// The account of the authentication snippet's password file.
inline constexpr char kAuthUser[] = "installer";
inline constexpr char kAuthPassword[] = "k0rvex-Install";

struct ShippedGatewayPlan {
    std::string name;           // of its run directory, under the packages' run directory
    std::string module_policy;  // the bus policy file of the module (shipped or a copy)
    // Adds the packaged korvex-auth.conf, its password file moved into the run directory
    // and holding kAuthUser.
    bool with_auth = false;
};

class ShippedGateway {
public:
    // Starts bus, simulator and server; throws harness::StartError or std::runtime_error.
    ShippedGateway(const ExtractedPackages &packages, const ShippedGatewayPlan &plan);
    ~ShippedGateway();
    ShippedGateway(const ShippedGateway &) = delete;
    ShippedGateway &operator=(const ShippedGateway &) = delete;

    int port() const { return gateway_->facts().port; }
    const std::string &bus_address() const { return gateway_->facts().bus_address; }
    const std::string &run_dir() const { return gateway_->facts().run_dir; }
    SimClient &sim() { return *sim_; }

    // GET of target; with credentials ("user:password") as Basic authentication.
    HttpResponse get(const std::string &target, const std::string &credentials = "") const;

    // The simulator's records of calls of `member`.
    std::vector<SimRecord> calls_of(const std::string &member);
    // Sends "network.cgi?reflash=all" and waits up to timeout_ms for the simulator to
    // receive the rewriteEntire signal it broadcasts; the signals received by then.
    // answer gets the body of the reflash request.
    std::vector<SimRecord> reflash_signals(int timeout_ms, std::string &answer);

private:
    std::unique_ptr<harness::Gateway> gateway_;
    std::unique_ptr<SimClient> sim_;
};

}  // namespace korvex::test::package
