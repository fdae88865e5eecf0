#!/usr/bin/env bash
# Tests what the Debian packages ship, without installing them: the packages are extracted
# (dpkg-deb -x) under a run directory and used from there. See docs/packaging.md.
#   package-test.sh [--build] DEB_DIR BUILD_DIR
# DEB_DIR holds the built .deb files (with --build: they are built there first unless
# they are newer than every file of the tree); BUILD_DIR a development build with the
# simulator.
# Exit status 0 when every check holds, 1 otherwise, 77 when the machine cannot run it
# (not root, or no www-data account).
set -euo pipefail

SOURCE_DIR="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

if [ "${1:-}" = --build ]; then
    shift
    bash "$SOURCE_DIR/scripts/build-deb.sh" --if-stale "${1:?usage: package-test.sh [--build] DEB_DIR BUILD_DIR}" >/dev/null
fi
DEB_DIR="$(cd "${1:?usage: package-test.sh DEB_DIR BUILD_DIR}" && pwd)"
BUILD_DIR="$(cd "${2:?usage: package-test.sh DEB_DIR BUILD_DIR}" && pwd)"
RUN_ROOT="${KORVEX_RUN_ROOT:-/var/tmp/korvex-runs}/package-$$"
ROOT="$RUN_ROOT/root"

if [ "$(id -u)" != 0 ] || ! id www-data >/dev/null 2>&1; then
    echo "package-test: needs root and a www-data account (the server and the bus policy run as www-data)"
    exit 77
fi

# shellcheck source=package/installed_gateway.sh
source "$SOURCE_DIR/scripts/package/installed_gateway.sh"
# shellcheck source=package/stock_apache.sh
source "$SOURCE_DIR/scripts/package/stock_apache.sh"

FAILURES=0
check() { # NAME EXPECTED ACTUAL
    if [ "$2" == "$3" ]; then
        echo "ok: $1"
    else
        echo "FAILED: $1"
        echo "  expected: $(printf '%q' "$2")"
        echo "  actual:   $(printf '%q' "$3")"
        FAILURES=$((FAILURES + 1))
    fi
}

# --- what the exact answers are (as the end-to-end tests expect them) ---------------------

TEST_ANSWER="in testAPI, value: 0<br>test done"
GETIP_ANSWER="192.168.1.57<br>getip done"
SNAPSHOT_SETTINGS=(jsonsetall_number=1760518412 jsongetuserdata_number=1760432011
    setastclock_lon=13.4050 setastclock_lat=52.5200 TUTK_UUID=E7KA9ZB1XH4WTRGU111A
    UUID=4F61A2C95DE3B07810KQ WifiMode=AP SSID1=Korvex-QTR58-3457 STA_SSID1=Vodafone-7A21
    TimeZone=MET_001 jsonsetcheckbox=3 jsonsetcheckbox2=0 SU_PASSWORD=su7Qx2rT enablelock=0
    enableastclock=1 doscenemode=2 language=1)
SNAPSHOT_ANSWER='{"AP_SSID":"Korvex-QTR58-3457","Orbweb_UUID":"4F61A2C95DE3B07810KQ","PLATFORM_MODEL":"QTR58",'
SNAPSHOT_ANSWER+='"STA_SSID":"Vodafone-7A21","SU_PASSWORD":"su7Qx2rT","TUTK_UUID":"E7KA9ZB1XH4WTRGU111A","TZ":17,'
SNAPSHOT_ANSWER+='"WifiMode":"AP","doscenemode":2,"enableastclock":1,"enablelock":0,"eth:":"00:4f:61:12:34:56",'
SNAPSHOT_ANSWER+='"jsongetuserdata_number":1760432011,"jsonsetall_number":1760518412,"jsonsetcheckbox":3,'
SNAPSHOT_ANSWER+='"jsonsetcheckbox2":0,"language":1,"setastclock_lat":"52.5200","setastclock_lon":"13.4050",'
SNAPSHOT_ANSWER+='"swversion":"5.3.2:20261015","wifi:":"00:4f:61:12:34:57"}<br>jsongetupdate done'

# Records of calls to MEMBER that reached the simulated daemons.
records_of() { sim_control Records | jq -c --arg m "$1" '[.[] | select(.member == $m)] | length'; }

