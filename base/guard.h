// Keeps C++ exceptions from crossing into the server: a hook body runs inside guarded(),
// which logs an escaping exception and returns the hook's fallback value instead.
#pragma once

#include <exception>

#include "base/log.h"

namespace korvex {

template <typename Body>
auto guarded(const char *hook, decltype(std::declval<Body>()()) fallback, Body &&body) noexcept
    -> decltype(body()) {
    try {
        return body();
    } catch (const std::exception &e) {
        korvex_log_write(KORVEX_LOG_ERROR, hook, __LINE__, KORVEX_LOG_TAG, "unexpected failure: %s\n", e.what());
    } catch (...) {
        korvex_log_write(KORVEX_LOG_ERROR, hook, __LINE__, KORVEX_LOG_TAG, "unexpected failure\n");
    }
    return fallback;
}

}  // namespace korvex
