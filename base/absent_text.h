// How the server's formatter writes an absent text for "%s". Output that must match those
// bytes spells the marker out, so no null ever reaches a formatter.
#pragma once

namespace korvex {

inline constexpr char kAbsentText[] = "(null)";

inline const char *or_absent(const char *text) { return text != nullptr ? text : kAbsentText; }

}  // namespace korvex
