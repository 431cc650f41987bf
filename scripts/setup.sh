#!/usr/bin/env bash
# Installs what building and testing need and this machine lacks, by Debian package name, in one apt-get call.
# Does nothing, quickly, when nothing is missing. Needs root or sudo only when something is missing.
set -euo pipefail

# One line a group; README.md gives each dependency's reason.
packages=(
  binutils cmake g++ make ninja-build pkg-config          # native build
  g++-mingw-w64-x86-64-posix wine wine64                  # Windows build and its test machine
  googletest libbenchmark-dev                             # tests (sources, built for both systems) and benchmarks
  libboost1.81-dev libfmt-dev                             # HTTP server of ampora-reportd, wide formatted text
  libcurl4-openssl-dev libxml2-dev                        # Linux: HTTP client and DOM
  libsystemd-dev                                          # Linux: notices of the login manager, through sd-bus
  dbus-daemon python3-dbusmock                            # tests: a message bus with a login manager of their own
  clang clang-format clang-tidy gcovr libclang-rt-14-dev  # checks, fuzzers, coverage
  git python3                                             # repository checks
)

missing=()
for package in "${packages[@]}"; do
  [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
done
[ "${#missing[@]}" -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "setup: needs root or sudo to install: ${missing[*]}" >&2; exit 1; }
  as_root=(sudo)
fi
echo "setup: installing ${missing[*]}"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
# An old package index names versions that the mirror no longer serves, so it is refreshed first.
if ! { "${as_root[@]}" apt-get update &&
       "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
         apt-get install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1 </dev/null; then
  tail -n 30 "$log" >&2
  exit 1
fi
