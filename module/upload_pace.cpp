#include "module/upload_pace.h"

namespace korvex {

namespace {
constexpr apr_interval_time_t kLeastWait = 1000;  // 1 ms
}

apr_interval_time_t UploadPace::wait_left(apr_time_t now) const {
    const apr_interval_time_t left = window_start_ + kPaceWindow - now;
    if (left <= kLeastWait) return kLeastWait;
    return (left + kLeastWait - 1) / kLeastWait * kLeastWait;
}

void UploadPace::took(std::size_t bytes, apr_time_t now) {
    bytes_ += bytes;
    if (bytes_ >= kPaceBytes) {
        bytes_ = 0;
        window_start_ = now;
    }
}

bool UploadPace::too_slow(apr_time_t now) const { return bytes_ < kPaceBytes && now - window_start_ >= kPaceWindow; }

}  // namespace korvex
