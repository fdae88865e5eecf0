#include "module/request_arguments.h"

#include <cstring>

namespace korvex {

namespace {
constexpr char kValueOfABareName[] = "1";
}

char *unescape_in_place(char *text) {
    // A first pass only checks; the second writes behind its own reading position, so the
    // text can be its own output.
    switch (apr_unescape_url(nullptr, text, APR_ESCAPE_STRING, nullptr, nullptr, 0, nullptr)) {
        case APR_SUCCESS:
            apr_unescape_url(text, text, APR_ESCAPE_STRING, nullptr, nullptr, 0, nullptr);
            return text;
        case APR_NOTFOUND:
            return text;
        default:
            return nullptr;
    }
}

apr_table_t *parse_arguments(apr_pool_t *pool, char *text) {
    apr_table_t *table = apr_table_make(pool, 10);
    if (text == nullptr) return table;
    char *state = nullptr;
    for (char *name = apr_strtok(text, "&", &state); name != nullptr; name = apr_strtok(nullptr, "&", &state)) {
        char *value = std::strchr(name, '=');
        if (value != nullptr) {
            *value++ = '\0';
        } else {
            // Handlers may edit their value in place: even this one is theirs to change.
            value = apr_pstrdup(pool, kValueOfABareName);
        }
        ap_unescape_url(name);
        ap_unescape_url(value);
        apr_table_setn(table, name, value);
    }
    return table;
}

}  // namespace korvex
