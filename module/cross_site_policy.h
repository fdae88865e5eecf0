// Whether a request may reach the gateway's daemons, judged from the headers a browser adds:
// a page of another site (cross-site request forgery) or a foreign name pointed at the
// gateway's address (DNS rebinding) is refused before anything is read or called. Requests
// that carry none of these headers (the companion apps, scripts) pass.
//
// Pure logic on header values; nothing is allocated.
#pragma once

#include <cstddef>
#include <string_view>

namespace korvex::cross_site {

// An origin as browsers compare them: scheme, host and port, the port filled in from the
// scheme when absent, scheme and host in lower case.
struct Origin {
    std::string_view scheme;
    std::string_view host;  // a bracketed IPv6 literal keeps its brackets
    unsigned port = 0;
};

// Parses "scheme://host[:port]" (an Origin header, a trusted origin). False for anything
// else, "null" included.
bool parse_origin(std::string_view text, Origin *out);
// The origin of an absolute http(s) URL (a Referer header). False when it has none.
bool parse_url_origin(std::string_view url, Origin *out);
// Splits a Host header ("name", "name:port", "[v6]:port"); the port is 0 when absent.
bool parse_host(std::string_view header, std::string_view *host, unsigned *port);
// Same scheme, same host (letter case aside), same port.
bool same_origin(const Origin &a, const Origin &b);
// An IPv4 literal (dotted quad) or a bracketed IPv6 literal.
bool is_ip_literal(std::string_view host);

// What the server configured, as plain arrays of texts.
struct Policy {
    bool enabled = true;
    const char *const *trusted_origins = nullptr;  // "https://portal.example", ...
    std::size_t trusted_count = 0;
    const char *const *allowed_hosts = nullptr;  // ServerName, ServerAlias (wildcards allowed), KorvexAllowedHost
    std::size_t allowed_count = 0;
};

// The request as the server sees it; null for a header that is absent.
struct RequestHeaders {
    std::string_view scheme;  // "http" or "https"
    const char *host = nullptr;
    const char *sec_fetch_site = nullptr;
    const char *origin = nullptr;
    const char *referer = nullptr;
};

enum class Verdict { kPass, kForeignHost, kForeignOrigin };

struct Decision {
    Verdict verdict = Verdict::kPass;
    // What gave the request away: the Host header, or the foreign origin as sent (the
    // origin part of a Referer; the Sec-Fetch-Site value when neither was sent).
    std::string_view evidence;
};

Decision judge(const Policy &policy, const RequestHeaders &request);

}  // namespace korvex::cross_site
