#!/usr/bin/env bash
# Builds and runs the benchmarks. Arguments go to the benchmark program.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh --tests linux ampora_bench
exec build/linux/tests/ampora_bench "$@"
