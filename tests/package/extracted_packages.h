// The Debian packages as the package test uses them: brought up to date in the build tree,
// extracted with dpkg-deb -x under a run directory and used from there. Nothing is
// installed on the machine.
#pragma once

#include <string>
#include <vector>

namespace korvex::test::package {

// The files the packages ship, relative to the extracted root.
inline constexpr char kShippedModule[] = "usr/lib/apache2/modules/mod_korvex.so";
inline constexpr char kShippedLoad[] = "etc/apache2/mods-available/korvex.load";
inline constexpr char kShippedConf[] = "etc/apache2/mods-available/korvex.conf";
inline constexpr char kShippedAuth[] = "etc/apache2/conf-available/korvex-auth.conf";
inline constexpr char kShippedPolicy[] = "usr/share/dbus-1/system.d/mod-korvex.conf";
// Where Debian's Apache keeps its modules.
inline constexpr char kApacheModules[] = "/usr/lib/apache2/modules";

struct ExtractedPackages {
    std::string run_dir;  // the test's run directory
    std::string root;     // RUN_DIR/root: the packages' files at their installed paths below it
    // The platform library's installed directory, /usr/lib/<triplet>/korvex.
    std::string platform_dir;
    // File names of the packages extracted: the module's, then the platform library's.
    std::vector<std::string> packages;

    // An installed path (absolute or relative to /) as found in the extracted tree.
    std::string path(const std::string &installed) const;
};

// "scripts/build-deb.sh --if-stale DEB_DIR": builds the packages unless they are newer than
// every file of the tree. Throws with the end of its log when it fails.
void build_packages_if_stale(const std::string &source_dir, const std::string &deb_dir, const std::string &log);

// Extracts the newest module package and platform package of deb_dir under
// run_dir/root. Throws when one is missing or dpkg-deb fails.
ExtractedPackages extract_packages(const std::string &deb_dir, const std::string &run_dir);

// The package file names the build makes for a version and a Debian architecture, in the
// order of ExtractedPackages::packages.
std::vector<std::string> expected_package_names(const std::string &version, const std::string &arch);

// The first version of debian/changelog ("0.1.0" of "korvex (0.1.0) unstable; ...").
std::string changelog_version(const std::string &source_dir);

// A dpkg-architecture variable of this machine (DEB_HOST_ARCH, DEB_HOST_MULTIARCH).
std::string host_architecture(const std::string &variable, const std::string &work_dir);

// The RUNPATH of an ELF file as readelf -d shows it ("" when it has none).
std::string runpath_of(const std::string &elf_file, const std::string &work_dir);

}  // namespace korvex::test::package
