// A raw client for requests a library client cannot send: a request in parts with pauses
// between them, a body that drips, a client that vanishes mid-request.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <string>

#include "tests/support/http_client.h"

namespace korvex::test {

class RawClient {
public:
    explicit RawClient(int port) {
        fd_ = open_loopback_connection(port);
        if (fd_ < 0) ADD_FAILURE() << "cannot connect to port " << port;
    }
    ~RawClient() { vanish(); }
    RawClient(const RawClient &) = delete;
    RawClient &operator=(const RawClient &) = delete;

    // False when the server no longer takes bytes (it closed or reset the connection).
    bool send(const std::string &bytes) {
        size_t sent = 0;
        while (sent < bytes.size()) {
            const ssize_t n = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (n <= 0) return false;
            sent += static_cast<size_t>(n);
        }
        return true;
    }
    // True when the server sent something (or closed) within timeout_ms.
    bool readable(int timeout_ms) const {
        pollfd p{fd_, POLLIN, 0};
        return poll(&p, 1, timeout_ms) > 0;
    }
    // Everything the server sends until it closes, or until timeout_ms pass.
    std::string answer(int timeout_ms) {
        timeval timeout{timeout_ms / 1000, (timeout_ms % 1000) * 1000};
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        std::string text;
        char buffer[4096];
        for (ssize_t n; (n = read(fd_, buffer, sizeof buffer)) > 0;) text.append(buffer, static_cast<size_t>(n));
        return text;
    }
    // The answer, parsed.
    HttpResponse response(int timeout_ms) { return parse_raw_response(answer(timeout_ms)); }
    void vanish() {
        if (fd_ >= 0) close(fd_);
        fd_ = -1;
    }

private:
    int fd_ = -1;
};

}  // namespace korvex::test
