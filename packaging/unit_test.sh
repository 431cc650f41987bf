#!/usr/bin/env bash
# Checks the unit of the service manager against the built program: unit_test.sh UNIT PROGRAM
set -euo pipefail
unit=$1 program=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
copy=$scratch/$(basename "$unit")

fail() {
  echo "unit_test: $1" >&2
  exit 1
}

# The program lies elsewhere than where the unit expects it once it is installed.
sed "s#^ExecStart=/usr/bin/ampora-reportd#ExecStart=$program#" "$unit" >"$copy"
command=$(sed -n 's/^ExecStart=//p' "$copy")
read -r -a words <<<"$command"
[ "${words[0]}" = "$program" ] || fail "the unit starts another program: $command"
"${words[@]}" --version >/dev/null || fail "the program does not understand: $command"

said=$(systemd-analyze verify "$copy" 2>&1) || fail "$said"
[ -z "$said" ] || fail "$said"
# 1.3 of 10: what remains is that it uses the network.
systemd-analyze security --offline=true --no-pager --threshold=13 "$copy" >"$scratch/exposure" ||
  fail "$(tail -n 1 "$scratch/exposure")"
tail -n 1 "$scratch/exposure"
