// A gateway fixture's tests on another MPM: `OnMpm<Fixture, kEventMpm>` is Fixture with a
// shared gateway of that MPM (and of the module log level given).
#pragma once

#include "korvex_log.h"
#include "tests/support/gateway_env.h"

namespace korvex::test {

inline constexpr char kWorkerMpm[] = "worker";
inline constexpr char kEventMpm[] = "event";

template <class Fixture, const char *Mpm, int LogLevel = KORVEX_LOG_STATE>
class OnMpm : public Fixture {
protected:
    static void SetUpTestSuite() {
        GatewayEnv::Options options;
        options.mpm = Mpm;
        options.log_level = LogLevel;
        Fixture::use_env(options);
    }
};

}  // namespace korvex::test
