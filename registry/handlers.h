// Declarations of every command handler in the catalog. Handlers are exported from the
// module under their own names with C linkage.
#pragma once

#include "module/apache_shim.h"

#define KORVEX_EXPORT __attribute__((visibility("default")))

#define KORVEX_COMMAND(wire_name, handler) extern "C" KORVEX_EXPORT int handler(request_rec *r, char *value);
#include "registry/catalog.def"
#undef KORVEX_COMMAND
