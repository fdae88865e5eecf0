# shellcheck shell=bash
# Sourced by scripts/package-test.sh: "a2enmod korvex" and "apache2ctl configtest" on the
# machine's own Debian Apache configuration, with the packaged files at their installed
# paths, all inside a private mount namespace over copies: nothing under the real /etc,
# /var or /usr changes. Uses ROOT, RUN_ROOT, PLATFORM_DIR and the SHIPPED_* names.

# Prints what the commands print, one block per command, for the caller to compare.
stock_apache_session() {
    local stock="$RUN_ROOT/stock"
    rm -rf "$stock"
    mkdir -p "$stock/var-lib-apache2"
    cp -a /etc/apache2 "$stock/etc-apache2"
    cp -a /usr/lib/apache2/modules "$stock/modules"
    [ ! -d /var/lib/apache2 ] || cp -a /var/lib/apache2/. "$stock/var-lib-apache2/"
    cp "$ROOT/$SHIPPED_LOAD" "$ROOT/$SHIPPED_CONF" "$stock/etc-apache2/mods-available/"
    cp "$ROOT/$SHIPPED_AUTH" "$stock/etc-apache2/conf-available/"
    cp "$ROOT/usr/lib/apache2/modules/mod_korvex.so" "$stock/modules/"
    # The platform library's directory does not exist on this machine; the loader is told
    # where the extracted one is.
    # shellcheck disable=SC2016 # expanded by the inner shell
    unshare --mount --propagation private sh -c '
        stock="$1" && export LD_LIBRARY_PATH="$2" &&
        mount --bind "$stock/etc-apache2" /etc/apache2 &&
        mount --bind "$stock/var-lib-apache2" /var/lib/apache2 &&
        mount --bind "$stock/modules" /usr/lib/apache2/modules &&
        mount -t tmpfs tmpfs /run && mkdir /run/lock && mount -t tmpfs tmpfs /var/log && mkdir /var/log/apache2 &&
        a2dismod -q -f mpm_prefork mpm_worker >/dev/null 2>&1; a2enmod -q mpm_event >/dev/null &&
        echo "== a2query -M" && a2query -M &&
        echo "== a2enmod korvex" && a2enmod korvex &&
        echo "== configtest" && apache2ctl configtest 2>&1 | grep -v AH00558 &&
        echo "== modules" && apache2ctl -M 2>/dev/null | grep -E "^ (korvex|mpm_)" &&
        echo "== a2enconf korvex-auth" && a2enconf korvex-auth &&
        echo "== configtest" && apache2ctl configtest 2>&1 | grep -v AH00558' \
        sh "$stock" "$ROOT$PLATFORM_DIR" 2>&1 |
        sed "s/^  \(systemctl\|service\) .*/  (the command that applies it)/"
}

expected_stock_apache_session() {
    cat <<'EOF'
== a2query -M
event
== a2enmod korvex
Enabling module korvex.
To activate the new configuration, you need to run:
  (the command that applies it)
== configtest
Syntax OK
== modules
 korvex_module (shared)
 mpm_event_module (shared)
== a2enconf korvex-auth
Enabling conf korvex-auth.
To activate the new configuration, you need to run:
  (the command that applies it)
== configtest
Syntax OK
EOF
}
