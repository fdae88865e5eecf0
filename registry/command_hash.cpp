#include "registry/command_table.h"

uint32_t hashFunc(const char *name) {
    uint32_t h = 0;
    // Bytes are taken as signed chars, so bytes above 127 subtract; the sum wraps mod 2^32.
    for (const char *p = name; *p != '\0'; ++p) h = h * 37u + static_cast<uint32_t>(static_cast<signed char>(*p));
    return h;
}
