#!/usr/bin/env bash
# Runs the Linux tests with coverage counters; prints each source's share of lines and writes the details to
# build/linux-coverage/report/index.html.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build/linux-coverage
[ ! -d "$build" ] || find "$build" -name '*.gcda' -delete
scripts/test.sh linux-coverage
mkdir -p "$build/report"
gcovr --root . --object-directory "$build" --exclude '.*_test\.cpp' --exclude 'testing/' --exclude 'bench/' \
  --exclude 'platform/(contract|sim)/' --exclude 'build/' --exclude-throw-branches \
  --html-details "$build/report/index.html" --txt -
