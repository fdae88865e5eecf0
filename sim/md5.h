// MD5 digest, as the platform daemon reports checksums of the Wi-Fi settings.
#pragma once

#include <string>

namespace korvex::sim {

// Lower-case hexadecimal MD5 digest (32 characters) of `data`.
std::string md5_hex(const std::string &data);

}  // namespace korvex::sim
