// Thins out a log record that can repeat many times a second (a bus outage makes every
// call fail the same way): at most one record per interval, and the next record written
// says how many were left out meanwhile.
#pragma once

#include <chrono>
#include <mutex>

namespace korvex {

class LogRateLimit {
public:
    using Clock = std::chrono::steady_clock;

    explicit LogRateLimit(Clock::duration interval) : interval_(interval) {}

    // True when a record may be written at `now`; *left_out is then the number of records
    // held back since the last one written (and starts counting again from zero).
    bool allow(Clock::time_point now, unsigned *left_out) {
        std::lock_guard<std::mutex> hold(lock_);
        if (written_ && now - last_ < interval_) {
            ++held_back_;
            return false;
        }
        written_ = true;
        last_ = now;
        *left_out = held_back_;
        held_back_ = 0;
        return true;
    }

private:
    std::mutex lock_;
    const Clock::duration interval_;
    bool written_ = false;
    Clock::time_point last_{};
    unsigned held_back_ = 0;
};

}  // namespace korvex
