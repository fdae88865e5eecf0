// What a log record shows in place of a password, passphrase or account secret.
#pragma once

namespace korvex {

inline constexpr char kMaskedSecret[] = "********";

}  // namespace korvex
