// Helpers for tests of shell lines and hostile values: what a real POSIX shell makes of a
// recorded line, and how a value is written into a query.
#pragma once

#include <string>

namespace korvex::test {

// Runs "printf '[%s]' <args>" with /bin/sh and returns its output: one "[word]" per word
// the shell made of args. Anything else the shell would run (a command after ";", a
// substitution, a background job) adds to the output; a non-zero exit adds "<exit N>".
std::string shell_words(const std::string &args);

// The words of a recorded shell line that starts with `program` (the program itself left
// out); "" with a test failure when the line is not one of that program.
std::string shell_words_of_line(const std::string &line, const std::string &program);

// A value as it goes into a query: everything but letters, digits and "-._" %-escaped.
std::string query_escape(const std::string &text);

}  // namespace korvex::test
