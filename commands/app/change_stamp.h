// Change stamps: the times (seconds since the epoch) of the last change of the application
// data and of the user data. Each lives in a process-wide exported integer and is mirrored
// as "%d" text in the nvram key of the same name, so that clients polling the status
// snapshot can tell that a cached copy is stale.
#pragma once

#include "base/apache_shim.h"
#include "base/export.h"

extern "C" KORVEX_EXPORT int jsonsetall_number;
extern "C" KORVEX_EXPORT int jsongetuserdata_number;

namespace korvex {

inline constexpr char kJsonSetAllNumberKey[] = "jsonsetall_number";
inline constexpr char kJsonGetUserdataNumberKey[] = "jsongetuserdata_number";

// jsonsetall_number := time(); its text stored under "jsonsetall_number" (no commit).
// Returns the stamp text (request pool).
const char *stamp_application_change(request_rec *r);

// jsongetuserdata_number := time(); its text stored under "jsongetuserdata_number" (no
// commit). Returns the stamp text (request pool).
const char *stamp_user_data_change(request_rec *r);

}  // namespace korvex
