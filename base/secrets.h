// The one place that decides which settings are secrets: passwords, passphrases and
// account secrets. No log record shows the value of one; it shows kMaskedSecret instead.
#pragma once

#include <cstring>
#include <string_view>

namespace korvex {

inline constexpr char kMaskedSecret[] = "********";

// nvram keys (and the status snapshot's members of the same name) that hold secrets.
inline constexpr const char *kSecretKeys[] = {"SU_PASSWORD", "TUTK_PASSWORD",  "WPAPSK",
                                              "STA_WPAPSK",  "PPPoE_PassWord", "TelldusSecret"};

inline bool is_secret_key(const char *key) {
    if (key == nullptr) return false;
    for (const char *secret : kSecretKeys) {
        if (std::strcmp(key, secret) == 0) return true;
    }
    return false;
}

// Commands whose value is one of those secrets (the names clients send): no log shows what
// they were given, the server's access log included.
inline constexpr const char *kSecretCommands[] = {"setappwd",  "setstapwd", "setpppoepassword",
                                                  "setp2ppwd", "setSUpwd",  "setTelldusSecret"};

inline bool is_secret_command(std::string_view name) {
    for (const char *secret : kSecretCommands) {
        if (name == secret) return true;
    }
    return false;
}

// What a log record may show of the value stored under `key`.
inline const char *loggable_value(const char *key, const char *value) {
    return is_secret_key(key) ? kMaskedSecret : value;
}

}  // namespace korvex
