#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (ASan and UBSan on) in build-fuzz/ and runs each
# on its seed corpus (tests/fuzz/corpus/NAME), new inputs going to build-fuzz/corpus/NAME.
#   scripts/fuzz.sh [SECONDS [TARGET...]]    each target (or the ones named) for SECONDS
#                                            (default 60; "make fuzz" runs them all;
#                                            0: build them and run none)
# "make test" builds them first (SECONDS 0) and runs them a second each, so that they cannot rot.
set -euo pipefail

source_dir="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="${KORVEX_FUZZ_BUILD_DIR:-$source_dir/build-fuzz}"
seconds="${1:-60}"
all_targets=(upload_splitter_fuzz part_header_fuzz body_buffer_fuzz shell_line_fuzz proc_readers_fuzz survey_row_fuzz mac_parser_fuzz cross_site_fuzz)
targets=("${all_targets[@]}")
if [ "$#" -gt 1 ]; then
    targets=("${@:2}")
    for target in "${targets[@]}"; do
        if [[ " ${all_targets[*]} " != *" $target "* ]]; then
            echo "fuzz: no target $target (targets: ${all_targets[*]})" >&2
            exit 2
        fi
    done
fi

if ! command -v clang++ >/dev/null; then
    echo "fuzz: clang++ is not installed (scripts/install-deps.sh installs it)" >&2
    exit 1
fi

mkdir -p "$build_dir"
flags="-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer -g"
cmake -S "$source_dir" -B "$build_dir" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
    -DKORVEX_FUZZ=ON -DBUILD_TESTING=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
    -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=address,undefined" >"$build_dir/configure.log" 2>&1 ||
    { cat "$build_dir/configure.log" >&2; exit 1; }
cmake --build "$build_dir" --target "${targets[@]}" -j"$(nproc)" >"$build_dir/build.log" 2>&1 ||
    { tail -40 "$build_dir/build.log" >&2; exit 1; }
[ "$seconds" != 0 ] || exit 0

failed=0
for target in "${targets[@]}"; do
    corpus="$build_dir/corpus/$target"
    mkdir -p "$corpus"
    log="$build_dir/$target.log"
    if (cd "$build_dir" && "./tests/fuzz/$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -print_final_stats=1 "$corpus" "$source_dir/tests/fuzz/corpus/$target") >"$log" 2>&1; then
        runs="$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)"
        echo "fuzz: $target: ${runs:-?} runs in ${seconds} s, no finding"
    else
        echo "fuzz: $target FAILED (see $log)" >&2
        tail -30 "$log" >&2
        failed=1
    fi
done
exit "$failed"
