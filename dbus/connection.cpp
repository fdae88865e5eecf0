// Per-thread private system-bus connections, filed as user data of the process pool under
// "Apache_mod_key_<tid>".
#include "dbus/connection.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <utility>

#include "dbus/dbus_ptr.h"
#include "dbus/peer_catalog.h"
#include "base/log.h"
#include "base/process_lock.h"

namespace {

using korvex::dbus::ConnectionPtr;

// Guards the process pool's user data and the connection pool: under threaded MPMs several
// serving threads may open their connections at the same time, while others look up the
// module's record (getKorvexData) in the same user data.
std::mutex &g_registry_lock = korvex::process_userdata_lock();
// Records opened after child start (first use on a serving thread, or a child whose first
// attempt failed) live here; it is a sub-pool of the child pool, so they close with the child.
apr_pool_t *g_connection_pool = nullptr;
std::atomic<unsigned long> g_dropped_messages{0};

// The thread id is part of every lookup key; asking the kernel once per thread keeps the
// system call off the path of every bus call. A forked child starts with its own threads,
// so the cached value is forgotten there.
thread_local int t_tid = 0;
std::once_flag g_atfork_once;
void forget_tid_after_fork() { t_tid = 0; }

// While the bus is down every call tries to connect and fails the same way; the server's
// log sink writes such a repeated record at most once a second and counts the rest.
void log_connection_error(const char *reason) {
    korvex_log_write(KORVEX_LOG_ERROR, "dbus_init", __LINE__, KORVEX_LOG_TAG, "Connection Error (%s)\n", reason);
}

// The connection held by a record, taken out of it (closed when the result goes).
ConnectionPtr take_connection(DbusData *data) {
    data->fd = -1;
    return ConnectionPtr(std::exchange(data->conn, nullptr));
}

// Opens the private connection into `data`. On failure data->conn stays null.
bool connect_record(DbusData *data, apr_pool_t *pool) {
    korvex::dbus::Error error;
    ConnectionPtr conn(dbus_bus_get_private(DBUS_BUS_SYSTEM, error.get()));
    if (error.is_set() || !conn) {
        log_connection_error(error.is_set() ? error.message() : "no connection");
        return false;
    }
    korvex_log_write(KORVEX_LOG_TRACE, "dbus_init", __LINE__, KORVEX_LOG_TAG, "dbus_bus_get_private success.\n");
    // A bus that goes away must fail the call in progress, not end the server child.
    dbus_connection_set_exit_on_disconnect(conn.get(), FALSE);

    if (data->objPath == nullptr) {
        // Records filed after child start get their path when they are made; a record
        // without one here is new and is given one from `pool`.
        if (pool != nullptr) {
            data->objPath = apr_psprintf(pool, "%s/%d", korvex::peer::kObjectPathPrefix, korvex::dbus::current_tid());
        }
        if (data->objPath == nullptr) return false;
    }
    int fd = -1;
    data->fd = dbus_connection_get_socket(conn.get(), &fd) ? fd : -1;
    data->conn = conn.release();
    korvex_log_write(KORVEX_LOG_CHILD, "dbus_init", __LINE__, KORVEX_LOG_TAG, "objPath: %s\n", data->objPath);
    return true;
}

bool usable(const DbusData *data) {
    if (data == nullptr || data->conn == nullptr) return false;
    // A bus that went away between two calls has hung up the socket, but the connection
    // learns of it only when it next reads (libdbus ignores a failed write, so that what
    // is left can still be read). Look now, without waiting, so that a bus restarted
    // meanwhile gets a fresh connection instead of failing this call. This also takes in
    // whatever arrived since the last call (late replies), for the exchange to drop.
    dbus_connection_read_write(data->conn, 0);
    return dbus_connection_get_is_connected(data->conn);
}

}  // namespace

