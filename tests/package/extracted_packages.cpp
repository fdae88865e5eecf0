#include "tests/package/extracted_packages.h"

#include <sys/stat.h>

#include <filesystem>
#include <regex>
#include <stdexcept>

#include "tests/support/process_runner.h"

namespace fs = std::filesystem;

namespace korvex::test::package {
namespace {

// The Debian build of one package may take minutes on a busy machine.
constexpr int kPackageBuildMs = 900 * 1000;

std::string last_lines(const std::string &text, size_t count) {
    size_t at = text.size();
    for (size_t seen = 0; at > 0 && seen <= count; --at)
        if (text[at - 1] == '\n') ++seen;
    return text.substr(at);
}

std::string trimmed(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
    return text;
}

// The newest file of dir named PREFIX*.deb.
std::string newest_package(const std::string &dir, const std::string &prefix) {
    std::string newest;
    fs::file_time_type newest_time;
    std::error_code ec;
    for (const auto &entry : fs::directory_iterator(dir, ec)) {
        const std::string name = entry.path().filename().string();
        if (name.rfind(prefix, 0) != 0 || entry.path().extension() != ".deb") continue;
        const fs::file_time_type time = entry.last_write_time(ec);
        if (newest.empty() || time > newest_time) {
            newest = entry.path().string();
            newest_time = time;
        }
    }
    if (newest.empty()) throw std::runtime_error("no package " + prefix + "*.deb in " + dir);
    return newest;
}

}  // namespace

std::string ExtractedPackages::path(const std::string &installed) const {
    return root + (installed.empty() || installed[0] != '/' ? "/" : "") + installed;
}

void build_packages_if_stale(const std::string &source_dir, const std::string &deb_dir, const std::string &log) {
    const CommandResult built =
        run_command({"bash", source_dir + "/scripts/build-deb.sh", "--if-stale", deb_dir}, log, kPackageBuildMs);
    if (built.status != 0)
        throw std::runtime_error("scripts/build-deb.sh --if-stale " + deb_dir + " failed (status " +
                                 std::to_string(built.status) + "):\n" + last_lines(built.output, 40));
}

ExtractedPackages extract_packages(const std::string &deb_dir, const std::string &run_dir) {
    ExtractedPackages extracted;
    extracted.run_dir = run_dir;
    extracted.root = run_dir + "/root";
    fs::remove_all(extracted.root);
    fs::create_directories(extracted.root);
    // The server reads the extracted files as www-data.
    chmod(extracted.root.c_str(), 0755);
    extracted.platform_dir = "/usr/lib/" + host_architecture("DEB_HOST_MULTIARCH", run_dir) + "/korvex";
    for (const char *prefix : {"libapache2-mod-korvex_", "korvex-host-platform_"}) {
        const std::string deb = newest_package(deb_dir, prefix);
        const CommandResult unpacked = run_command({"dpkg-deb", "-x", deb, extracted.root}, run_dir + "/dpkg-deb.log");
        if (unpacked.status != 0) throw std::runtime_error("dpkg-deb -x " + deb + " failed:\n" + unpacked.output);
        extracted.packages.push_back(fs::path(deb).filename().string());
    }
    return extracted;
}

std::vector<std::string> expected_package_names(const std::string &version, const std::string &arch) {
    return {"libapache2-mod-korvex_" + version + "_" + arch + ".deb",
            "korvex-host-platform_" + version + "_" + arch + ".deb"};
}

std::string changelog_version(const std::string &source_dir) {
    const std::string text = read_file(source_dir + "/debian/changelog");
    static const std::regex first_line(R"(^korvex \(([0-9.]+)\))");
    std::smatch match;
    return std::regex_search(text, match, first_line) ? match[1].str() : "";
}

std::string host_architecture(const std::string &variable, const std::string &work_dir) {
    const CommandResult asked =
        run_command({"dpkg-architecture", "-q" + variable}, work_dir + "/dpkg-architecture.log");
    if (asked.status != 0) throw std::runtime_error("dpkg-architecture -q" + variable + " failed: " + asked.output);
    return trimmed(asked.output);
}

std::string runpath_of(const std::string &elf_file, const std::string &work_dir) {
    const CommandResult dynamic = run_command({"readelf", "-d", elf_file}, work_dir + "/readelf.log");
    static const std::regex runpath(R"(\(RUNPATH\)\s+Library runpath: (.*))");
    std::smatch match;
    return std::regex_search(dynamic.output, match, runpath) ? trimmed(match[1].str()) : "";
}

}  // namespace korvex::test::package
