#!/usr/bin/env bash
# Makes the build folder of a preset, or brings it up to date: configure.sh [--tests] PRESET
#
# A new folder is made without the tests, which need more packages, unless --tests asks for them. Once it has them it
# keeps them, so that one folder serves every command.
set -euo pipefail
cd "$(dirname "$0")/.."
options=()
if [ "${1:-}" = --tests ]; then
  options=(-DAMPORA_TESTS=ON)
  shift
fi
preset=${1:?usage: configure.sh [--tests] PRESET}
if [ "${#options[@]}" -eq 0 ] && [ ! -e "build/$preset/CMakeCache.txt" ]; then options=(-DAMPORA_TESTS=OFF); fi

mkdir -p build
cmake --preset "$preset" "${options[@]}" >"build/$preset-configure.log" 2>&1 ||
  { cat "build/$preset-configure.log" >&2; exit 1; }
