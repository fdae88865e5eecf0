// The Wi-Fi site survey ("wifiscan") through Apache: the iwpriv pipeline it runs, its wait of
// five seconds and the table it prints. The stand-in iwpriv on the server's PATH records its
// command lines and prints the table the test gives it. How rows are cut from the driver's
// table is unit tested (tests/unit/site_survey_test.cpp); this scan shows the rows reaching
// the client as the handler prints them.
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

class WifiSurveyTest : public CommandTest {};

TEST_F(WifiSurveyTest, StartsTheSurveyWaitsAndPrintsEachRowUntilTheTableEnds) {
    env().clear_stub_log();
    env().set_site_survey(kTitle +
                          // The driver's own layout, with its extra columns past the wireless mode.
                          row("11", "Neighbour Net 5G", "a0:b1:c2:d3:e4:f5", "WPA1PSKWPA2PSK/TKIPAES", "20",
                              "11b/g/n", "ABOVE  In ") +
                          "\n" +
                          // A hidden network: fields of blanks print as nothing between single spaces.
                          row("3", "", "aa:bb:cc:dd:ee:ff", "", "50", "") + "\n" +
                          // An empty line ends the table.
                          "\n" + row("4", "Never Shown", "00:00:00:00:00:04", "NONE", "10", "11b") + "\n");
    EXPECT_EQ(run("wifiscan=ignored"),
              "11 Neighbour Net 5G a0:b1:c2:d3:e4:f5 WPA1PSKWPA2PSK/TKIPAES 20 11b/g/n<br>"
              "3  aa:bb:cc:dd:ee:ff  50 <br>"
              "wifiscan done");
    EXPECT_EQ(env().stub_log(), "iwpriv ra0 set SiteSurvey=1\niwpriv ra0 get_site_survey\n");
    EXPECT_GE(elapsed_ms(), 5000);
    EXPECT_LT(elapsed_ms(), 15000);
    EXPECT_EQ(calls(), Calls{});
}

}  // namespace
}  // namespace korvex::test
