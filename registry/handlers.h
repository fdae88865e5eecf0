// Declarations of every command handler in the catalog. Handlers are exported from the
// module under their own names with C linkage.
#pragma once

#include "base/apache_shim.h"
#include "base/export.h"

#define KORVEX_COMMAND(wire_name, handler) extern "C" KORVEX_EXPORT int handler(request_rec *r, char *value);
#include "registry/catalog.def"
#undef KORVEX_COMMAND
