// Shared set-up of the fuzz targets: APR initialised once, a pool per input.
#pragma once

#include <apr_general.h>
#include <apr_pools.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace korvex::fuzz {

// A pool that lives for one input.
class InputPool {
public:
    InputPool() {
        static const bool initialised = apr_initialize() == APR_SUCCESS;
        (void)initialised;
        apr_pool_create(&pool_, nullptr);
    }
    ~InputPool() { apr_pool_destroy(pool_); }
    apr_pool_t *get() const { return pool_; }

private:
    apr_pool_t *pool_ = nullptr;
};

// The input as text, cut at its first NUL (what a C string of it would hold).
inline std::string as_text(const uint8_t *data, size_t size) {
    std::string text(reinterpret_cast<const char *>(data), size);
    return text.substr(0, text.find('\0'));
}

}  // namespace korvex::fuzz
