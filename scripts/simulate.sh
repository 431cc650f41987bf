#!/usr/bin/env bash
# Builds the simulator and runs SEEDS seeds (default 200) of DAYS days each (default 30), FIRST_SEED (default 1) first,
# on all processors. Arguments go to the simulator. The last line is the sum of all; fails on a violation.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh --tests linux ampora_simulate
days="${DAYS:-30}"
first=${FIRST_SEED:-1}
end=$((first + ${SEEDS:-200}))
begin=$SECONDS
status=0
# In parts, so that no processor is left without work for long.
for ((seed = first; seed < end; seed += 10)); do
  echo "--first-seed $seed --seeds $((end - seed < 10 ? end - seed : 10))"
done |
  xargs -P "$(nproc)" -L 1 build/linux/tests/ampora_simulate --days "$days" "$@" |
  awk -v days="$days" '
    / seeds x / { seeds += $1; passes += $6; requests += $8; violations += $10; next }
    { print; fflush() }
    END { printf "%d seeds x %d days: %d passes, %d requests, %d violations, ", seeds, days, passes, requests, violations }
  ' || status=1
echo "$((SECONDS - begin)) s"
exit "$status"
