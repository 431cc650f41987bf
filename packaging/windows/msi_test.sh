#!/usr/bin/env bash
# Builds the Windows Installer package twice and looks into it; wine is not needed: msi_test.sh BUILD_FOLDER
# scripts/test-msi.sh tries it.
set -euo pipefail
build=$1
here=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() {
  echo "msi_test: $1" >&2
  exit 1
}
rows() { msiinfo export "$1" "$2" | tr -d '\r' | tail -n +4; }
# expect_row TABLE PATTERN: a row of the table matches, as a whole; a tab stands between its values.
expect_row() { rows "$package" "$1" | grep -qxP "$2" || fail "no row of $1 is '$2': $(rows "$package" "$1")"; }
property() { rows "$1" Property | sed -n "s/^$2\t//p"; }

"$here/../../scripts/package-windows.sh" "$build" "$scratch/once" >/dev/null
sleep 2 # the resolution of times in a cabinet
"$here/../../scripts/package-windows.sh" "$build" "$scratch/twice" >/dev/null
diff -r "$scratch/once" "$scratch/twice" || fail 'the same programs make another package a moment later'
package=$(echo "$scratch"/once/*.msi)
version=$(property "$package" ProductVersion)
"$here/newer-msi" "$build" "${version%.*}.9" "$scratch/newer.msi"

mkdir "$scratch/files"
(cd "$scratch/files" && msiextract "$package" >/dev/null)
(cd "$scratch/files/AmporaSrv" && find . ! -type d -printf '%P\n' | sort) >"$scratch/packed"
(cd "$here/files" && sort -- *) | diff - "$scratch/packed" || fail '(<) packaging/windows/files is not (>) what was packed'
for link in $(grep -ho 'href="[^"#]*'  "$scratch"/files/AmporaSrv/doc/*.html | cut -c 7- | grep -v "^https:" | sort -u); do
  [ -e "$scratch/files/AmporaSrv/doc/$link" ] || fail "a document links to $link, which is not packed"
done

[ "$version" = "$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")" ] || fail "its version is $version"
[ "$(property "$package" UpgradeCode)" = '{6C0E3C3D-92D4-4B0A-8D0B-6E6B3B2F6A57}' ] || fail 'it has another upgrade code'
[ "$(property "$package" UpgradeCode)" = "$(property "$scratch/newer.msi" UpgradeCode)" ] || fail 'a newer one replaces nothing'
[ "$(property "$package" ProductCode)" != "$(property "$scratch/newer.msi" ProductCode)" ] || fail 'versions share a product code'
diff <(rows "$package" Component) <(rows "$scratch/newer.msi" Component) || fail 'versions do not share their components'
[ "$(property "$package" ALLUSERS)" = 1 ] || fail 'it is not for the machine'
msiinfo suminfo "$package" | grep -q '^Template: x64;1033' || fail 'it is not for x64'

expect_row Directory 'INSTALLDIR\tProgramFiles64Folder\t[^\t|]*\|AmporaSrv'
expect_row File ".*\|amporasrv.exe\t\d+\t$version.0\t1033\t.*"
expect_row Registry '.*\t2\tSoftware\\Microsoft\\Windows\\CurrentVersion\\Run\tAmporaSrv\t"\[dir_bin_.*\]amporasrv.exe"\t.*'
expect_row Environment 'path\t=-\*PATH\t\[~\];\[dir_bin_.*\]\t.*'
expect_row CustomAction 'StopRunning\t98\tSystem64Folder\t"\[AMPORACTL\]" exit --wait\t'
expect_row InstallExecuteSequence 'StopRunning\tAMPORACTL AND NOT UPGRADINGPRODUCTCODE\t1390'
expect_row InstallExecuteSequence 'InstallValidate\t\t1400'
expect_row InstallExecuteSequence 'InstallInitialize\t\t1500'
expect_row InstallExecuteSequence 'RemoveExistingProducts\t\t1510'
expect_row Upgrade "\\{6C0E3C3D.*\\}\t\t$version\t\t1\t\tWIX_UPGRADE_DETECTED"

mkdir -p "$scratch/stage/programs/bin"
cp "$build"/bin/*.exe "$scratch/stage/programs/bin"
"$here/make-msi" "$scratch/stage" "${version%.*}.9" 1 "$scratch/wrong.msi" 2>"$scratch/said" && fail 'programs of another version pass'
grep -q "is of version $version.0, not ${version%.*}.9" "$scratch/said" || fail "$(cat "$scratch/said")"
/usr/bin/python3 "$here/winget_test.py" "$scratch/once/winget" "$package" "$(property "$package" ProductCode)"
