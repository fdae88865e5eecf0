// "a2enmod korvex" and "apache2ctl configtest" on this machine's own Debian Apache
// configuration with the packaged files at their installed paths, all inside a private
// mount namespace over copies: nothing under the real /etc, /var or /usr changes.
#pragma once

#include <string>

#include "tests/package/extracted_packages.h"

namespace korvex::test::package {

// Copies /etc/apache2, /var/lib/apache2 and Apache's module directory into work_dir, puts
// the packaged module and snippets into the copies, and runs over them (event MPM):
//   a2query -M, a2enmod korvex, apache2ctl configtest, apache2ctl -M,
//   a2enconf korvex-auth, apache2ctl configtest.
// Returns what they print, each under a line "== <step>", with the lines that name the
// machine's service manager ("  systemctl ..." or "  service ...") read as
// "  (the command that applies it)". Throws when a copy fails.
std::string stock_apache_session(const ExtractedPackages &packages, const std::string &work_dir);

}  // namespace korvex::test::package
