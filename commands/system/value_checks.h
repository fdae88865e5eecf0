// Tests that settings commands apply to a value before they store it. Each has the
// ValueCheck signature of the store rules (korvex::shape::StoreRule::accepts).
#pragma once

namespace korvex {

// The leading decimal integer of a text as atoi reads it ("abc" reads 0, "5min" reads 5),
// saturated at the int range as on the gateway, where long and int have the same width.
int leading_integer(const char *value);

}  // namespace korvex

namespace korvex::check {

// inet_addr's test: dotted quads and its short, hexadecimal and octal forms pass; text it
// cannot read fails, and so does "255.255.255.255", which equals its error value.
bool ipv4_address(const char *value);
// Not the empty text.
bool not_empty(const char *value);
// At most 32 bytes (SSIDs and Wi-Fi passphrases).
bool wifi_text_length(const char *value);
// At most 63 bytes (the P2P account's name and passwords).
bool account_text_length(const char *value);
// Exactly "DHCP" or "STATIC".
bool wan_connection_mode(const char *value);
// The leading integer is 0 or 1 ("abc" reads 0, "1x" reads 1).
bool leading_zero_or_one(const char *value);
// The leading integer is 1 or more ("5min" reads 5).
bool leading_positive(const char *value);

}  // namespace korvex::check
