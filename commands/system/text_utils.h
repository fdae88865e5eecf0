// Text helpers of the settings commands. Both work in place on the caller's buffer.
#pragma once

// Turns every byte 'A'..'Z' into its lower-case letter; every other byte (those above 127
// included) stays. Returns s.
char *stringToLowerCase(char *s);

// Skips leading white space (blank, \t, \n, \v, \f, \r) and ends the text after its last
// byte that is not white space. Returns a pointer into s; all-blank text gives "".
char *trimwhitespace(char *s);
