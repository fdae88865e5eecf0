// The Wi-Fi site survey: the driver's survey table, read from a pipe and cut into rows at
// the fixed columns of the Ralink driver's get_site_survey output.
#pragma once

#include <cstdio>
#include <functional>

#include "base/apache_shim.h"

namespace korvex::survey {

// Lines are read as fgets reads them into this buffer: at most 127 bytes, the line feed
// included; the rest of a longer line comes as the next line.
inline constexpr int kLineBufferSize = 128;
// A line shorter than this (line feed included) ends the table.
inline constexpr std::size_t kMinRowLength = 4;

// One row, each field cut from its columns and ended at its kept length (not trimmed).
struct Row {
    char channel[3 + 1];    // columns 0-3, 3 kept
    char ssid[32 + 1];      // columns 4-36, 32 kept
    char bssid[19 + 1];     // columns 37-56, 19 kept
    char security[22 + 1];  // columns 57-79, 22 kept
    char signal[9 + 1];     // columns 80-88, 9 kept
    char mode[7 + 1];       // columns 89-96, 7 kept
};

// Cuts `line` (its first `length` bytes) into a row. A field never takes a byte past the
// line's end or past its own columns; a field that starts after the line's end is empty.
void cut_row(const char *line, std::size_t length, Row *row);

// The six fields of a row, trimmed of surrounding white space (pointers into the row).
struct Fields {
    const char *channel, *ssid, *bssid, *security, *signal, *mode;
};
Fields trimmed(Row *row);

// Reads a survey table: the title line is skipped, then every line is a row until the end
// of input or the first line shorter than kMinRowLength. Calls `emit` for each row.
void read_table(std::FILE *in, const std::function<void(const Fields &)> &emit);

// The shell pipeline that starts a survey, waits for it and prints the table.
inline constexpr char kCommand[] = "iwpriv ra0 set SiteSurvey=1 && sleep 5 && iwpriv ra0 get_site_survey";

using PipeOpener = std::FILE *(*)(const char *command, const char *mode);
using PipeCloser = int (*)(std::FILE *pipe);

// Runs the survey through `open` and prints one "%s %s %s %s %s %s<br>" per row. 0 with no
// output when the pipe cannot be opened; otherwise 1, also for a table without rows.
int print_survey(request_rec *r, PipeOpener open, PipeCloser close);

}  // namespace korvex::survey
