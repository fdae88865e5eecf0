// The 433 MHz test frames the Telldus bridge transmits: comma-separated two-digit
// lower-case hexadecimal bytes. A header, a start symbol, then a 32-bit code, most
// significant bit first, each bit as four bytes.
#pragma once

#include <cstdint>
#include <string>

namespace korvex::rf433 {

// The code of the test device; bit 4 is its on/off bit.
inline constexpr uint32_t kOnCode = 0xBAD7D511u;
inline constexpr uint32_t kOffCode = 0xBAD7D501u;

// 134 bytes: 401 characters.
std::string frame(uint32_t code);

}  // namespace korvex::rf433
