// Per-thread private system-bus connections.
//
// Under prefork a child serves on the thread that ran child initialisation, so there is
// exactly one connection per child, filed under "Apache_mod_key_<tid>". Under threaded
// MPMs every serving thread opens its own connection on first use, filed the same way.
// A connection that the bus dropped is replaced on the next call.
#pragma once

#include "dbus/dbus_types.h"
#include "base/apache_shim.h"

// Opens a private system-bus connection and builds its record in pool; null on failure.
DbusData *dbus_init(apr_pool_t *pool);
// "Apache_mod_key_<tid>" for the calling thread, allocated from pool.
const char *getChildKey(apr_pool_t *pool);
// Pool clean-up: closes and releases the record's connection. Always 0.
apr_status_t dbus_plain_cleanup_func(void *data);
// Clean-up for a process forked to run another program: closes the connection's socket
// and nothing else (no lock, no libdbus: another thread of the parent may have held
// either at the fork). Always 0.
apr_status_t dbus_child_cleanup_func(void *data);

namespace korvex::dbus {

// Child start: remember the child pool (for connections opened later) and open the
// initialising thread's connection.
void child_init(apr_pool_t *child_pool, server_rec *s);

// The calling thread's connection record for this request, opening it when the thread
// has none or the connection is known to be gone. Null (after logging "dbusData is NULL")
// when the bus cannot be reached; `caller` names the primitive in that log line.
DbusData *lookup(request_rec *r, const char *caller);

// Counts a message that arrived for nobody (a late reply, the bus's own signals) and was
// dropped; dropped_message_count() tells how many this process dropped (tests, benchmarks).
void count_dropped_message();
unsigned long dropped_message_count();

// The calling thread's kernel id, asked of the kernel once per thread.
int current_tid();

}  // namespace korvex::dbus
