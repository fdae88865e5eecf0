#include "registry/deployment_settings.h"

#include <cstdlib>

namespace korvex::deployment {
namespace {

const char *g_orbweb_host = nullptr;

}  // namespace

void reset() { g_orbweb_host = nullptr; }

void set_orbweb_host(const char *host) { g_orbweb_host = host; }

const char *orbweb_host() {
    if (g_orbweb_host != nullptr) return g_orbweb_host;
    const char *from_environment = std::getenv(kOrbwebHostVariable);
    return (from_environment != nullptr && *from_environment != '\0') ? from_environment : nullptr;
}

}  // namespace korvex::deployment
