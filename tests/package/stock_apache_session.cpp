#include "tests/package/stock_apache_session.h"

#include <filesystem>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "tests/support/process_runner.h"

namespace fs = std::filesystem;

namespace korvex::test::package {
namespace {

// The steps, each printed under "== <name>". configtest's warning about the host name
// (AH00558) depends on the machine and is left out; of the modules only the module and
// the MPM are listed.
const std::vector<std::pair<std::string, std::string>> kSteps = {
    {"a2query -M", "a2query -M"},
    {"a2enmod korvex", "a2enmod korvex"},
    {"configtest", "apache2ctl configtest 2>&1 | grep -v AH00558"},
    {"modules", "apache2ctl -M 2>/dev/null | grep -E '^ (korvex|mpm_)'"},
    {"a2enconf korvex-auth", "a2enconf korvex-auth"},
    {"configtest", "apache2ctl configtest 2>&1 | grep -v AH00558"},
};

// Runs in the new mount namespace: the copies go over the originals, /run and /var/log
// become empty memory file systems (apache2ctl makes its directories there), Debian's
// event MPM is chosen, then the steps run until one fails.
std::string session_script() {
    std::string script =
        "stock=\"$1\" && export LD_LIBRARY_PATH=\"$2\" &&\n"
        "mount --bind \"$stock/etc-apache2\" /etc/apache2 &&\n"
        "mount --bind \"$stock/var-lib-apache2\" /var/lib/apache2 &&\n"
        "mount --bind \"$stock/modules\" /usr/lib/apache2/modules &&\n"
        "mount -t tmpfs tmpfs /run && mkdir /run/lock &&\n"
        "mount -t tmpfs tmpfs /var/log && mkdir /var/log/apache2 &&\n"
        "{ a2dismod -q -f mpm_prefork mpm_worker >/dev/null 2>&1; a2enmod -q mpm_event >/dev/null; }";
    for (const auto &[name, command] : kSteps) script += " &&\necho '== " + name + "' && " + command;
    return script + "\n";
}

void copy(const std::string &from, const std::string &to, const std::string &log) {
    const CommandResult copied = run_command({"cp", "-a", from, to}, log);
    if (copied.status != 0) throw std::runtime_error("cp -a " + from + " " + to + " failed: " + copied.output);
}

}  // namespace

std::string stock_apache_session(const ExtractedPackages &packages, const std::string &work_dir) {
    const std::string stock = work_dir + "/stock";
    const std::string log = work_dir + "/stock-copy.log";
    fs::remove_all(stock);
    fs::create_directories(stock + "/var-lib-apache2");
    copy("/etc/apache2", stock + "/etc-apache2", log);
    copy(kApacheModules, stock + "/modules", log);
    if (fs::is_directory("/var/lib/apache2")) copy("/var/lib/apache2/.", stock + "/var-lib-apache2/", log);
    copy(packages.path(kShippedLoad), stock + "/etc-apache2/mods-available/", log);
    copy(packages.path(kShippedConf), stock + "/etc-apache2/mods-available/", log);
    copy(packages.path(kShippedAuth), stock + "/etc-apache2/conf-available/", log);
    copy(packages.path(kShippedModule), stock + "/modules/", log);
    // The platform library's directory does not exist on this machine; the loader is told
    // where the extracted one is.
    const CommandResult session =
        run_command({"unshare", "--mount", "--propagation", "private", "sh", "-c", session_script(), "sh", stock,
                     packages.path(packages.platform_dir)},
                    work_dir + "/stock-session.log", 120000);
    static const std::regex service_manager("  (systemctl|service) .*");
    std::istringstream lines(session.output);
    std::string text;
    for (std::string line; std::getline(lines, line);)
        text += (std::regex_match(line, service_manager) ? "  (the command that applies it)" : line) + "\n";
    return text;
}

}  // namespace korvex::test::package
