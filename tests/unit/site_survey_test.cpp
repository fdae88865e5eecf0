// The site-survey reader: rows cut at the driver's fixed columns with bounded copies,
// the end of the table, and the handler's output through a pipe the test chooses.
#include "commands/system/site_survey.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tests/unit/server_output.h"

namespace {

using korvex::survey::cut_row;
using korvex::survey::Fields;
using korvex::survey::read_table;
using korvex::survey::Row;

const std::string kTitle = "ra0       get_site_survey:\n";
// Columns: channel 0-3, SSID 4-36, BSSID 37-56, security 57-79, signal 80-88, mode 89-96.
const std::string kRow =
    "11  Neighbour Net 5G                 a0:b1:c2:d3:e4:f5   WPA1PSKWPA2PSK/TKIPAES 20       11b/g/n ABOVE  In \n";

std::string joined(const Fields &f) {
    return std::string(f.channel) + "|" + f.ssid + "|" + f.bssid + "|" + f.security + "|" + f.signal + "|" + f.mode;
}

std::vector<std::string> rows_of(const std::string &table) {
    std::vector<std::string> rows;
    std::FILE *in = fmemopen(const_cast<char *>(table.data()), table.size(), "r");
    EXPECT_NE(in, nullptr);
    if (in == nullptr) return rows;
    read_table(in, [&rows](const Fields &f) { rows.push_back(joined(f)); });
    std::fclose(in);
    return rows;
}

std::string cut(const std::string &line) {
    Row row;
    cut_row(line.c_str(), line.size(), &row);
    return joined(korvex::survey::trimmed(&row));
}

TEST(SurveyRow, FieldsAreCutAtTheirColumnsAndTrimmed) {
    EXPECT_EQ(cut(kRow), "11|Neighbour Net 5G|a0:b1:c2:d3:e4:f5|WPA1PSKWPA2PSK/TKIPAES|20|11b/g/n");
}

TEST(SurveyRow, EachFieldKeepsAtMostItsLength) {
    // Every column filled: each field is its width, ended at its kept length.
    const std::string line(127, 'x');
    Row row;
    cut_row(line.c_str(), line.size(), &row);
    EXPECT_EQ(std::strlen(row.channel), 3u);
    EXPECT_EQ(std::strlen(row.ssid), 32u);
    EXPECT_EQ(std::strlen(row.bssid), 19u);
    EXPECT_EQ(std::strlen(row.security), 22u);
    EXPECT_EQ(std::strlen(row.signal), 9u);
    EXPECT_EQ(std::strlen(row.mode), 7u);
}

TEST(SurveyRow, ANeighbouringColumnNeverLeaksIntoAField) {
    std::string line;
    const char marks[] = "CSBQGM";  // one letter per field, filling each column range
    const int starts[] = {0, 4, 37, 57, 80, 89, 97};
    for (int f = 0; f < 6; ++f) line += std::string(starts[f + 1] - starts[f], marks[f]);
    line += "ZZZZ";  // past column 96
    EXPECT_EQ(cut(line), "CCC|" + std::string(32, 'S') + "|" + std::string(19, 'B') + "|" + std::string(22, 'Q') +
                             "|" + std::string(9, 'G') + "|" + std::string(7, 'M'));
}

TEST(SurveyRow, FieldsPastTheEndOfAShortLineAreEmpty) {
    EXPECT_EQ(cut("6   Cafe\n"), "6|Cafe||||");
    EXPECT_EQ(cut("1   KorvexHome                       00:11"), "1|KorvexHome|00:11|||");
}

TEST(SurveyRow, BlanksAroundAFieldGoAndBlanksInsideStay) {
    const std::string line =
        "6     Guest Network 2G               66:77:88:99:aa:bb   NONE                   45       11b/g   NONE   In \n";
    EXPECT_EQ(cut(line), "6|Guest Network 2G|66:77:88:99:aa:bb|NONE|45|11b/g");
}

TEST(SurveyRow, OnlyTheGivenLengthIsRead) {
    // What lies after the line's length (a longer earlier line in the same buffer) is never used.
    const std::string buffer = kRow;
    Row row;
    cut_row(buffer.c_str(), 10, &row);
    EXPECT_EQ(joined(korvex::survey::trimmed(&row)), "11|Neighb||||");
}

TEST(SurveyTable, TheTitleLineIsSkipped) {
    EXPECT_EQ(rows_of(kTitle + kRow),
              std::vector<std::string>{"11|Neighbour Net 5G|a0:b1:c2:d3:e4:f5|WPA1PSKWPA2PSK/TKIPAES|20|11b/g/n"});
}

TEST(SurveyTable, NoRowsAndNoInput) {
    EXPECT_EQ(rows_of(kTitle), std::vector<std::string>{});
    EXPECT_EQ(rows_of(""), std::vector<std::string>{});
}

TEST(SurveyTable, ALineShorterThanFourBytesEndsTheTable) {
    EXPECT_EQ(rows_of(kTitle + "1   A\n" + "\n" + "2   B\n"), std::vector<std::string>{"1|A||||"});
    EXPECT_EQ(rows_of(kTitle + "1   A\n" + "ab\n" + "2   B\n"), std::vector<std::string>{"1|A||||"});
    // Four bytes with the line feed make a row.
    EXPECT_EQ(rows_of(kTitle + "abc\n" + "2   B\n"), (std::vector<std::string>{"abc|||||", "2|B||||"}));
}

TEST(SurveyTable, TheRestOfALineLongerThanTheBufferIsTheNextLine) {
    const std::string head = "3   Long                             " + std::string(90, '-');  // 127 bytes
    ASSERT_EQ(head.size(), 127u);
    const std::vector<std::string> rows = rows_of(kTitle + head + "tail of the line\n" + "ab\n");
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0].substr(0, 7), "3|Long|");
    EXPECT_EQ(rows[1], "tai|of the line||||");
}

