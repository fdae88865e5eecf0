#include "commands/system/mac_address.h"

#include <cstdio>

#include "base/absent_text.h"

namespace korvex::mac {

namespace {

constexpr unsigned kSkylaneBlock[3] = {0x00, 0x4f, 0x61};

}  // namespace

bool parse(const char *text, Address *out) {
    unsigned f[6] = {0, 0, 0, 0, 0, 0};
    if (std::sscanf(text, "%02x:%02x:%02x:%02x:%02x:%02x", &f[0], &f[1], &f[2], &f[3], &f[4], &f[5]) != 6) {
        return false;
    }
    for (int i = 0; i < 6; ++i) out->field[i] = f[i] % 256;
    return true;
}

const char *colon_text(apr_pool_t *pool, const Address &a) {
    const unsigned *f = a.field;
    return apr_psprintf(pool, "%02x:%02x:%02x:%02x:%02x:%02x", f[0], f[1], f[2], f[3], f[4], f[5]);
}

const char *colon_text_reversed(apr_pool_t *pool, const Address &a) {
    const unsigned *f = a.field;
    return apr_psprintf(pool, "%02x:%02x:%02x:%02x:%02x:%02x", f[5], f[4], f[3], f[2], f[1], f[0]);
}

Address next_in_block(const Address &address) {
    Address next = address;
    next.field[5] += 1;
    return next;
}

const char *default_ssid(apr_pool_t *pool, const char *model, const Address &wifi) {
    const unsigned *f = wifi.field;
    if (f[0] == kSkylaneBlock[0] && f[1] == kSkylaneBlock[1] && f[2] == kSkylaneBlock[2]) {
        return apr_psprintf(pool, "skylane-%02x-%02x-%02x-%02x-%02x-%02x", f[0], f[1], f[2], f[3], f[4], f[5]);
    }
    return device_name(pool, model, colon_text(pool, wifi));
}

const char *device_name(apr_pool_t *pool, const char *model, const char *address_text) {
    return apr_psprintf(pool, "%s-%s", or_absent(model), address_text);
}

}  // namespace korvex::mac
