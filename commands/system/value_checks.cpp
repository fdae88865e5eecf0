#include "commands/system/value_checks.h"

#include <arpa/inet.h>

#include <climits>
#include <cstdlib>
#include <cstring>

namespace korvex {

int leading_integer(const char *value) {
    const long number = std::strtol(value, nullptr, 10);
    if (number > INT_MAX) return INT_MAX;
    if (number < INT_MIN) return INT_MIN;
    return static_cast<int>(number);
}

}  // namespace korvex

namespace korvex::check {

namespace {
constexpr std::size_t kWifiTextMaxLength = 32;
constexpr std::size_t kAccountTextMaxLength = 63;
}

bool ipv4_address(const char *value) { return inet_addr(value) != INADDR_NONE; }

bool not_empty(const char *value) { return *value != '\0'; }

bool wifi_text_length(const char *value) { return std::strlen(value) <= kWifiTextMaxLength; }

bool account_text_length(const char *value) { return std::strlen(value) <= kAccountTextMaxLength; }

bool wan_connection_mode(const char *value) {
    return std::strcmp(value, "DHCP") == 0 || std::strcmp(value, "STATIC") == 0;
}

bool leading_zero_or_one(const char *value) {
    const int number = leading_integer(value);
    return number == 0 || number == 1;
}

bool leading_positive(const char *value) { return leading_integer(value) >= 1; }

}  // namespace korvex::check
