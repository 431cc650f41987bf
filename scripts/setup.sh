#!/usr/bin/env bash
# Installs what the named groups of Debian packages hold and this machine lacks, in one apt-get call: setup.sh GROUP...
# Does nothing, quickly, when nothing is missing. Needs root or sudo only when something is missing.
set -euo pipefail

# README.md gives each dependency's reason.
declare -A groups=(
  [build]='cmake g++ libarchive-dev libboost1.81-dev libcli11-dev libcurl4-openssl-dev libicu-dev libsqlite3-dev
           libsystemd-dev libtomlplusplus-dev libxml2-dev make ninja-build nlohmann-json3-dev pkg-config'
  [windows]='cmake g++-mingw-w64-x86-64-posix libboost1.81-dev libcli11-dev make ninja-build nlohmann-json3-dev'
  [manuals]='lowdown python3' # to make the manual pages; the programs are built without
  [wine]='wine wine64'
  # To build test programs and benchmarks, for networks, servers and clocks of the tests' own, to check trace messages.
  [tests]='desktop-file-utils fish googletest iproute2 libbenchmark-dev libfaketime libssl-dev lowdown
           man-db mandoc nginx openssl python3 python3-jsonschema strace systemd
           systemd-journal-remote zsh'
  [bus]='dbus-daemon python3-dbusmock'          # to run the tests of the Linux programs
  [browser]='chromium chromium-driver fonts-dejavu-core fonts-ipafont-gothic' # to look at the report server's pages
  [pictures]='python3-rich'                     # to draw a terminal for the documents
  [format]='clang-format git'
  [checks]='clang-format clang-tidy git python3'
  [fuzz]='clang libclang-rt-14-dev'
  [bench]='binutils curl libfaketime libxml2-utils python3 python3-requests strace' # what amporasrv is measured with and against
  [bench-http]='curl nginx wrk' # nginx to compare the report server with, wrk to load both
  [packages]='debhelper git lintian'            # to build the Debian packages and look at them
  [msi]='msitools python3 python3-yaml wixl'    # to build the package for Windows and look at it
  [package-tests]='iproute2 libfaketime mmdebstrap systemd-container' # clean systems for the packages, another year
  [coverage]='gcovr'
)

[ "$#" -gt 0 ] || { echo "usage: setup.sh GROUP... (all, or any of: ${!groups[*]})" >&2; exit 2; }
[ "$*" != all ] || set -- "${!groups[@]}"
wanted=()
for group in "$@"; do
  [ -n "${groups[$group]:-}" ] || { echo "setup: there is no group $group" >&2; exit 2; }
  read -r -d '' -a packages <<<"${groups[$group]}" || true # it stops at the text's end, not at the line's
  wanted+=("${packages[@]}")
done

missing=()
for package in $(printf '%s\n' "${wanted[@]}" | sort -u); do
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
# A package for tests must not bring a web server onto the network, now or at the next start.
if [[ " ${missing[*]} " == *' nginx'* && ! -e /etc/systemd/system/nginx.service ]]; then
  "${as_root[@]}" mkdir -p /etc/systemd/system
  "${as_root[@]}" ln -s /dev/null /etc/systemd/system/nginx.service
fi
# An old package index names versions that the mirror no longer serves, so it is refreshed first.
if ! { "${as_root[@]}" apt-get update &&
       "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
         apt-get install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1 </dev/null; then
  tail -n 30 "$log" >&2
  exit 1
fi
