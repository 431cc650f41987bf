#!/usr/bin/env bash
# Builds the Debian packages from the files that git knows, as they are in the working tree, and has lintian look at them:
# package.sh [FOLDER]
#
# FOLDER (build/packages) gets the packages, in place of those that are there. The build itself takes place in
# build/package.
set -euo pipefail
cd "$(dirname "$0")/.."
packages=${1:-build/packages}
work=$PWD/build/package
log=$work.log

rm -rf "$work" "$packages"/*.deb
mkdir -p "$work/tree" "$packages"
git ls-files -z | tar --create --null --no-recursion --files-from=- | tar --extract --directory="$work/tree"
cp -r packaging/debian "$work/tree/debian"
scripts/make-debian-changelog amporasrv >"$work/tree/debian/changelog"
echo "Building the packages; the log is in ${log#"$PWD"/}"
(cd "$work/tree" && dpkg-buildpackage --build=binary --no-sign) >"$log" 2>&1 || { tail -n 30 "$log" >&2; exit 1; }
lintian --allow-root --fail-on error,warning "$work"/*.changes
mv "$work"/*.deb "$packages"
rm -rf "$work"
(cd "$packages" && stat --format='%9s %n' *.deb)
