// A compact text table: a title, a header row, rows of cells, columns padded to fit.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace korvex::bench {

class Table {
public:
    Table(std::string title, std::vector<std::string> header);
    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
    void note(std::string line) { notes_.push_back(std::move(line)); }
    void print(std::FILE *out) const;

private:
    std::string title_;
    std::vector<std::vector<std::string>> rows_;  // the header first
    std::vector<std::string> notes_;
};

// Number formatting for cells: fixed decimals, and a ratio as "1.23x".
std::string fixed(double value, int decimals);
std::string times(double ratio);

}  // namespace korvex::bench
