// Stopping the gateway of an owner that is gone (see sweep_orphans in gateway.h).
#pragma once

#include <chrono>
#include <string>

namespace korvex::harness {

// True when RUN_DIR names an owner (RUN_DIR/pids/owner) and that process is gone.
bool owner_gone(const std::string &run_dir);

// The watcher's loop: waits while the owner of RUN_DIR runs, then stops its gateway.
// 1 when it stopped something, 0 when nothing was left running.
int watch_owner(const std::string &run_dir, std::chrono::milliseconds step = std::chrono::milliseconds(200));

}  // namespace korvex::harness
