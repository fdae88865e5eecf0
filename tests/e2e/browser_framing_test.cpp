// A real browser (Debian's headless Chromium): the gateway's own pages show the API's
// answers in frames (its upload page shows update.cgi's answer in one), while a page of
// another origin cannot frame them (Content-Security-Policy: frame-ancestors 'self').
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "tests/support/browser.h"
#include "tests/support/command_test.h"

namespace korvex::test {
namespace {

// What Chromium's console says of a frame it refused to show under this policy.
constexpr char kBlocked[] = "violates the following Content Security Policy directive: \"frame-ancestors 'self'\"";

// Frames `getter` by its address and posts a form that is not an image to update.cgi into
// the frame "answer", as the upload page does; each frame's text, once loaded, is copied
// into <pre id=shown> (or why it could not be read), which --dump-dom prints.
std::string framing_page(const std::string &gateway) {
    return "<!doctype html><html><body>\n"
           "<iframe id=getter src=\"" + gateway + "/network.cgi?getdoscenemode=\"></iframe>\n"
           "<iframe id=answer name=answer></iframe>\n"
           "<form id=upload method=post enctype=multipart/form-data action=\"" + gateway +
           "/update.cgi\" target=answer><input type=hidden name=file value=not-an-image></form>\n"
           "<pre id=shown></pre>\n"
           "<script>\n"
           "function show(id) {\n"
           "  let text;\n"
           "  try { text = document.getElementById(id).contentDocument.body.textContent; }\n"
           "  catch (e) { text = 'unreadable (' + e.name + ')'; }\n"
           "  document.getElementById('shown').textContent += '[' + id + ': ' + text + ']';\n"
           "}\n"
           "document.getElementById('getter').addEventListener('load', () => show('getter'));\n"
           "document.getElementById('answer').addEventListener('load', () => show('answer'));\n"
           "document.getElementById('upload').submit();\n"
           "</script></body></html>\n";
}

class BrowserFramingTest : public CommandTest {
protected:
    std::string browse(const std::string &url) {
        EXPECT_EQ(access(kChromium, X_OK), 0) << "Debian's chromium is missing (scripts/install-deps.sh installs it)";
        std::string output;
        EXPECT_EQ(korvex::test::browse(env().run_dir(), url, &output), 0) << output;
        return output;
    }
};

TEST_F(BrowserFramingTest, PageOfTheGatewayShowsTheAnswersInFrames) {
    sim().nvram_put("doscenemode", "2", true);
    write_page(env().run_dir() + "/htdocs/frames.html", framing_page(""));
    const std::string output = browse("http://127.0.0.1:" + std::to_string(port()) + "/frames.html");
    EXPECT_NE(output.find("[getter: 2getdoscenemode done]"), std::string::npos) << output;
    EXPECT_NE(output.find("[answer: The firmware upload was incomplete or could not be stored; nothing was updated.]"),
              std::string::npos)
        << output;
    EXPECT_EQ(output.find(kBlocked), std::string::npos) << output;
}

TEST_F(BrowserFramingTest, PageOfAnotherOriginCannotFrameThem) {
    const std::string site = env().run_dir() + "/other-site";
    mkdir(site.c_str(), 0755);
    write_page(site + "/frames.html", framing_page("http://127.0.0.1:" + std::to_string(port())));
    OtherSite server(site);
    ASSERT_NE(server.port(), 0) << "the other site's server did not start";
    const std::string output = browse(server.origin() + "/frames.html");
    // The browser refused to show both answers (the cross-site check refused the requests
    // too, but the answers' policy alone keeps them out of the frames).
    size_t blocked = 0;
    for (size_t at = output.find(kBlocked); at != std::string::npos; at = output.find(kBlocked, at + 1)) ++blocked;
    EXPECT_EQ(blocked, 2u) << output;
    EXPECT_NE(output.find("[getter: unreadable"), std::string::npos) << output;
    EXPECT_EQ(output.find("getdoscenemode done"), std::string::npos) << output;
    EXPECT_EQ(sim().records().size(), 0u) << "a daemon was reached";
}

}  // namespace
}  // namespace korvex::test
