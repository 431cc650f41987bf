#!/usr/bin/env bash
# Runs each fuzzer for FUZZ_SECONDS (default 30), two at a time, and fails when an input has broken one: fuzz.sh [NAME...]
#
# Without names all run. New inputs of interest and breaking ones are kept in build/linux-fuzz/found/NAME, what a fuzzer
# prints in NAME.log beside it. Ends with a table in Markdown of what was run. With --merge before the names, nothing is
# run: of what was found, as few inputs are added to fuzz/seeds/NAME as reach what those there do not.
set -euo pipefail
cd "$(dirname "$0")/.."
merges=
if [ "${1:-}" = --merge ]; then
  merges=yes
  shift
fi
fuzzers=("$@")
[ "$#" -gt 0 ] || mapfile -t fuzzers < <(sed -n 's/^ampora_fuzzer(\([a-z_]*\).*/\1/p' fuzz/CMakeLists.txt)

export FUZZ_SECONDS=${FUZZ_SECONDS:-30}
export TZ=Europe/Berlin # a zone with daylight saving, for schedules
export found=build/linux-fuzz/found

run_one() {
  mkdir -p "$found/$1"
  rm -f "$found/$1"/broken-*
  local dictionary=()
  [ ! -e "fuzz/$1.dict" ] || dictionary=("-dict=fuzz/$1.dict")
  "build/linux-fuzz/tests/fuzz_$1" "-max_total_time=$FUZZ_SECONDS" -max_len=4096 -timeout=20 -report_slow_units=20 -rss_limit_mb=2048 \
    -print_final_stats=1 "${dictionary[@]}" "-artifact_prefix=$found/$1/broken-" "$found/$1" "fuzz/seeds/$1" \
    >"$found/$1.log" 2>&1 || true
  table_row "$1"
}

# One row of the table, from what the fuzzer has printed.
table_row() {
  local log=$found/$1.log
  local runs edges corpus
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  read -r edges corpus < <(sed -n 's/^#[0-9]*.*cov: \([0-9]*\) .*corp: \([0-9]*\).*/\1 \2/p' "$log" | tail -n 1) || true
  echo "| $1 | $FUZZ_SECONDS | ${runs:-?} | ${edges:-?} | $(find "fuzz/seeds/$1" -type f | wc -l) | ${corpus:-?} |" \
    "$(find "$found/$1" -name 'broken-*' | wc -l) |"
}

merge_one() {
  # Seen or not seen, and not how often: else thousands of inputs would differ from each other.
  "build/linux-fuzz/tests/fuzz_$1" -set_cover_merge=1 -use_counters=0 -max_len=1000 "fuzz/seeds/$1" "$found/$1" 2>&1 | tail -n 1
}
export -f run_one table_row

scripts/build.sh linux-fuzz "${fuzzers[@]/#/fuzz_}"
if [ -n "$merges" ]; then
  for fuzzer in "${fuzzers[@]}"; do merge_one "$fuzzer"; done
  exit
fi
mkdir -p "$found"
echo '| fuzzer | seconds | runs | edges reached | inputs kept | corpus at the end | broken by |'
echo '|---|---|---|---|---|---|---|'
printf '%s\n' "${fuzzers[@]}" | xargs -n 1 -P 2 bash -c 'run_one "$0"' | sort
broken=0
for fuzzer in "${fuzzers[@]}"; do
  # A fuzzer that ended before its time has no such line, whatever ended it.
  if ! grep -q '^stat::number_of_executed_units' "$found/$fuzzer.log" || compgen -G "$found/$fuzzer/broken-*" >&2; then
    tail -n 40 "$found/$fuzzer.log" >&2
    broken=1
  fi
done
exit "$broken"
