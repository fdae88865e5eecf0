// The gateway's two firmware programs. An update is under way while a process of either
// name exists; the module keeps no update state of its own.
#pragma once

#include "base/process_scan.h"

namespace korvex::updater {

// Asks the update server what is available and downloads it.
inline constexpr char kCheckUpdate[] = "checkupdate";
// Writes an image to flash.
inline constexpr char kUpdate[] = "update";

inline bool check_update_running() { return proc_find(kCheckUpdate) != -1; }
inline bool update_running() { return proc_find(kUpdate) != -1; }

}  // namespace korvex::updater
