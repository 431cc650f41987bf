#!/usr/bin/env bash
# Runs each fuzzer for FUZZ_SECONDS (default 30) and fails on the first input that breaks one. New inputs of interest and
# breaking ones are kept in build/linux-fuzz/found/NAME. Arguments: names of fuzzers (default: all).
set -euo pipefail
cd "$(dirname "$0")/.."
fuzzers=("$@")
[ "$#" -gt 0 ] || fuzzers=(analyzer data_file live_settings published_file requests settings)

scripts/build.sh linux-fuzz "${fuzzers[@]/#/fuzz_}"
for fuzzer in "${fuzzers[@]}"; do
  found=build/linux-fuzz/found/$fuzzer
  mkdir -p "$found"
  printf '\n== %s\n' "$fuzzer"
  build/linux-fuzz/tests/fuzz_"$fuzzer" -max_total_time="${FUZZ_SECONDS:-30}" -timeout=10 -rss_limit_mb=2048 \
    -print_final_stats=1 -verbosity=0 -artifact_prefix="$found/broken-" "$found" "fuzz/seeds/$fuzzer"
done