# Number of "rewriteEntire" signals the simulator received after "reflash", waiting up to
# SECONDS for the first (a broadcast has no reply to wait for).
reflash_signals() { # SECONDS
    local answer count deadline=$((SECONDS + $1))
    answer="$(http_get '/network.cgi?reflash=all')"
    [ "$answer" = "reflash done" ] || { echo "reflash answered: $answer"; return; }
    while :; do
        count="$(sim_control Records |
            jq -c '[.[] | select(.type == "signal" and .member == "rewriteEntire")] | length')"
        if [ "$count" != 0 ] || [ "$SECONDS" -ge "$deadline" ]; then break; fi
        sleep 0.1
    done
    echo "$count"
}

seed_snapshot_settings() {
    local setting
    for setting in "${SNAPSHOT_SETTINGS[@]}"; do
        sim_control NvramPut "string:${setting%%=*}" "string:${setting#*=}" boolean:true >/dev/null
    done
}

# A bus client as another account calls a gateway name directly. The bus's refusal is
# compared with the variable parts (connection names, ids, command lines) blanked out.
direct_call_as() { # ACCOUNT GROUP
    setpriv --reuid="$1" --regid="$2" --clear-groups env "DBUS_SYSTEM_BUS_ADDRESS=$(bus_address)" \
        dbus-send --system --print-reply=literal --dest=com.korvex-labs.www.platform \
        /com/KorvexLabs/Apache/1 com.KorvexLabs.platform.nvram.get string:SSID1 2>&1 |
        sed -e 's/sender=":[0-9.]*" ([^)]*)/sender=(client)/' -e 's/" ([^)]*)$/" (daemon)/' \
            -e 's/^ *//' -e 's/ *$//' || true
}
REFUSAL='Error org.freedesktop.DBus.Error.AccessDenied: Rejected send message, 1 matched rules;'
REFUSAL+=' type="method_call", sender=(client) interface="com.KorvexLabs.platform.nvram" member="get"'
REFUSAL+=' error name="(unset)" requested_reply="0" destination="com.korvex-labs.www.platform" (daemon)'

# --- the checks ---------------------------------------------------------------------------

extract_packages() {
    rm -rf "$RUN_ROOT"
    mkdir -p "$ROOT"
    chmod 755 "${KORVEX_RUN_ROOT:-/var/tmp/korvex-runs}" "$RUN_ROOT" "$ROOT"
    local deb found=0
    for deb in "$DEB_DIR"/libapache2-mod-korvex_*.deb "$DEB_DIR"/korvex-host-platform_*.deb; do
        [ -f "$deb" ] || die "no package like $deb: run 'make deb' first"
        dpkg-deb -x "$deb" "$ROOT"
        found=$((found + 1))
    done
    check "the two packages are extracted" 2 "$found"
    check "the module finds the platform library through its RUNPATH" "[$PLATFORM_DIR]" \
        "$(readelf -d "$ROOT/usr/lib/apache2/modules/mod_korvex.so" | sed -n 's/.*(RUNPATH).*runpath: //p')"
    check "the packaged module has no test-only fault hooks (no X-Korvex-Fault in it)" 0 \
        "$(grep -a -c -F X-Korvex-Fault "$ROOT/usr/lib/apache2/modules/mod_korvex.so" || true)"
    local file missing=""
    for file in usr/share/korvex/console/index.html usr/share/korvex/console/main.js \
        usr/share/korvex/console/commands.json etc/apache2/conf-available/korvex-console.conf \
        usr/share/doc/libapache2-mod-korvex/korvex-api.html; do
        [ -f "$ROOT/$file" ] || missing+=" $file"
    done
    check "the console, its snippet and the HTML reference are installed" "" "$missing"
}

check_stock_apache() {
    check "a2enmod korvex, a2enconf korvex-auth and configtest on Debian's Apache (event MPM)" \
        "$(expected_stock_apache_session)" "$(stock_apache_session)"
}

check_plain_gateway() {
    gateway_up plain "$ROOT/$SHIPPED_POLICY" 0
    check "network.cgi?test=0" "$TEST_ANSWER" "$(http_get '/network.cgi?test=0')"
    check "network.cgi?test=0 status" 200 "$(last_status)"
    seed_snapshot_settings
    check "status snapshot" "$SNAPSHOT_ANSWER" "$(http_get '/network.cgi?jsongetupdate=')"
    sim_control ClearRecords >/dev/null
    check "getip through the policy" "$GETIP_ANSWER" "$(http_get '/network.cgi?getip=')"
    check "getip reached the platform daemon" 1 "$(records_of getip)"
    sim_control ClearRecords >/dev/null
    check "the server's account may call the platform daemon" "Korvex-QTR58-3457" \
        "$(direct_call_as www-data www-data)"
    check "its call reached the platform daemon" 1 "$(records_of get)"
    sim_control ClearRecords >/dev/null
    check "another account is refused by the bus" "$REFUSAL" "$(direct_call_as nobody nogroup)"
    check "the refused call reached no daemon" "[]" "$(sim_control Records)"
    check "the rewriteEntire signal passes the bus" 1 "$(reflash_signals 10)"
    check_idle_connections
    gateway_down
}

