#!/usr/bin/env bash
# Builds the Windows Installer package and the manifests of winget: package-windows.sh [BUILD_FOLDER [FOLDER]]
#
# BUILD_FOLDER: a build of the preset windows (build/windows, which is brought up to date). FOLDER (build/packages) gets
# AmporaSrv-VERSION-x64.msi and winget/. The package's times are the version's date in CHANGELOG.md, or
# $SOURCE_DATE_EPOCH, so that the same sources give the same bytes. $INSTALLER_URL: where the package will be published,
# for the manifests of winget; without it they have an address that cannot exist.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/windows}
packages=${2:-build/packages}
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT

[ -n "${1:-}" ] || scripts/build.sh windows programs library
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
date=$(sed -n "s/^## \[$version\] - //p" CHANGELOG.md)
[ -n "$date" ] || { echo "package-windows: CHANGELOG.md has no date for version $version" >&2; exit 1; }
export SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(date --utc --date="$date" +%s)}
package=$packages/AmporaSrv-$version-x64.msi

rm -rf "$packages/winget" "$packages"/AmporaSrv-*.msi
mkdir -p "$packages/winget"
packaging/windows/stage "$build" "$stage"
packaging/windows/make-msi "$stage" "$version" "$SOURCE_DATE_EPOCH" "$package"

property() { msiinfo export "$package" Property | tr -d '\r' | sed -n "s/^$1\t//p"; }
for template in packaging/winget/*.in; do
  name=${template##*/}
  sed -e "s|@VERSION@|$version|; s|@DATE@|$date|; s|@SHA256@|$(sha256sum "$package" | cut -c -64 | tr a-f A-F)|" \
    -e "s|@PRODUCT_CODE@|$(property ProductCode)|; s|@UPGRADE_CODE@|$(property UpgradeCode)|" \
    -e "s|@URL@|${INSTALLER_URL:-https://publisher.invalid/${package##*/}}|" "$template" >"$packages/winget/${name%.in}"
done
ls -l "$package" | awk '{ printf "%9d %s\n", $5, $9 }'
[ -n "${INSTALLER_URL:-}" ] || echo "winget: set INSTALLER_URL to where ${package##*/} will be published"
