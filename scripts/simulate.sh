#!/usr/bin/env bash
# Builds the simulator and runs SEEDS seeds (default 200) of DAYS days each (default 30), FIRST_SEED (default 1) first,
# on all processors. Arguments go to the simulator.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh --tests linux ampora_simulate
exec build/linux/tests/ampora_simulate --first-seed "${FIRST_SEED:-1}" --seeds "${SEEDS:-200}" \
  --days "${DAYS:-30}" --jobs "$(nproc)" "$@"
