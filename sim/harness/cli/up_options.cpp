#include "sim/harness/cli/up_options.h"

#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <regex>

namespace korvex::harness::cli {
namespace {

int parse_port(const std::string &text) {
    static const std::regex digits("[0-9]{1,5}");
    if (!std::regex_match(text, digits) || std::stoi(text) > 65535) throw UsageError("bad port " + text);
    return std::stoi(text);
}

// The build tree: the one this program was built in, unless KORVEX_BUILD_DIR names another.
std::string default_build_dir() {
    const char *dir = std::getenv("KORVEX_BUILD_DIR");
    return dir && *dir ? dir : KORVEX_BUILD_DIR;
}

std::string self_path() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    return length > 0 ? std::string(path, static_cast<size_t>(length)) : std::string();
}

}  // namespace

std::string absolute_run_dir(const std::string &path) {
    return std::filesystem::absolute(path).lexically_normal().string();
}

GatewaySpec spec_from_options(const std::string &run_dir, const std::vector<std::string> &options,
                              int default_port) {
    GatewaySpec spec = GatewaySpec::defaults(absolute_run_dir(run_dir), KORVEX_SOURCE_DIR, default_build_dir());
    spec.port = default_port;
    spec.tool = self_path();
    for (size_t i = 0; i < options.size(); ++i) {
        const std::string &option = options[i];
        auto value = [&]() -> const std::string & {
            if (i + 1 >= options.size()) throw UsageError(option + " needs a value");
            return options[++i];
        };
        if (option == "--port") {
            const std::string &port = value();
            spec.port = port == "auto" ? 0 : parse_port(port);
        } else if (option == "--first-port") {
            spec.first_port = parse_port(value());
        } else if (option == "--mpm") {
            spec.mpm = value();
        } else if (option == "--no-bus") {
            spec.with_bus = false;
        } else if (option == "--log-level") {
            spec.log_level = value();
        } else if (option == "--owner-pid") {
            const std::string &pid = value();
            if (!std::regex_match(pid, std::regex("[1-9][0-9]{0,8}"))) throw UsageError("bad pid " + pid);
            spec.owner_pid = static_cast<pid_t>(std::stol(pid));
        } else if (option == "--build-dir") {
            spec.build_dir = std::filesystem::absolute(value()).lexically_normal().string();
        } else if (option == "--module") {
            spec.module_file = std::filesystem::absolute(value()).string();
        } else if (option == "--tmp-dir") {
            spec.server_tmp_dirs.push_back(value());
        } else if (option == "--sanitize") {
            spec.sanitize = true;
        } else {
            throw UsageError("unknown option " + option);
        }
    }
    while (!spec.build_dir.empty() && spec.build_dir.size() > 1 && spec.build_dir.back() == '/') spec.build_dir.pop_back();
    return spec;
}

}  // namespace korvex::harness::cli
