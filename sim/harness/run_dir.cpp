#include "sim/harness/run_dir.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "sim/harness/launch.h"

namespace fs = std::filesystem;

namespace korvex::harness {
namespace {

void make_dir(const std::string &path, unsigned mode) {
    fs::create_directories(path);
    chmod(path.c_str(), mode);
}

void give_to_server(const std::string &path) {
    if (passwd *account = getpwnam(kServerAccount)) {
        if (chown(path.c_str(), account->pw_uid, account->pw_gid) != 0)
            throw std::runtime_error("cannot chown " + path);
    }
}

void copy_file(const std::string &from, const std::string &to, unsigned mode) {
    if (access(from.c_str(), R_OK) != 0) throw std::runtime_error(from + " is missing: build first");
    fs::copy_file(from, to, fs::copy_options::overwrite_existing);
    chmod(to.c_str(), mode);
}

// Recording stand-ins for programs the server runs itself; never the real ones.
void write_stand_ins(const std::string &run_dir) {
    make_dir(run_dir + "/bin", 0755);
    write_text(run_dir + "/bin/iwpriv",
               "#!/bin/sh\n"
               "# Stand-in for the Wi-Fi driver tool: records its arguments, prints a site survey.\n"
               "echo \"iwpriv $*\" >>\"" + run_dir + "/stubs.log\"\n"
               "case \"$*\" in\n"
               "*get_site_survey*) cat \"" + run_dir + "/stubs/site_survey.txt\" ;;\n"
               "esac\n",
               0755);
    write_text(run_dir + "/bin/reboot",
               "#!/bin/sh\n"
               "# Stand-in for reboot: records its arguments and does nothing else.\n"
               "echo \"reboot $*\" >>\"" + run_dir + "/stubs.log\"\n",
               0755);
}

}  // namespace

bool isolation_available() {
    const char *knob = std::getenv("KORVEX_ISOLATION");
    if (knob && std::string(knob) == "0") return false;
    return geteuid() == 0 && getpwnam(kServerAccount) != nullptr && !find_program("unshare").empty() &&
           !find_program("setpriv").empty() && !find_program("nsenter").empty();
}

bool use_isolation(Isolation wanted) {
    if (wanted == Isolation::none) return false;
    if (wanted == Isolation::automatic) return isolation_available();
    if (!isolation_available()) throw std::runtime_error("namespaces asked for, but not available (root, www-data, util-linux)");
    return true;
}

std::string fill_template(std::string text, const std::map<std::string, std::string> &values) {
    for (const auto &[key, value] : values) {
        const std::string marker = "@" + key + "@";
        for (size_t at = text.find(marker); at != std::string::npos; at = text.find(marker, at + value.size()))
            text.replace(at, marker.size(), value);
    }
    return text;
}

std::string read_text(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void write_text(const std::string &path, const std::string &text, unsigned mode) {
    {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out << text;
        if (!out) throw std::runtime_error("cannot write " + path);
    }
    chmod(path.c_str(), mode);
}

std::string default_index_page(const std::string &run_dir) {
    return "<html><body><h1>korvex gateway</h1><p>run " + fs::path(run_dir).filename().string() +
           "</p></body></html>\n";
}

std::string default_server_config(const GatewaySpec &spec, int port) {
    return fill_template(read_text(spec.source_dir + "/conf/httpd.conf.in"),
                         {{"RUN_DIR", spec.run_dir},
                          {"PORT", std::to_string(port)},
                          {"MPM", spec.mpm},
                          {"LOG_LEVEL", spec.log_level},
                          {"APACHE_MODULES", spec.apache_modules}});
}

void prepare_run_dir(const GatewaySpec &spec, bool isolated) {
    const std::string &run = spec.run_dir;
    make_dir(run, 0755);
    for (const char *sub : {"bus", "logs", "run", "htdocs", "stubs", "nvram-sections", "pids"})
        make_dir(run + "/" + sub, 0755);
    make_dir(run + "/tmp", 01777);
    std::error_code ec;
    for (const auto &entry : fs::directory_iterator(run + "/logs", ec)) fs::remove(entry.path(), ec);
    if (spec.sanitize) {
        // Written by the server's account and by ours; reports of an earlier run go away.
        fs::remove_all(run + "/sanitizer", ec);
        make_dir(run + "/sanitizer", 01777);
    }
    // Copies keep the server independent of where the tree lives (it may be hidden under
    // the server's private /tmp, or unreadable for the server's account).
    fs::remove(run + "/lib", ec);  // a link of an earlier start-up
    if (spec.library_dir.empty()) {
        make_dir(run + "/lib", 0755);
        copy_file(spec.build_dir + "/platform/libkorvex_platform.so", run + "/lib/libkorvex_platform.so", 0644);
    } else {
        fs::create_directory_symlink(spec.library_dir, run + "/lib");
    }
    std::string module = spec.module_file;
    if (module.empty() && !spec.server_config) module = spec.build_dir + "/mod_korvex.so";
    if (spec.with_server && !module.empty()) copy_file(module, run + "/lib/mod_korvex.so", 0644);

    const std::string bus_config =
        spec.bus_config.empty() ? fill_template(read_text(spec.source_dir + "/conf/bus.conf.in"), {{"RUN_DIR", run}})
                                : spec.bus_config;
    write_text(run + "/bus.conf", bus_config);
    write_text(run + "/htdocs/index.html", spec.index_page.empty() ? default_index_page(run) : spec.index_page);
    write_text(run + "/htdocs/foreign.cgi", "static file behind a foreign handler\n");
    write_text(run + "/stubs.log", "", 0666);
    write_stand_ins(run);
    copy_file(spec.source_dir + "/conf/site_survey.txt", run + "/stubs/site_survey.txt", 0644);
    // The developer console at /korvex-console/ (built into BUILD/console by the
    // korvex_console target; an empty folder when the build has none).
    fs::remove_all(run + "/console", ec);
    make_dir(run + "/console", 0755);
    for (const auto &entry : fs::directory_iterator(spec.build_dir + "/console", ec)) {
        if (entry.is_regular_file()) copy_file(entry.path(), run + "/console/" + entry.path().filename().string(), 0644);
    }
    copy_file(spec.source_dir + "/conf/apache/korvex-console.conf", run + "/korvex-console.conf", 0644);
    for (const std::string &name : spec.server_tmp_dirs) {
        static const std::regex plain("[A-Za-z0-9._-]+");
        if (!std::regex_match(name, plain)) throw std::runtime_error("bad server tmp directory name: " + name);
        if (!isolated) throw std::runtime_error("a directory in the server's /tmp needs isolation (the server would share the host's /tmp)");
        make_dir(run + "/tmp/" + name, 0755);
    }
    if (isolated) {
        for (const char *owned : {"logs", "run", "nvram-sections", "stubs.log"}) give_to_server(run + "/" + owned);
    }
}

void write_env_file(const std::string &run_dir, const std::map<std::string, std::string> &values) {
    std::string text;
    for (const auto &[key, value] : values) text += key + "=" + value + "\n";
    write_text(run_dir + "/env.tmp", text);
    fs::rename(run_dir + "/env.tmp", run_dir + "/env");
}

std::map<std::string, std::string> read_env_file(const std::string &run_dir) {
    std::map<std::string, std::string> values;
    std::istringstream lines(read_text(run_dir + "/env"));
    for (std::string line; std::getline(lines, line);) {
        const size_t eq = line.find('=');
        if (eq != std::string::npos) values[line.substr(0, eq)] = line.substr(eq + 1);
    }
    return values;
}

}  // namespace korvex::harness

namespace korvex::harness {

std::string run_root() {
    const char *root = std::getenv("KORVEX_RUN_ROOT");
    const std::string dir = root && *root ? root : "/var/tmp/korvex-runs";
    fs::create_directories(dir);
    chmod(dir.c_str(), 0755);  // the server's account walks through it
    return dir;
}

std::string make_run_dir(const std::string &label) {
    std::string pattern = run_root() + "/" + label + "-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed under " + run_root());
    chmod(pattern.c_str(), 0755);
    return pattern;
}

}  // namespace korvex::harness
