// MAC addresses as the settings commands read and write them: six fields of at most two
// hexadecimal digits separated by colons, printed back as lower-case two-digit fields.
#pragma once

#include "base/apache_shim.h"

namespace korvex::mac {

// Full-width fields: the Wi-Fi address derived from an Ethernet one may carry 256 in its
// last field, which prints as "100".
struct Address {
    unsigned field[6];
};

// Reads "%02x:%02x:%02x:%02x:%02x:%02x" as sscanf does (each field at most two digits,
// either case), each field reduced modulo 256. False when fewer than six fields parse.
bool parse(const char *text, Address *out);

// "%02x:%02x:%02x:%02x:%02x:%02x" of the fields in order, or (reversed) from the last to
// the first, in the request pool.
const char *colon_text(apr_pool_t *pool, const Address &address);
const char *colon_text_reversed(apr_pool_t *pool, const Address &address);

// The next address of the same device: the last field plus one, with no carry.
Address next_in_block(const Address &address);

// The access point's default SSID for a Wi-Fi address: "skylane-%02x-%02x-%02x-%02x-%02x-%02x"
// for the 00:4f:61 block, otherwise "<model>-%02x:%02x:%02x:%02x:%02x:%02x".
const char *default_ssid(apr_pool_t *pool, const char *model, const Address &wifi);

// "<model>-<address>", the device name.
const char *device_name(apr_pool_t *pool, const char *model, const char *address_text);

}  // namespace korvex::mac
