#!/usr/bin/env bash
# Attacks the programs in every way that scripts/attack/ knows: attack.sh [PART...]
#
# Each part prints what it does and leaves its figures as Markdown in build/attack/PART.md, which this script writes into
# docs/testing.md; a part that fails leaves the document's old figures. Without arguments all parts run. Exit status 1 when
# a part has failed.
set -uo pipefail
cd "$(dirname "$0")/.."
parts=("$@")
[ "$#" -gt 0 ] || mapfile -t parts < <(find scripts/attack -type f -executable -printf '%f\n' | sort)

mkdir -p build/attack
failed=()
closing=
for part in "${parts[@]}"; do
  printf '\n== %s\n' "$part"
  figures=build/attack/$part.md
  rm -f "$figures"
  begin=$SECONDS
  result=held
  { "scripts/attack/$part" "$figures" && scripts/renew-figures docs/testing.md "$part" <"$figures"; } ||
    { result=FAILED; failed+=("$part"); }
  closing+=$(printf '%-10s %6d s  %s' "$part" "$((SECONDS - begin))" "$result")$'\n'
done
printf '\n%s' "$closing"
[ "${#failed[@]}" -eq 0 ]
