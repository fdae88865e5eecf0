#include "sim/harness/sanitizer.h"

#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "sim/harness/launch.h"

namespace korvex::harness {

std::string sanitizer_preload() {
    const char *preset = std::getenv("KORVEX_SERVER_PRELOAD");
    if (preset && *preset) return preset;
    const char *cc = std::getenv("CC");
    std::string compiler = cc && *cc && !find_program(cc).empty() ? cc : "gcc";
    std::string list;
    for (const std::string name : {"libasan.so", "libubsan.so"}) {
        std::string path = run_capture({compiler, "-print-file-name=" + name});
        while (!path.empty() && (path.back() == '\n' || path.back() == ' ')) path.pop_back();
        // gcc prints the bare name when it does not know the library.
        char resolved[PATH_MAX];
        if (path.empty() || path == name || realpath(path.c_str(), resolved) == nullptr)
            throw std::runtime_error("cannot find " + name + " (set KORVEX_SERVER_PRELOAD)");
        list += (list.empty() ? "" : ":") + std::string(resolved);
    }
    return list;
}

std::vector<std::string> sanitizer_env(const std::string &run_dir, const std::string &kind) {
    const std::string dir = run_dir + "/sanitizer/" + kind;
    // Leak checks stay off: Apache's pools and libdbus keep memory until exit by design.
    // Apache installs its own handlers for fatal signals; ASan keeps its own instead, so a
    // crash or an abort leaves a report with a stack.
    return {"ASAN_OPTIONS=detect_leaks=0:halt_on_error=1:abort_on_error=0:handle_abort=1:"
            "allow_user_segv_handler=0:log_path=" + dir + "-asan",
            "UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=0:log_path=" + dir + "-ubsan"};
}

void collect_ubsan_reports(const std::string &run_dir) {
    if (access((run_dir + "/sanitizer").c_str(), F_OK) != 0) return;
    static const std::regex report_start(R"(^[^\[ ]+:[0-9]+:[0-9]+: runtime error: )");
    for (const std::string log : {"error.log", "httpd.stderr", "sim.log"}) {
        std::ifstream in(run_dir + "/logs/" + log, std::ios::binary);
        std::string report;
        int following = 0;
        for (std::string line; std::getline(in, line);) {
            if (std::regex_search(line, report_start)) following = 13;
            if (following > 0) {
                report += line + "\n";
                --following;
            }
        }
        if (!report.empty()) std::ofstream(run_dir + "/sanitizer/ubsan-in-" + log) << report;
    }
}

}  // namespace korvex::harness
