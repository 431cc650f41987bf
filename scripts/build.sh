#!/usr/bin/env bash
# Builds the targets of a preset: build.sh [--tests] PRESET [TARGET...]
#
# Without a target it builds the programs and says where they lie. --tests: see configure.sh.
set -euo pipefail
cd "$(dirname "$0")/.."
tests=()
if [ "${1:-}" = --tests ]; then
  tests=(--tests)
  shift
fi
preset=${1:?usage: build.sh [--tests] PRESET [TARGET...]}
shift
targets=("$@")
[ "$#" -gt 0 ] || targets=(programs)
quiet=()
[ -t 1 ] || quiet=(-- --quiet) # progress is for people who wait

scripts/configure.sh "${tests[@]}" "$preset"
cmake --build --preset "$preset" --target "${targets[@]}" "${quiet[@]}"
if [ "$#" -eq 0 ]; then
  echo "The programs are built:" build/"$preset"/bin/*
fi
