// Requests for the hostile-input sweeps: generators of random queries, values and names from
// a seeded engine (every run sends the same requests), and raw requests sent byte for byte.
#pragma once

#include <cctype>
#include <cstdint>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace korvex::test::hostile {

inline constexpr std::uint32_t kSeed = 0x6b6f7276;  // fixed: every run sends the same requests

// Commands that hand their value to a daemon over the bus.
inline const char *const kForwarding[] = {
    "json",          "easycmd",       "jsongettitles",   "jsongetgroup",     "jsongetall",
    "jsongetevent",  "jsongetmacroevent", "doscene",     "jsonsetall",       "jsondel",
    "jsonrename",    "doscenemode",   "setDST",          "getDST",           "p2preconnect",
    "jsonsetuserdata", "jsonsetcheckbox", "jsonsetcheckbox2", "setsavingtime", "enableastclock",
    "enableswitchall", "enabletimer", "enablelock",      "listnvram",
};

// Commands that ignore their value (or only read settings); "test" is left out on purpose:
// its value is a repeat count.
inline const char *const kOthers[] = {
    "jsongetupdate", "getdoscenemode", "jsongetuserdata", "jsongetcheckbox", "getp2preconnect",
    "getsavingtime", "getenablelock",  "listOOM",         "listAllocated",   "memusage",
    "authcode",      "sysinfo",        "proctable",       "removeappconfig", "backupappconfig",
};

// Pieces of values and names, already as they appear in a query string.
inline const char *const kPieces[] = {
    "%FF%FE",       "%C0%80",      "%ED%A0%80",  "%F4%90%80%80", "%80",     "%FE%FF%00",
    "%00",          "%",           "%z",         "%zz",          "%2",      "%25",
    "%2525",        "%2500",       "%25FF",      "+",            "%0A",     "%0D%0A",
    "%27",          "'",           "%22",        "%3Cb%3E",      "<i>",     "%7B%22cmd%22%3A%22x%22%7D",
    "{\"control\":", "%5C",        "..%2F..%2F", "$(reboot)",    "%24%28id%29", "`id`",
    ";",            "|",           "%26",        "%3D",          "%C3%A9",  "%E2%82%AC",
    "%F0%9F%98%80", "-1",          "99999999999999999999", "0x7fffffff", "%09", "%7F",
    "null",         "[[[[[[[[",    "\\u0000",    "%u0041",       "%%%",     "%%41",
};

class Random {
public:
    explicit Random(std::uint32_t seed) : engine_(seed) {}
    // Uniform enough for a sweep, and the same on every standard library.
    std::size_t below(std::size_t n) { return static_cast<std::size_t>(engine_() % n); }
    bool chance(unsigned percent) { return below(100) < percent; }
    template <std::size_t N>
    const char *pick(const char *const (&list)[N]) {
        return list[below(N)];
    }

private:
    std::mt19937 engine_;
};

inline std::string percent_byte(unsigned byte) {
    static const char kHex[] = "0123456789ABCDEF";
    return std::string("%") + kHex[byte >> 4] + kHex[byte & 15];
}

// A value: pieces, random escaped bytes and plain letters.
inline std::string random_value(Random &random) {
    std::string value;
    const std::size_t parts = random.below(7);
    for (std::size_t i = 0; i < parts; ++i) {
        switch (random.below(4)) {
            case 0:
            case 1:
                value += random.pick(kPieces);
                break;
            case 2:
                value += percent_byte(static_cast<unsigned>(random.below(256)));
                break;
            default:
                value += std::string(1 + random.below(12), static_cast<char>('a' + random.below(26)));
                break;
        }
    }
    if (random.chance(3)) value += std::string(1000 + random.below(2000), 'V');
    return value;
}

inline std::string random_name(Random &random) {
    const std::size_t kind = random.below(10);
    if (kind < 6) return random.pick(kForwarding);
    if (kind < 7) return random.pick(kOthers);
    if (kind < 8) return std::string(random.pick(kForwarding)) + random.pick(kPieces);
    return random_value(random);
}

// name=value pairs joined by '&', with the odd missing '=' or doubled separator.
inline std::string random_query(Random &random, std::size_t count) {
    std::string query;
    for (std::size_t i = 0; i < count; ++i) {
        if (i != 0) query += random.chance(10) ? "&&" : "&";
        query += random_name(random);
        if (!random.chance(10)) query += (random.chance(5) ? "==" : "=") + random_value(random);
    }
    return query;
}

// A POST body with one malformed escape anywhere is refused as a whole before it is split,
// so most bodies get their lone '%' signs escaped and reach the commands.
inline std::string repair_escapes(const std::string &text) {
    auto hex = [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; };
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool escape = text[i] == '%' && i + 2 < text.size() && hex(text[i + 1]) && hex(text[i + 2]);
        out += text[i] == '%' && !escape ? std::string("%25") : std::string(1, text[i]);
    }
    return out;
}

// Escapes the bytes the server refuses in a request line (blanks, controls, high bytes,
// quotes, braces...), so the query reaches the module; '%' signs stay as they are.
inline std::string line_safe(const std::string &text) {
    std::string out;
    for (char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte <= 0x20 || byte >= 0x7f || std::strchr("\"<>\\^`{|}", c) != nullptr) {
            out += percent_byte(byte);
        } else {
            out += c;
        }
    }
    return out;
}

inline std::string raw_get(const std::string &target) {
    return "GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n";
}

// A POST with the given header lines (Content-Length and Transfer-Encoding are the
// caller's) and body, sent byte for byte.
inline std::string raw_post(const std::string &target, const std::vector<std::string> &headers, const std::string &body) {
    std::string request = "POST " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n";
    for (const std::string &header : headers) request += header + "\r\n";
    return request + "\r\n" + body;
}

inline std::string with_length(const std::string &target, const std::string &body) {
    return raw_post(target, {"Content-Type: application/x-www-form-urlencoded",
                             "Content-Length: " + std::to_string(body.size())},
                    body);
}

inline std::string chunk(const std::string &data) {
    std::ostringstream out;
    out << std::hex << data.size() << "\r\n" << data << "\r\n";
    return out.str();
}

}  // namespace korvex::test::hostile
