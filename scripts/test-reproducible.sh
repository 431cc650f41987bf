#!/usr/bin/env bash
# Builds the last commit twice, in folders of different names, at times of different years, in different time zones,
# languages and file modes, and fails unless both give the same bytes: test-reproducible.sh [PART...]
#
# PART linux | windows   the programs and the library of that preset
#      packages          the Debian packages
#      msi               the package for Windows, of the programs of part windows
#
# Without PART all of them, in this order.
set -euo pipefail
cd "$(dirname "$0")/.."
[ "$#" -gt 0 ] || set -- linux windows packages msi
folder=$PWD/build/reproducible
first=$folder/a second=$folder/a-folder-with-a-longer/name
# What remembers an earlier result would answer for the second build.
unset CMAKE_C_COMPILER_LAUNCHER CMAKE_CXX_COMPILER_LAUNCHER
faketime=/usr/lib/$(c++ -print-multiarch)/faketime/libfaketime.so.1
[ -e "$faketime" ] || { echo "test-reproducible: there is no $faketime" >&2; exit 1; }

build_part() { # in a checkout
  case $1 in
    linux | windows) scripts/build.sh "$1" programs library ;;
    packages) scripts/package.sh ;;
    msi) scripts/package-windows.sh ;;
    *) echo "test-reproducible: unknown part $1" >&2; return 2 ;;
  esac
}

build_all() { # CHECKOUT PART...
  local part
  cd "$1"
  shift
  for part in "$@"; do build_part "$part"; done
}

rm -rf "$folder"
mkdir -p "$folder"
for checkout in "$first" "$second"; do git clone --quiet . "$checkout"; done
(umask 022 && export TZ=UTC LC_ALL=C.UTF-8 && build_all "$first" "$@") >"$folder/first.log" 2>&1 ||
  { tail -n 20 "$folder/first.log" >&2; exit 1; }
# The times of files stay the true ones, which the builds compare with each other.
(umask 002 && export TZ=Asia/Tokyo LC_ALL=C LD_PRELOAD="$faketime" FAKETIME=+400d NO_FAKE_STAT=1 &&
  build_all "$second" "$@") >"$folder/second.log" 2>&1 || { tail -n 20 "$folder/second.log" >&2; exit 1; }

# The results: programs and libraries, packages.
cd "$first"
compared=0
different=()
for file in $(find build/*/bin build/*/lib build/packages -type f 2>/dev/null | sort); do
  compared=$((compared + 1))
  cmp --silent "$file" "$second/$file" || different+=("$file")
done
echo "$compared files compared, ${#different[@]} differ: ${different[*]:-none}"
[ "$compared" -gt 0 ] && [ "${#different[@]}" -eq 0 ]
rm -rf "$folder"
