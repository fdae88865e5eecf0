// The arguments of a request as a table, built over a buffer of the module's own without
// copying it again, so that a body at the size limit costs its own size once more at most.
#pragma once

#include "base/apache_shim.h"

namespace korvex {

// URL-unescapes `text` where it is ("+" stays "+"), as apr_punescape_url does without
// forbidden or reserved characters. Returns text, or null for a malformed escape or an
// escaped NUL, which leave the text undefined.
char *unescape_in_place(char *text);

// Splits `text` (changed in place, owned by the caller's pool) into name=value pairs as
// ap_args_to_table does: "&" separates, a name without "=" gets the value "1", names and
// values are unescaped once more, and a name given again replaces the earlier value at the
// earlier place. The table points into `text`.
apr_table_t *parse_arguments(apr_pool_t *pool, char *text);

}  // namespace korvex
