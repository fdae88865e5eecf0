#include "bench/table.h"

#include <algorithm>

namespace korvex::bench {

Table::Table(std::string title, std::vector<std::string> header) : title_(std::move(title)) {
    rows_.push_back(std::move(header));
}

void Table::print(std::FILE *out) const {
    std::vector<size_t> widths;
    for (const auto &row : rows_) {
        if (widths.size() < row.size()) widths.resize(row.size(), 0);
        for (size_t c = 0; c < row.size(); ++c) widths[c] = std::max(widths[c], row[c].size());
    }
    std::fprintf(out, "\n%s\n", title_.c_str());
    for (const auto &row : rows_) {
        std::string line = " ";
        for (size_t c = 0; c < row.size(); ++c) {
            // The first column is left-aligned (names), the others right-aligned (figures).
            const std::string pad(widths[c] - row[c].size(), ' ');
            line += "  " + (c == 0 ? row[c] + pad : pad + row[c]);
        }
        std::fprintf(out, "%s\n", line.c_str());
    }
    for (const auto &line : notes_) std::fprintf(out, "   %s\n", line.c_str());
}

std::string fixed(double value, int decimals) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

std::string times(double ratio) { return fixed(ratio, 2) + "x"; }

}  // namespace korvex::bench
