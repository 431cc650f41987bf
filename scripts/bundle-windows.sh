#!/usr/bin/env bash
# Builds the archive with which a person tries AmporaSrv on a real Windows: bundle-windows.sh [BUILD_FOLDER [FOLDER]]
#
# BUILD_FOLDER: a build of the preset windows with its tests (build/windows, which is brought up to date). FOLDER
# (build/packages) gets AmporaSrv-VERSION-windows-check.zip and the Windows Installer package.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/windows}
packages=${2:-build/packages}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

[ -n "${1:-}" ] || scripts/build.sh --tests windows all
scripts/package-windows.sh "$build" "$packages" >/dev/null
package=$(echo "$packages"/AmporaSrv-*-x64.msi)
version=${package##*/AmporaSrv-}
version=${version%-x64.msi}
epoch=${SOURCE_DATE_EPOCH:-$(date --utc --date="$(sed -n "s/^## \[$version\] - //p" CHANGELOG.md)" +%s)}
packaging/windows/newer-msi "$build" "${version%.*}.$((${version##*.} + 1))" "$scratch/newer.msi"

bundle=$packages/AmporaSrv-$version-windows-check.zip
rm -f "$packages"/AmporaSrv-*-windows-check.zip
packaging/windows/make-bundle "$build" "$package" "$scratch/newer.msi" "$epoch" "$bundle"
ls -l "$bundle" | awk '{ printf "%9d %s\n", $5, $9 }'
