// List queries: one method call each, whose reply's first argument is a container of
// elements; the elements come back as an intrusive ring whose head, nodes and texts live in
// the request pool. Nodes are cleared at construction, so a field the reply does not supply
// is null (or 0). An empty container gives an empty ring.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/apache_shim.h"
#include "base/list_link.h"

struct AllocatedMemNode {
    char *line;
    ListLink link;
};

struct OomNode {
    uint32_t pid;
    char *name;
    char *score;
    ListLink link;
};

struct SsidNode {
    char *ssid;
    ListLink link;
};

struct NvramListNode {
    char *line;
    ListLink link;
};

struct MemoryDebugNode {
    char *line;
    ListLink link;
};

// Node constructors: a cleared node from the request pool with its link pointing to itself;
// null (logged "calloc fail") when the pool cannot give memory.
AllocatedMemNode *callocAllocatedMem(request_rec *r);
OomNode *callocOOM(request_rec *r);
SsidNode *callocSsidNode(request_rec *r);
NvramListNode *callocNvramList(request_rec *r);
MemoryDebugNode *callocMemoryDebug(request_rec *r);

// Fetchers: the ring head, or null when no reply came (or the call could not be made).
// The SDK daemon's allocated-memory lines.
ListLink *korvex_dbus_message_get_allocatedMem_list(request_rec *r);
// The watchdog's out-of-memory table: per process a 32-bit id, its name, its score and one
// element that is skipped.
ListLink *korvex_dbus_message_get_oom_score_list(request_rec *r);
// The platform daemon's nvram listing; value is sent as it is.
ListLink *korvex_dbus_message_get_nvram_list(request_rec *r, const char *value);
// The platform daemon's refreshed list of Wi-Fi network names.
ListLink *korvex_dbus_message_wifi_ssid_refresh(request_rec *r);

// A daemon's memory-debug lines. The call goes to the application daemon when process is
// "app", otherwise without destination; its log lines name `func`.
ListLink *korvex_dbus_message_get_memory_debug_list(request_rec *r, const char *process, const char *func);
