// Options of "korvex-gateway up" and "run", turned into a GatewaySpec.
#pragma once

#include <string>
#include <vector>

#include "sim/harness/gateway.h"

namespace korvex::harness::cli {

// Thrown for options that make no sense; main prints the usage.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The gateway settings for run_dir with options applied (--port N|auto, --first-port N, --mpm M,
// --no-bus, --log-level L, --owner-pid PID, --build-dir DIR, --module FILE, --tmp-dir NAME,
// --sanitize). default_port: the port when --port is absent (0: auto).
GatewaySpec spec_from_options(const std::string &run_dir, const std::vector<std::string> &options,
                              int default_port);

// An absolute path for a run directory given on the command line.
std::string absolute_run_dir(const std::string &path);

}  // namespace korvex::harness::cli
