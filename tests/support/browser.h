// Debian's headless Chromium for end-to-end tests, and a web site of another origin beside
// the gateway for it to visit.
#pragma once

#include <string>

#include "tests/support/process_runner.h"

namespace korvex::test {

inline constexpr char kChromium[] = "/usr/bin/chromium";

// Loads `url` in headless Chromium with a profile under `run_dir` and gives its scripts
// `budget_ms` of virtual time. Returns the exit status; `output` gets what the browser
// printed: the page's DOM after that time (--dump-dom) and its log, which holds the
// console's messages (a frame the browser refused to show among them).
int browse(const std::string &run_dir, const std::string &url, std::string *output, int budget_ms = 5000);

// Writes a page the server's account can read.
void write_page(const std::string &path, const std::string &html);

// A static web site on another port of 127.0.0.1 (another origin than the gateway's),
// serving the files of `dir`; stopped when it goes out of scope.
class OtherSite {
public:
    explicit OtherSite(const std::string &dir);
    // 0 when the server did not start.
    int port() const { return port_; }
    std::string origin() const { return "http://127.0.0.1:" + std::to_string(port_); }

private:
    ChildProcess server_;
    int port_ = 0;
};

}  // namespace korvex::test
