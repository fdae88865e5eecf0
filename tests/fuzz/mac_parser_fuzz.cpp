// The MAC address parser: whatever it accepts prints back as six two-digit fields, and
// parses again to the same address.
#include <cstdlib>
#include <cstring>
#include <string>

#include "commands/system/mac_address.h"
#include "tests/fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    korvex::fuzz::InputPool pool;
    const std::string text = korvex::fuzz::as_text(data, size);
    korvex::mac::Address address{};
    if (!korvex::mac::parse(text.c_str(), &address)) return 0;
    const char *printed = korvex::mac::colon_text(pool.get(), address);
    if (std::strlen(printed) != 17) std::abort();
    korvex::mac::Address again{};
    if (!korvex::mac::parse(printed, &again) || std::memcmp(&again, &address, sizeof address) != 0) std::abort();
    return 0;
}
