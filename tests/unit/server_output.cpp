#include "tests/unit/server_output.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "base/apache_shim.h"

namespace korvex::test {

std::string &server_output() {
    static std::string output;
    return output;
}

}  // namespace korvex::test

extern "C" int ap_rprintf(request_rec *, const char *fmt, ...) {
    char text[4096];
    va_list ap;
    va_start(ap, fmt);
    const int size = std::vsnprintf(text, sizeof text, fmt, ap);
    va_end(ap);
    korvex::test::server_output().append(text, size < 0 ? 0 : std::min<size_t>(size, sizeof text - 1));
    return size;
}

// ap_rputs is an inline function over ap_rwrite.
extern "C" int ap_rwrite(const void *buffer, int size, request_rec *) {
    korvex::test::server_output().append(static_cast<const char *>(buffer), size < 0 ? 0 : static_cast<size_t>(size));
    return size;
}

extern "C" char *ap_escape_html2(apr_pool_t *pool, const char *s, int) {
    std::string escaped;
    for (const char *p = s; *p != '\0'; ++p) {
        switch (*p) {
            case '<': escaped += "&lt;"; break;
            case '>': escaped += "&gt;"; break;
            case '&': escaped += "&amp;"; break;
            case '"': escaped += "&quot;"; break;
            default: escaped += *p;
        }
    }
    return apr_pstrdup(pool, escaped.c_str());
}
