#include "module/cross_site_policy.h"

#include <arpa/inet.h>
#include <fnmatch.h>

#include <cstring>

namespace korvex::cross_site {
namespace {

// Longest host name the checks look at (DNS allows 253 characters).
constexpr std::size_t kMaxHost = 255;

char lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool equal_ci(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_alpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

bool valid_scheme(std::string_view scheme) {
    if (scheme.empty() || !is_alpha(scheme[0])) return false;
    for (char c : scheme) {
        if (!is_alpha(c) && !is_digit(c) && c != '+' && c != '-' && c != '.') return false;
    }
    return true;
}

// A registered name or an IPv4 literal: letters, digits, '-', '.', '_'.
bool valid_name(std::string_view host) {
    if (host.empty() || host.size() > kMaxHost) return false;
    for (char c : host) {
        if (!is_alpha(c) && !is_digit(c) && c != '-' && c != '.' && c != '_') return false;
    }
    return true;
}

bool parse_port(std::string_view digits, unsigned *port) {
    if (digits.empty() || digits.size() > 5) return false;
    unsigned value = 0;
    for (char c : digits) {
        if (!is_digit(c)) return false;
        value = value * 10 + static_cast<unsigned>(c - '0');
    }
    if (value == 0 || value > 65535) return false;
    *port = value;
    return true;
}

unsigned default_port(std::string_view scheme) {
    if (equal_ci(scheme, "http")) return 80;
    if (equal_ci(scheme, "https")) return 443;
    return 0;
}

// Splits "scheme://rest"; false without a valid scheme.
bool split_scheme(std::string_view text, std::string_view *scheme, std::string_view *rest) {
    const std::size_t colon = text.find("://");
    if (colon == std::string_view::npos) return false;
    *scheme = text.substr(0, colon);
    *rest = text.substr(colon + 3);
    return valid_scheme(*scheme);
}

bool origin_from_authority(std::string_view scheme, std::string_view authority, Origin *out) {
    std::string_view host;
    unsigned port = 0;
    if (!parse_host(authority, &host, &port)) return false;
    out->scheme = scheme;
    out->host = host;
    out->port = port != 0 ? port : default_port(scheme);
    return true;
}

bool is_trusted(const Policy &policy, const Origin &origin) {
    for (std::size_t i = 0; i < policy.trusted_count; ++i) {
        Origin trusted;
        if (parse_origin(policy.trusted_origins[i], &trusted) && same_origin(trusted, origin)) return true;
    }
    return false;
}

bool host_allowed(const Policy &policy, std::string_view host) {
    if (is_ip_literal(host) || equal_ci(host, "localhost")) return true;
    char name[kMaxHost + 1];
    if (host.size() > kMaxHost) return false;
    std::memcpy(name, host.data(), host.size());
    name[host.size()] = '\0';
    for (std::size_t i = 0; i < policy.allowed_count; ++i) {
        if (fnmatch(policy.allowed_hosts[i], name, FNM_CASEFOLD) == 0) return true;
    }
    return false;
}

// The request's own origin, from its scheme and Host header; false without a usable Host.
bool own_origin(const RequestHeaders &request, Origin *out) {
    if (request.host == nullptr) return false;
    return origin_from_authority(request.scheme, request.host, out);
}

// An origin the request came from (an Origin header, a Referer's origin): it passes when it
// is the request's own or a trusted one.
Decision judge_origin(const Policy &policy, const RequestHeaders &request, bool parsed, const Origin &from,
                      std::string_view evidence) {
    Origin own;
    if (parsed && ((own_origin(request, &own) && same_origin(own, from)) || is_trusted(policy, from))) return {};
    return {Verdict::kForeignOrigin, evidence};
}

// The origin part of a Referer ("scheme://authority"), for naming it: the rest of the
// address may carry private values.
std::string_view origin_part(std::string_view referer) {
    const std::size_t scheme_end = referer.find("://");
    if (scheme_end == std::string_view::npos) return referer;
    const std::size_t end = referer.find_first_of("/?#", scheme_end + 3);
    return referer.substr(0, end);
}

// What names the page a refused request came from.
std::string_view evidence_of(const RequestHeaders &request, std::string_view otherwise) {
    if (request.origin != nullptr) return request.origin;
    if (request.referer != nullptr) return origin_part(request.referer);
    return otherwise;
}

}  // namespace

bool parse_host(std::string_view header, std::string_view *host, unsigned *port) {
    *port = 0;
    if (!header.empty() && header[0] == '[') {
        const std::size_t close = header.find(']');
        if (close == std::string_view::npos) return false;
        *host = header.substr(0, close + 1);
        const std::string_view after = header.substr(close + 1);
        if (!after.empty() && (after[0] != ':' || !parse_port(after.substr(1), port))) return false;
        return is_ip_literal(*host);
    }
    const std::size_t colon = header.rfind(':');
    *host = header.substr(0, colon);
    if (colon != std::string_view::npos && !parse_port(header.substr(colon + 1), port)) return false;
    return valid_name(*host);
}

bool parse_origin(std::string_view text, Origin *out) {
    std::string_view scheme, authority;
    if (!split_scheme(text, &scheme, &authority)) return false;
    if (authority.find_first_of("/?#@") != std::string_view::npos) return false;
    return origin_from_authority(scheme, authority, out);
}

bool parse_url_origin(std::string_view url, Origin *out) {
    std::string_view scheme, rest;
    if (!split_scheme(url, &scheme, &rest)) return false;
    std::string_view authority = rest.substr(0, rest.find_first_of("/?#"));
    const std::size_t at = authority.rfind('@');
    if (at != std::string_view::npos) authority = authority.substr(at + 1);
    return origin_from_authority(scheme, authority, out);
}

bool same_origin(const Origin &a, const Origin &b) {
    return equal_ci(a.scheme, b.scheme) && equal_ci(a.host, b.host) && a.port == b.port;
}

bool is_ip_literal(std::string_view host) {
    char text[64];
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
        const std::string_view inner = host.substr(1, host.size() - 2);
        if (inner.empty() || inner.size() >= sizeof text) return false;
        std::memcpy(text, inner.data(), inner.size());
        text[inner.size()] = '\0';
        unsigned char address[16];
        return inet_pton(AF_INET6, text, address) == 1;
    }
    if (host.empty() || host.size() >= sizeof text) return false;
    std::memcpy(text, host.data(), host.size());
    text[host.size()] = '\0';
    unsigned char address[4];
    return inet_pton(AF_INET, text, address) == 1;
}

Decision judge(const Policy &policy, const RequestHeaders &request) {
    if (!policy.enabled) return {};
    if (request.host != nullptr) {
        std::string_view host;
        unsigned port = 0;
        if (!parse_host(request.host, &host, &port) || !host_allowed(policy, host))
            return {Verdict::kForeignHost, request.host};
    }
    if (request.sec_fetch_site != nullptr) {
        const std::string_view site = request.sec_fetch_site;
        if (site == "same-origin" || site == "none") return {};
        // Another site, or a sibling name or port of this one: only a trusted origin passes.
        Origin from;
        if (request.origin != nullptr && parse_origin(request.origin, &from) && is_trusted(policy, from)) return {};
        return {Verdict::kForeignOrigin, evidence_of(request, site)};
    }
    if (request.origin != nullptr) {
        Origin from;
        const bool parsed = parse_origin(request.origin, &from);
        return judge_origin(policy, request, parsed, from, request.origin);
    }
    if (request.referer != nullptr) {
        Origin from;
        const bool parsed = parse_url_origin(request.referer, &from);
        return judge_origin(policy, request, parsed, from, origin_part(request.referer));
    }
    return {};
}

}  // namespace korvex::cross_site
