// The Wi-Fi site survey ("wifiscan") through Apache: the iwpriv pipeline it runs and how
// the driver's survey table is cut into rows. The stand-in iwpriv on the server's PATH
// records its command lines and prints the table each test gives it. Every scan waits out
// the survey's five seconds, so each test here runs one scan over a table that holds all
// the rows its point needs.
#include <string>

#include "tests/support/command_test.h"

namespace korvex::test {
namespace {

// The driver's title line, skipped by the reader.
const std::string kTitle = "ra0       get_site_survey:\n";

// One table line with every field padded to its columns: channel 0-3, SSID 4-36, BSSID
// 37-56, security 57-79, signal 80-88, wireless mode 89-96; `rest` follows from column 97.
std::string row(const std::string &channel, const std::string &ssid, const std::string &bssid,
                const std::string &security, const std::string &signal, const std::string &mode,
                const std::string &rest = "") {
    auto pad = [](const std::string &text, size_t width) {
        return text.size() >= width ? text : text + std::string(width - text.size(), ' ');
    };
    return pad(channel, 4) + pad(ssid, 33) + pad(bssid, 20) + pad(security, 23) + pad(signal, 9) + pad(mode, 8) +
           rest;
}

// A line without a single blank: every column holds a character, and the last column of
// every field that keeps fewer characters than its columns holds an "X", which no field
// may show.
const std::string kDense = "123X"                               // channel, 3 kept
                           "abcdefghijklmnopqrstuvwxyz012345X"  // SSID, 32 kept
                           "0123456789abcdefghiX"               // BSSID, 19 kept
                           "WPA1PSKWPA2PSK/TKIPAESX"            // security, 22 kept
                           "123456789"                          // signal, 9 kept
                           "11b/g/nX"                           // wireless mode, 7 kept
                           "NONE___In";
const std::string kDenseRow =
    "123 abcdefghijklmnopqrstuvwxyz012345 0123456789abcdefghi WPA1PSKWPA2PSK/TKIPAES 123456789 11b/g/n<br>";

class WifiSurveyTest : public CommandTest {
  protected:
    std::string scan(const std::string &table) {
        env().set_site_survey(table);
        return run("wifiscan=ignored");
    }
};

TEST_F(WifiSurveyTest, StartsTheSurveyWaitsAndReadsTheTable) {
    env().clear_stub_log();
    EXPECT_EQ(scan(kTitle + row("1", "KorvexHome", "00:11:22:33:44:55", "WPA2PSK/AES", "81", "11b/g/n") + "\n"),
              "1 KorvexHome 00:11:22:33:44:55 WPA2PSK/AES 81 11b/g/n<br>wifiscan done");
    EXPECT_EQ(env().stub_log(), "iwpriv ra0 set SiteSurvey=1\niwpriv ra0 get_site_survey\n");
    EXPECT_GE(elapsed_ms(), 5000);
    EXPECT_LT(elapsed_ms(), 15000);
    EXPECT_EQ(calls(), Calls{});
}

TEST_F(WifiSurveyTest, RowsAreCutAtFixedColumnsAndTrimmed) {
    const std::string table =
        kTitle +
        // The driver's own layout, with its extra columns past the wireless mode.
        "11  Neighbour                        a0:b1:c2:d3:e4:f5   WPA1PSKWPA2PSK/TKIPAES 20       11b/g/n ABOVE  In \n" +
        // Blanks inside the SSID stay, blanks around it go.
        row("6", "  Guest Network 2G", "66:77:88:99:aa:bb", "NONE", "45", "11b/g", "NONE   In ") + "\n" +
        // A hidden network: fields of blanks only print as nothing between single spaces.
        row("3", "", "aa:bb:cc:dd:ee:ff", "", "50", "") + "\n" +
        // Each field keeps only its own characters, however full the line is.
        kDense + "\n";
    EXPECT_EQ(scan(table),
              "11 Neighbour a0:b1:c2:d3:e4:f5 WPA1PSKWPA2PSK/TKIPAES 20 11b/g/n<br>"
              "6 Guest Network 2G 66:77:88:99:aa:bb NONE 45 11b/g<br>"
              "3  aa:bb:cc:dd:ee:ff  50 <br>" +
                  kDenseRow + "wifiscan done");
}

TEST_F(WifiSurveyTest, LineBeyondTheBufferGoesOnAsTheNextLine) {
    // A line is read 127 bytes at a time: what follows the first 127 bytes is read as a line
    // of its own. "9   Remainder-Row\n" is long enough to be a row; "xy\n" is not and ends
    // the table.
    auto to_buffer = [](std::string text) { return text + std::string(127 - text.size(), '-'); };
    const std::string first = to_buffer(row("1", "First", "00:00:00:00:00:01", "WPA2PSK/AES", "70", "11n", "EXT"));
    const std::string third = to_buffer(row("2", "Third", "00:00:00:00:00:03", "NONE", "30", "11g", "EXT"));
    ASSERT_EQ(first.size(), 127u);
    const std::string table = kTitle + first + "9   Remainder-Row\n" +
                              row("5", "Second", "00:00:00:00:00:02", "WEP", "60", "11b") + "\n" + third + "xy\n" +
                              row("4", "Never Shown", "00:00:00:00:00:04", "NONE", "10", "11b") + "\n";
    EXPECT_EQ(scan(table),
              "1 First 00:00:00:00:00:01 WPA2PSK/AES 70 11n<br>"
              "9 Remainder-Row    <br>"
              "5 Second 00:00:00:00:00:02 WEP 60 11b<br>"
              "2 Third 00:00:00:00:00:03 NONE 30 11g<br>"
              "wifiscan done");
}

TEST_F(WifiSurveyTest, EmptyLineEndsTheTable) {
    const std::string table = kTitle + row("1", "Before", "00:00:00:00:00:01", "NONE", "70", "11n") + "\n" + "\n" +
                              row("2", "After", "00:00:00:00:00:02", "NONE", "60", "11n") + "\n";
    EXPECT_EQ(scan(table), "1 Before 00:00:00:00:00:01 NONE 70 11n<br>wifiscan done");
}

TEST_F(WifiSurveyTest, ThreeBytesEndTheTableFourBytesAreARow) {
    // Counting the line feed: "abc\n" (4 bytes) is a row of one field, "ab\n" (3) ends the table.
    const std::string table = kTitle + row("1", "Before", "00:00:00:00:00:01", "NONE", "70", "11n") + "\n" +
                              "abc\n" + "ab\n" + row("2", "After", "00:00:00:00:00:02", "NONE", "60", "11n") + "\n";
    EXPECT_EQ(scan(table), "1 Before 00:00:00:00:00:01 NONE 70 11n<br>abc     <br>wifiscan done");
}

TEST_F(WifiSurveyTest, TitleLineAlonePrintsNothing) {
    EXPECT_EQ(scan(kTitle), "wifiscan done");
}

TEST_F(WifiSurveyTest, ShortLineTakesOnlyWhatItHolds) {
    // After a full line, a line of 20 characters ends inside the SSID and one of 45 inside
    // the BSSID: fields are cut from what the line holds, the rest are empty, and nothing
    // of the longer line read before shows through.
    const std::string table = kTitle + kDense + "\n" + "11  CafeNetwork-5G_x\n" +
                              "7   Short Row                        00:11:22\n" + kDense + "\n";
    EXPECT_EQ(scan(table), kDenseRow + "11 CafeNetwork-5G_x    <br>7 Short Row 00:11:22   <br>" + kDenseRow +
                               "wifiscan done");
}

}  // namespace
}  // namespace korvex::test
