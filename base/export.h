// Marks a symbol that the module exports under its own name (command handlers and the
// shared integers); everything else stays hidden.
#pragma once

#define KORVEX_EXPORT __attribute__((visibility("default")))
