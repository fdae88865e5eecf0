#!/usr/bin/env bash
# Which modules answer the test-only fault header: a module built with the hooks holds the
# header's name (the hooks look it up), one built without holds none of it.
#   fault_hooks_check.sh [--with MODULE]... [--without MODULE]...
set -euo pipefail

header="X-Korvex-Fault"
failures=0
while [ $# -gt 0 ]; do
    want="$1" module="${2:?usage: fault_hooks_check.sh --with|--without MODULE ...}"
    shift 2
    [ -f "$module" ] || { echo "FAILED: $module is missing"; failures=$((failures + 1)); continue; }
    count="$(grep -a -c -F -- "$header" "$module" || true)"
    case "$want" in
    --with) [ "$count" -gt 0 ] && result=ok || result=FAILED
        echo "$result: $module holds \"$header\" ($count lines)" ;;
    --without) [ "$count" -eq 0 ] && result=ok || result=FAILED
        echo "$result: $module holds no \"$header\" ($count lines)" ;;
    *) echo "usage: fault_hooks_check.sh --with|--without MODULE ..." >&2; exit 2 ;;
    esac
    [ "$result" = ok ] || failures=$((failures + 1))
done
exit $((failures > 0))
