// A server process as the bus client sees it: process pool, child pool, and one request
// pool per call; the child's connection is opened as at child start.
#pragma once

#include "dbus/connection.h"
#include "base/apache_shim.h"

namespace korvex::test {

class FakeServer {
public:
    FakeServer() {
        apr_pool_create(&process_pool_, nullptr);
        apr_pool_create(&child_pool_, process_pool_);
        process_.pool = process_pool_;
        server_.process = &process_;
        korvex::dbus::child_init(child_pool_, &server_);
    }
    ~FakeServer() { end_child(); }
    FakeServer(const FakeServer &) = delete;
    FakeServer &operator=(const FakeServer &) = delete;

    request_rec *new_request() {
        auto *r = static_cast<request_rec *>(apr_pcalloc(process_pool_, sizeof(request_rec)));
        apr_pool_create(&r->pool, process_pool_);
        r->server = &server_;
        return r;
    }

    // The child ends: its pool (and with it every clean-up) goes away.
    void end_child() {
        if (process_pool_ == nullptr) return;
        apr_pool_destroy(process_pool_);
        process_pool_ = nullptr;
    }

private:
    apr_pool_t *process_pool_ = nullptr;
    apr_pool_t *child_pool_ = nullptr;
    process_rec process_{};
    server_rec server_{};
};

}  // namespace korvex::test
