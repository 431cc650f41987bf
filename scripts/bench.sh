#!/usr/bin/env bash
# Builds and runs the benchmarks. Arguments go to the benchmark program.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset linux --log-level=WARNING
cmake --build --preset linux --target ampora_bench -- --quiet
exec build/linux/tests/ampora_bench "$@"
