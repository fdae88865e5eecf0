# Sourced by the install scripts: which of the Debian packages in "packages" are missing.

installed() {
    [ "$(dpkg-query -W -f='${Status}' "$1" 2>/dev/null)" = "install ok installed" ]
}

# Fills the array "missing" with the entries of "packages" that are not installed.
find_missing_packages() {
    missing=()
    local package
    for package in "${packages[@]}"; do
        installed "$package" || missing+=("$package")
    done
}
