// The least an upload must deliver to keep its worker and the upload lock: kPaceBytes in
// every kPaceWindow. Each window begins when the one before it reached kPaceBytes (the
// first one at the first read), so a client that stalls, or sends a byte now and then, is
// given up at most kPaceWindow after its last kPaceBytes. No Apache calls: unit-tested with
// made-up clocks.
#pragma once

#include <apr_time.h>

#include <cstddef>

namespace korvex {

inline constexpr std::size_t kPaceBytes = 1024;
inline constexpr apr_interval_time_t kPaceWindow = apr_time_from_sec(10);

class UploadPace {
public:
    explicit UploadPace(apr_time_t start) : window_start_(start) {}

    // How long the next read may wait for data before the window runs out, in whole
    // milliseconds rounded up (at least 1 ms, so that a read is always tried): the socket
    // hands the wait to poll() in milliseconds, rounded down, and a time-out that came
    // before the window's end would not count as the pace running out.
    apr_interval_time_t wait_left(apr_time_t now) const;

    // Counts bytes that arrived at `now`; a window that reached kPaceBytes is over and the
    // next begins at now.
    void took(std::size_t bytes, apr_time_t now);

    // True once a window ran out before it reached kPaceBytes.
    bool too_slow(apr_time_t now) const;

private:
    apr_time_t window_start_;
    std::size_t bytes_ = 0;
};

}  // namespace korvex
