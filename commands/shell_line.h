// Composes shell command lines for the platform daemon's "doSystem".
//
// Values are inserted as they stand when they hold only [A-Za-z0-9._:/@%+=,-] and are
// single-quoted otherwise, so ordinary values give exactly the documented line and no
// value can add a command or an argument.
#pragma once

#include <initializer_list>

#include "base/apache_shim.h"

namespace korvex {

// True when the value can stand unquoted in a shell line.
bool shell_word_is_plain(const char *value);

// The value as one shell word (a null value is written "(null)", as the formatter would).
const char *shell_word(apr_pool_t *pool, const char *value);

// Fills each "%s" of the template with the next value as one shell word; "%%" is a "%".
// Null when the number of "%s" differs from the number of values.
const char *shell_line(apr_pool_t *pool, const char *tmpl, std::initializer_list<const char *> values);

}  // namespace korvex
