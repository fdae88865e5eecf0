/* Gateway nvram library: sectioned key-value store with a working copy and commit. */
#ifndef KORVEX_NVRAM_H
#define KORVEX_NVRAM_H

#ifdef __cplusplus
extern "C" {
#endif

/* Value of key in section, or "" when the key is not set. The text stays valid
 * until the next nvram_bufset or nvram_commit on that section. NULL for an invalid section. */
const char *nvram_bufget(int section, const char *key);
/* Changes the working copy; 0 on success, -1 on failure. */
int nvram_bufset(int section, const char *key, const char *value);
/* Writes the working copy of section to its backing file; 0 on success, -1 on failure. */
int nvram_commit(int section);

#ifdef __cplusplus
}
#endif
#endif
