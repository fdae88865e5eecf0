#include "commands/system/text_utils.h"

namespace {

// The C locale's white space, spelled out so that no locale changes what is trimmed.
bool is_white(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }

}  // namespace

char *stringToLowerCase(char *s) {
    for (char *p = s; *p != '\0'; ++p) {
        if (*p >= 'A' && *p <= 'Z') *p = static_cast<char>(*p + ('a' - 'A'));
    }
    return s;
}

char *trimwhitespace(char *s) {
    while (is_white(*s)) ++s;
    if (*s == '\0') return s;
    char *end = s;
    for (char *p = s; *p != '\0'; ++p) {
        if (!is_white(*p)) end = p;
    }
    end[1] = '\0';
    return s;
}
