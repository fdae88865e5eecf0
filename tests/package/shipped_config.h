// The configuration of a gateway made of the shipped files: Debian's Apache (event MPM)
// around the packaged korvex.load and korvex.conf, and a system bus that denies by default
// and includes the packaged bus policy.
#pragma once

#include <string>

namespace korvex::test::package {

// The htpasswd path korvex-auth.conf names.
inline constexpr char kShippedHtpasswd[] = "/etc/apache2/korvex.htpasswd";

// A copy of a shipped file's text with every `from` replaced by `to`, after checking that
// the text holds expected_line as a whole line, so that the copy differs from the shipped
// file in that path alone. Throws when the line is missing.
std::string moved_copy(const std::string &shipped_text, const std::string &expected_line, const std::string &from,
                       const std::string &to);

struct ServerFiles {
    std::string run_dir;
    std::string load_file;    // the moved copy of korvex.load
    std::string module_conf;  // the shipped korvex.conf, unchanged
    std::string auth_conf;    // the moved copy of korvex-auth.conf; empty: no authentication
};

// httpd.conf of the server on 127.0.0.1:port: the modules a stock Debian server enables
// for the gateway, mod_reqtimeout as Debian sets it, a small event MPM, then the files.
std::string server_config(const ServerFiles &files, int port);

// bus.conf of a system bus on RUN_DIR/bus/socket that denies method calls and signals by
// default, lets clients receive nothing but the bus's own replies, and includes
// module_policy (the module's rules) and a test-only policy for the simulator.
std::string bus_config(const std::string &run_dir, const std::string &module_policy);

// The policy without the lines of rules that name `send_interface` or the signal member
// rewriteEntire.
std::string narrowed_policy(const std::string &policy_text, const std::string &send_interface);

// How many lines of text contain `needle`.
int count_lines_with(const std::string &text, const std::string &needle);

}  // namespace korvex::test::package
