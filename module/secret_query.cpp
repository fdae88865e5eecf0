#include "module/secret_query.h"

#include "base/secrets.h"

namespace korvex {
namespace {

int hex_digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The name as the argument parser hands it to the command table. A broken escape is kept
// as it stands there too.
std::string decoded_name(std::string_view name) {
    std::string out;
    out.reserve(name.size());
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] == '%' && i + 2 < name.size() && hex_digit(name[i + 1]) >= 0 && hex_digit(name[i + 2]) >= 0) {
            out += static_cast<char>(hex_digit(name[i + 1]) * 16 + hex_digit(name[i + 2]));
            i += 2;
        } else {
            out += name[i];
        }
    }
    return out;
}

}  // namespace

bool mask_secret_values(std::string_view query, std::string *masked) {
    bool changed = false;
    std::string out;
    out.reserve(query.size());
    std::size_t start = 0;
    while (start <= query.size()) {
        std::size_t end = query.find('&', start);
        if (end == std::string_view::npos) end = query.size();
        const std::string_view pair = query.substr(start, end - start);
        const std::size_t equals = pair.find('=');
        if (equals != std::string_view::npos && equals + 1 < pair.size() &&
            is_secret_command(decoded_name(pair.substr(0, equals)))) {
            out.append(pair.substr(0, equals + 1));
            out.append(kMaskedSecret);
            changed = true;
        } else {
            out.append(pair);
        }
        if (end == query.size()) break;
        out += '&';
        start = end + 1;
    }
    if (changed) *masked = std::move(out);
    return changed;
}

}  // namespace korvex
