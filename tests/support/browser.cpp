#include "tests/support/browser.h"

#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <regex>
#include <thread>

namespace korvex::test {

int browse(const std::string &run_dir, const std::string &url, std::string *output, int budget_ms) {
    const std::string out = run_dir + "/chromium.out";
    ChildProcess browser({kChromium, "--headless", "--no-sandbox", "--disable-gpu", "--no-first-run",
                          "--user-data-dir=" + run_dir + "/chromium-profile", "--enable-logging=stderr", "--v=0",
                          "--virtual-time-budget=" + std::to_string(budget_ms), "--dump-dom", url},
                         out);
    const int status = browser.wait_exit(60000);
    *output = read_file(out);
    // Requests still on their way when the browser quit are answered by now.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    return status;
}

void write_page(const std::string &path, const std::string &html) {
    std::ofstream(path) << html;
    chmod(path.c_str(), 0644);
}

OtherSite::OtherSite(const std::string &dir)
    : server_({"/usr/bin/python3", "-u", "-m", "http.server", "0", "--bind", "127.0.0.1", "--directory", dir},
              dir + "/server.out") {
    for (int i = 0; i < 100 && port_ == 0; ++i) {
        std::smatch match;
        const std::string out = read_file(dir + "/server.out");
        if (std::regex_search(out, match, std::regex("port ([0-9]+)"))) port_ = std::stoi(match[1]);
        if (port_ == 0) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

}  // namespace korvex::test
