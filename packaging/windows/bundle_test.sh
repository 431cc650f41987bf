#!/usr/bin/env bash
# Makes the archive for a real Windows twice and looks into it; with "run", also runs its test programs under wine, as
# verify.ps1 does on Windows: bundle_test.sh BUILD_FOLDER [run]
set -euo pipefail
build=$1
here=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() {
  echo "bundle_test: $1" >&2
  exit 1
}

cd "$here/../.."
export SOURCE_DATE_EPOCH=1700000000
scripts/bundle-windows.sh "$build" "$scratch" >/dev/null
python3 -m zipfile -e "$scratch"/*.zip "$scratch/files"
folder=$(echo "$scratch"/files/AmporaSrv-*)
packaging/windows/make-bundle "$build" "$scratch"/*.msi "$folder/AmporaSrv-newer.msi" "$SOURCE_DATE_EPOCH" "$scratch/again" \
  >/dev/null
cmp "$scratch"/*.zip "$scratch/again" || fail 'the same programs make another archive a moment later'

for file in amporasrv.exe amporactl.exe ampora-reportd.exe; do
  [ -e "$folder/bin/$file" ] || fail "it lacks $file"
done
# What the script reads, by the names in it.
for file in $(grep -oE "'[A-Za-z.-]+\.(txt|msi)'" "$folder/verify.ps1" | tr -d "'" | grep -v '^result\.txt$' | sort -u); do
  [ -e "$folder/$file" ] || fail "verify.ps1 reads $file, which is not there"
done
grep -q $'\t' "$folder/tests.txt" || fail 'there are no tests'
while IFS=$'\t' read -r name program limit options; do
  options=${options%$'\r'}
  [ -e "$folder/tests/$program" ] || fail "$program is not there"
  case $options in *build/*) fail "$name has a path of this machine: $options" ;; esac
  [ "${2:-}" = run ] || continue
  (cd "$folder/tests" && timeout "$limit" "$here/../../scripts/wine.sh" run "$program" ${options//$'\t'/ } </dev/null \
    >"$scratch/said" 2>&1) || fail "$name failed: $(grep -a FAILED "$scratch/said")"
  printf '%-24s %s\n' "$name" "$(grep -a 'ran\.' "$scratch/said" | tail -n 1 | tr -d '\r')"
done <"$folder/tests.txt"
