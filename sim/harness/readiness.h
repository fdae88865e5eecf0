// Bounded waits for the parts of a gateway to become ready, and what their logs say when
// they did not.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace korvex::harness {

enum class WaitResult { ready, gave_up, timed_out };

// Polls ready() every step until it holds; stops early when still_alive() turns false
// (the process that should get ready is gone) or after timeout.
WaitResult wait_until(const std::function<bool()> &ready, const std::function<bool()> &still_alive,
                      std::chrono::milliseconds timeout,
                      std::chrono::milliseconds step = std::chrono::milliseconds(50));

// One GET of 127.0.0.1:port/path over HTTP/1.0; the body of a 200 answer, or false.
bool http_get_body(int port, const std::string &path, std::string &body, int timeout_ms = 2000);

// True when something listens on the unix socket at path (a connect succeeds). The file
// appears when the daemon binds, a moment before it listens.
bool unix_socket_accepts(const std::string &path);

// The last lines of a file, under a heading naming it; "" for an empty or missing file.
std::string log_tail(const std::string &path, size_t lines = 25);

// True when a server's log says that its address was taken: "Address already in use",
// "(98)" (EADDRINUSE) or "could not bind".
bool says_address_in_use(const std::string &log_text);

// Offsets of log files at one moment, so that what a start-up wrote can be told from what
// earlier start-ups in the same run directory wrote.
class LogMarks {
public:
    explicit LogMarks(std::vector<std::string> paths);
    // The text each file gained since the marks were taken, concatenated.
    std::string since() const;

private:
    std::vector<std::string> paths_;
    std::vector<size_t> offsets_;
};

}  // namespace korvex::harness
