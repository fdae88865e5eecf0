#include "module/access_log_masking.h"

#include <cstring>
#include <string>
#include <string_view>

#include "base/apache_shim.h"
#include "base/guard.h"
#include "module/request_handler.h"
#include "module/secret_query.h"

namespace korvex::access_log {
namespace {

// `text` with its query, the part from the first '?' up to `end` (exclusive), masked; or
// `text` itself when nothing in it is secret.
char *with_masked_query(apr_pool_t *pool, char *text, std::size_t end) {
    const std::string_view whole(text);
    const std::size_t question = whole.find('?');
    if (question == std::string_view::npos || question >= end) return text;
    std::string masked;
    if (!mask_secret_values(whole.substr(question + 1, end - question - 1), &masked)) return text;
    const std::string line = std::string(whole.substr(0, question + 1)) + masked + std::string(whole.substr(end));
    return apr_pstrmemdup(pool, line.data(), line.size());
}

// "METHOD target PROTOCOL": the target ends at the last blank, when one follows the query.
std::size_t target_end_of_request_line(const char *line) {
    const std::string_view text(line);
    const std::size_t question = text.find('?');
    const std::size_t blank = text.rfind(' ');
    return (blank != std::string_view::npos && question != std::string_view::npos && blank > question) ? blank
                                                                                                       : text.size();
}

std::size_t end_of_uri_query(const char *uri) {
    const char *hash = std::strchr(uri, '#');
    return hash != nullptr ? static_cast<std::size_t>(hash - uri) : std::strlen(uri);
}

void mask(request_rec *r) {
    if (!is_korvex_resource(r->handler)) return;
    if (r->the_request != nullptr)
        r->the_request = with_masked_query(r->pool, r->the_request, target_end_of_request_line(r->the_request));
    if (r->unparsed_uri != nullptr)
        r->unparsed_uri = with_masked_query(r->pool, r->unparsed_uri, end_of_uri_query(r->unparsed_uri));
    std::string masked;
    if (r->args != nullptr && mask_secret_values(r->args, &masked)) {
        r->args = apr_pstrmemdup(r->pool, masked.data(), masked.size());
        r->parsed_uri.query = r->args;
    }
}

// Runs before mod_log_config's (APR_HOOK_MIDDLE) and any other logger's: the request's
// work is done, only its log is still to be written.
int mask_before_logging(request_rec *r) {
    return guarded("access_log_masking", http::kDeclined, [r] {
        for (request_rec *each = r; each != nullptr; each = each->next) mask(each);
        return http::kDeclined;
    });
}

}  // namespace

void register_hooks() { ap_hook_log_transaction(mask_before_logging, nullptr, nullptr, APR_HOOK_REALLY_FIRST); }

}  // namespace korvex::access_log