DbusData *dbus_init(apr_pool_t *pool) {
    KLOG(KORVEX_LOG_CHILD, "enter %s\n", "dbus_init");
    auto *data = static_cast<DbusData *>(apr_pcalloc(pool, sizeof(DbusData)));
    if (data == nullptr) {
        KLOG(KORVEX_LOG_ERROR, "apr_palloc failed\n");
        return nullptr;
    }
    data->fd = -1;
    if (!connect_record(data, pool)) return nullptr;
    KLOG(KORVEX_LOG_CHILD, "leave %s, dbusData->objPath: %s\n", "dbus_init", data->objPath);
    return data;
}

const char *getChildKey(apr_pool_t *pool) {
    return apr_psprintf(pool, "Apache_mod_key_%d", korvex::dbus::current_tid());
}

apr_status_t dbus_plain_cleanup_func(void *data) {
    auto *record = static_cast<DbusData *>(data);
    if (record == nullptr) {
        KLOG(KORVEX_LOG_ERROR, "dbusData is NULL\n");
        return APR_SUCCESS;
    }
    std::lock_guard<std::mutex> hold(g_registry_lock);
    take_connection(record);
    return APR_SUCCESS;
}

apr_status_t dbus_child_cleanup_func(void *data) {
    auto *record = static_cast<DbusData *>(data);
    if (record != nullptr && record->fd >= 0) close(record->fd);
    return APR_SUCCESS;
}

namespace korvex::dbus {

int current_tid() {
    if (t_tid == 0) {
        std::call_once(g_atfork_once, [] { pthread_atfork(nullptr, nullptr, forget_tid_after_fork); });
        t_tid = static_cast<int>(syscall(SYS_gettid));
    }
    return t_tid;
}

void child_init(apr_pool_t *child_pool, server_rec *s) {
    {
        std::lock_guard<std::mutex> hold(g_registry_lock);
        if (apr_pool_create(&g_connection_pool, child_pool) != APR_SUCCESS) g_connection_pool = child_pool;
    }
    DbusData *data = dbus_init(child_pool);
    if (data == nullptr) KLOG_AS(KORVEX_LOG_ERROR, "initialize_child", "dbusData is NULL\n");
    apr_pool_cleanup_register(child_pool, data, dbus_plain_cleanup_func, dbus_child_cleanup_func);
    std::lock_guard<std::mutex> hold(g_registry_lock);
    apr_pool_userdata_set(data, getChildKey(child_pool), apr_pool_cleanup_null, s->process->pool);
}

DbusData *lookup(request_rec *r, const char *caller) {
    const char *key = getChildKey(r->pool);
    apr_pool_t *process_pool = r->server->process->pool;

    DbusData *data = nullptr;
    {
        // Only the user data and the pools are shared; the record itself belongs to this
        // thread alone, so connecting happens outside the lock and a slow bus never holds
        // up the other serving threads.
        std::lock_guard<std::mutex> hold(g_registry_lock);
        void *found = nullptr;
        apr_pool_userdata_get(&found, key, process_pool);
        data = static_cast<DbusData *>(found);
        if (data == nullptr && g_connection_pool != nullptr) {
            // First use on this thread (threaded MPM), or the child's first attempt failed:
            // file one record for the thread, reused by every later attempt.
            data = static_cast<DbusData *>(apr_pcalloc(g_connection_pool, sizeof(DbusData)));
            data->fd = -1;
            data->objPath = apr_psprintf(g_connection_pool, "%s/%d", korvex::peer::kObjectPathPrefix, current_tid());
            apr_pool_userdata_set(data, apr_pstrdup(g_connection_pool, key), apr_pool_cleanup_null, process_pool);
            apr_pool_cleanup_register(g_connection_pool, data, dbus_plain_cleanup_func, dbus_child_cleanup_func);
        }
    }
    if (usable(data)) return data;
    if (data != nullptr) {
        // The bus dropped the connection (bus restarted) or it never opened: reopen.
        take_connection(data);
        connect_record(data, nullptr);
    }
    if (!usable(data)) {
        KLOG_AS(KORVEX_LOG_ERROR, caller, "dbusData is NULL\n");
        return nullptr;
    }
    return data;
}

void count_dropped_message() { g_dropped_messages.fetch_add(1, std::memory_order_relaxed); }

unsigned long dropped_message_count() { return g_dropped_messages.load(std::memory_order_relaxed); }

}  // namespace korvex::dbus
