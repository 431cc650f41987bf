#!/usr/bin/env bash
# Computes the load of a fleet (MACHINES machines, default a million; SEED, default 1) and writes its figures and
# pictures into docs/fleet.md, between the two lines that say so. The figures by minute go to build/fleet/*.csv.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh --tests linux ampora_fleet
mkdir -p build/fleet
build/linux/tests/ampora_fleet --machines "${MACHINES:-1000000}" --seed "${SEED:-1}" --csv build/fleet >build/fleet/figures.md
scripts/renew-figures docs/fleet.md figures <build/fleet/figures.md
echo "docs/fleet.md has the figures of $(wc -l <build/fleet/figures.md) lines; build/fleet has those of each minute."
