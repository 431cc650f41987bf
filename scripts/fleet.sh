#!/usr/bin/env bash
# Computes the load of a fleet (MACHINES machines, default a million; SEED, default 1) and writes its figures and
# pictures into docs/fleet.md, between the two lines that say so. The figures by minute go to build/fleet/*.csv.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh --tests linux ampora_fleet
mkdir -p build/fleet
build/linux/tests/ampora_fleet --machines "${MACHINES:-1000000}" --seed "${SEED:-1}" --csv build/fleet >build/fleet/figures.md
awk -v figures=build/fleet/figures.md '
  /^<!-- figures: end -->/ { inside = 0; ends++ }
  !inside { print }
  /^<!-- figures: begin/ { inside = 1; begins++; print ""; while ((getline line < figures) > 0) print line; print "" }
  END { if (begins != 1 || ends != 1) exit 1 }
' docs/fleet.md >build/fleet/fleet.md || { echo "fleet: docs/fleet.md lacks the lines that the figures go between" >&2; exit 1; }
cat build/fleet/fleet.md >docs/fleet.md
echo "docs/fleet.md has the figures of $(wc -l <build/fleet/figures.md) lines; build/fleet has those of each minute."