# 300 connections that send nothing (each to be cut by mod_reqtimeout) must not stop the
# event MPM from serving a real request at once.
check_idle_connections() {
    local -a idle=()
    local fd i started took
    for i in $(seq 300); do
        exec {fd}<>"/dev/tcp/127.0.0.1/$PORT" || break
        idle+=("$fd")
    done
    check "300 idle connections open" 300 "${#idle[@]}"
    started=$(date +%s%N)
    check "with 300 idle connections: network.cgi?test=0" "$TEST_ANSWER" "$(http_get '/network.cgi?test=0')"
    took=$((($(date +%s%N) - started) / 1000000))
    echo "   (answered in $took ms)"
    check "with 300 idle connections: answered within 5 s" yes "$([ "$took" -lt 5000 ] && echo yes || echo no)"
    for fd in "${idle[@]}"; do exec {fd}>&-; done
}

check_auth_gateway() {
    gateway_up auth "$ROOT/$SHIPPED_POLICY" 1
    sim_control ClearRecords >/dev/null
    http_get '/network.cgi?test=0' >/dev/null
    check "without credentials: status" 401 "$(last_status)"
    http_get '/network.cgi?getip=' >/dev/null
    check "without credentials: getip status" 401 "$(last_status)"
    http_get '/sdk.cgi' >/dev/null
    check "without credentials: sdk.cgi status" 401 "$(last_status)"
    http_get '/network.cgi?getip=' -u "$AUTH_USER:wrong" >/dev/null
    check "wrong password: status" 401 "$(last_status)"
    check "requests without credentials reached no daemon" "[]" "$(sim_control Records)"
    check "with credentials: network.cgi?test=0" "$TEST_ANSWER" \
        "$(http_get '/network.cgi?test=0' -u "$AUTH_USER:$AUTH_PASSWORD")"
    check "with credentials: status" 200 "$(last_status)"
    seed_snapshot_settings
    check "with credentials: status snapshot" "$SNAPSHOT_ANSWER" \
        "$(http_get '/network.cgi?jsongetupdate=' -u "$AUTH_USER:$AUTH_PASSWORD")"
    check "the static index needs no credentials" 200 "$(http_get / >/dev/null; last_status)"
    gateway_down
}

# The same policy without the platform daemon's network interface and the rewriteEntire
# signal: the module's call and signal are refused by the bus and never reach the daemons.
check_narrowed_policy() {
    local narrowed="$RUN_ROOT/narrowed-policy.conf" removed="com.KorvexLabs.platform.net"
    grep -v -F -e "send_interface=\"$removed\"" -e 'send_member="rewriteEntire"' \
        "$ROOT/$SHIPPED_POLICY" >"$narrowed"
    check "the narrowed policy lacks the rewriteEntire rule" 0 "$(grep -c rewriteEntire "$narrowed" || true)"
    check "the narrowed policy lacks one method-call rule" \
        "$(($(grep -c 'send_type="method_call"' "$ROOT/$SHIPPED_POLICY") - 1))" \
        "$(grep -c 'send_type="method_call"' "$narrowed")"
    gateway_up narrowed "$narrowed" 0
    sim_control ClearRecords >/dev/null
    check "getip refused by the bus" "getip failed" "$(http_get '/network.cgi?getip=')"
    check "the refused getip reached no daemon" 0 "$(records_of getip)"
    check "the refused rewriteEntire signal reached no daemon" 0 "$(reflash_signals 2)"
    gateway_down
}

extract_packages
check_stock_apache
check_plain_gateway
check_auth_gateway
check_narrowed_policy

if [ "$FAILURES" -ne 0 ]; then
    echo "package-test: $FAILURES check(s) failed; run directories kept in $RUN_ROOT"
    exit 1
fi
rm -rf "$RUN_ROOT"
echo "package-test: all checks passed"
