# shellcheck shell=bash
# Sourced by scripts/gateway.sh: the module's log level, given as one of the gateway's
# levels (1-6) or as an Apache level name, in the two forms the server needs (see
# docs/logging.md).

# apache_log_level LEVEL: the Apache level name for "LogLevel korvex:NAME".
apache_log_level() {
    case "$1" in
    emerg | alert | crit | error | warn | notice | info | debug | trace[1-8]) echo "$1" ;;
    [6-9] | [1-9][0-9]) echo error ;;
    5) echo notice ;;
    4) echo info ;;
    3) echo debug ;;
    2) echo trace1 ;;
    0 | 1) echo trace2 ;;
    *) return 1 ;;
    esac
}

# platform_log_level NAME: the lowest gateway level that Apache level NAME lets through;
# KORVEX_LOG_LEVEL of the server, for records written before the module reaches Apache's log.
platform_log_level() {
    case "$1" in
    emerg | alert | crit | error | warn) echo 6 ;;
    notice) echo 5 ;;
    info) echo 4 ;;
    debug) echo 3 ;;
    trace1) echo 2 ;;
    *) echo 1 ;;
    esac
}