TEST(SurveyTable, AShortLineAfterAFullOneShowsNothingOfIt) {
    // The buffer still holds the earlier line's bytes past the short line's end.
    const std::string full(120, 'x');
    const std::string full_row = "xxx|" + std::string(32, 'x') + "|" + std::string(19, 'x') + "|" +
                                 std::string(22, 'x') + "|" + std::string(9, 'x') + "|" + std::string(7, 'x');
    const std::string ends_in_the_ssid = "11  CafeNetwork-5G_x\n";
    const std::string ends_in_the_bssid = "7   Short Row                        00:11:22\n";
    EXPECT_EQ(rows_of(kTitle + full + "\n" + ends_in_the_ssid + ends_in_the_bssid),
              (std::vector<std::string>{full_row, "11|CafeNetwork-5G_x||||", "7|Short Row|00:11:22|||"}));
}

TEST(SurveyTable, AShortRemainderOfALongLineEndsTheTable) {
    const std::string head(127, 'x');
    EXPECT_EQ(rows_of(kTitle + head + "yz\n" + kRow).size(), 1u);
}

// Stand-ins for popen/pclose.
std::string g_command;
std::string g_table;
int g_closed = 0;

std::FILE *failing_open(const char *command, const char *) {
    g_command = command;
    return nullptr;
}
std::FILE *table_open(const char *command, const char *mode) {
    g_command = command;
    return fmemopen(const_cast<char *>(g_table.data()), g_table.size(), mode);
}
int counting_close(std::FILE *pipe) {
    ++g_closed;
    return std::fclose(pipe);
}

class SurveyOutput : public ::testing::Test {
protected:
    void SetUp() override {
        korvex::test::server_output().clear();
        g_command.clear();
        g_closed = 0;
    }
    request_rec request_{};
};

TEST_F(SurveyOutput, APipeThatCannotBeOpenedFailsWithoutOutput) {
    EXPECT_EQ(korvex::survey::print_survey(&request_, failing_open, counting_close), 0);
    EXPECT_EQ(korvex::test::server_output(), "");
    EXPECT_EQ(g_closed, 0);
    EXPECT_EQ(g_command, "iwpriv ra0 set SiteSurvey=1 && sleep 5 && iwpriv ra0 get_site_survey");
}

TEST_F(SurveyOutput, RowsArePrintedAsSixFieldsAndThePipeIsClosed) {
    g_table = kTitle + kRow + "6                                    66:77:88:99:aa:bb   NONE\n";
    EXPECT_EQ(korvex::survey::print_survey(&request_, table_open, counting_close), 1);
    EXPECT_EQ(korvex::test::server_output(),
              "11 Neighbour Net 5G a0:b1:c2:d3:e4:f5 WPA1PSKWPA2PSK/TKIPAES 20 11b/g/n<br>"
              "6  66:77:88:99:aa:bb NONE  <br>");
    EXPECT_EQ(g_closed, 1);
}

TEST_F(SurveyOutput, ATableWithoutRowsPrintsNothingAndSucceeds) {
    g_table = kTitle;
    EXPECT_EQ(korvex::survey::print_survey(&request_, table_open, counting_close), 1);
    EXPECT_EQ(korvex::test::server_output(), "");
    EXPECT_EQ(g_closed, 1);
}

}  // namespace
