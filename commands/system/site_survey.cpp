#include "commands/system/site_survey.h"

#include <algorithm>
#include <cstring>

#include "base/log.h"
#include "commands/system/text_utils.h"

namespace korvex::survey {

namespace {

// Copies the `width` bytes of `line` from column `start` (fewer where the line ends
// first) and ends the field after at most `keep` of them.
template <std::size_t N>
void cut_field(const char *line, std::size_t length, std::size_t start, std::size_t width, char (&field)[N]) {
    constexpr std::size_t keep = N - 1;
    const std::size_t available = length > start ? length - start : 0;
    const std::size_t copied = std::min({width, available, keep});
    std::memcpy(field, line + std::min(start, length), copied);
    field[copied] = '\0';
}

}  // namespace

void cut_row(const char *line, std::size_t length, Row *row) {
    cut_field(line, length, 0, 4, row->channel);
    cut_field(line, length, 4, 33, row->ssid);
    cut_field(line, length, 37, 20, row->bssid);
    cut_field(line, length, 57, 23, row->security);
    cut_field(line, length, 80, 9, row->signal);
    cut_field(line, length, 89, 8, row->mode);
}

Fields trimmed(Row *row) {
    return Fields{trimwhitespace(row->channel), trimwhitespace(row->ssid),   trimwhitespace(row->bssid),
                  trimwhitespace(row->security), trimwhitespace(row->signal), trimwhitespace(row->mode)};
}

void read_table(std::FILE *in, const std::function<void(const Fields &)> &emit) {
    char line[kLineBufferSize];
    if (std::fgets(line, sizeof line, in) == nullptr) return;  // the title line
    while (std::fgets(line, sizeof line, in) != nullptr) {
        const std::size_t length = std::strlen(line);
        if (length < kMinRowLength) break;
        Row row;
        cut_row(line, length, &row);
        emit(trimmed(&row));
    }
}

int print_survey(request_rec *r, PipeOpener open, PipeCloser close) {
    KLOG_AS(KORVEX_LOG_TRACE, "wifiScan", "enter %s\n", "wifiScan");
    std::FILE *pipe = open(kCommand, "r");
    if (pipe == nullptr) {
        KLOG_AS(KORVEX_LOG_ERROR, "wifiScan", "popen fail\n");
        return 0;
    }
    read_table(pipe, [r](const Fields &f) {
        ap_rprintf(r, "%s %s %s %s %s %s<br>", f.channel, f.ssid, f.bssid, f.security, f.signal, f.mode);
    });
    close(pipe);
    KLOG_AS(KORVEX_LOG_TRACE, "wifiScan", "leave %s\n", "wifiScan");
    return 1;
}

}  // namespace korvex::survey
