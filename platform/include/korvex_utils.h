/* Gateway utility library: time-zone table, memory purge, host-name look-up. */
#ifndef KORVEX_UTILS_H
#define KORVEX_UTILS_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Number of time zones the platform knows. */
int sdk_tz_count(void);
/* Time-zone string of zone i (0-based), or NULL when i is out of range. Owned by the library. */
const char *sdk_tz_get(int i);
/* Offset name of zone i (0-based), or NULL when i is out of range. Owned by the library. */
const char *sdk_gmt_get(int i);

/* Returns memory the process no longer needs to the system; level 0..100 says how hard to try.
 * Returns 0. */
int sys_mem_purge(int level);

/* Resolves host to a dotted IPv4 address text written into addr (size addr_len, NUL-terminated).
 * Returns 0 on success, -1 on failure. */
int chainX_nslookup(const char *host, char *addr, size_t addr_len);

#ifdef __cplusplus
}
#endif
#endif
