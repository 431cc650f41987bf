#!/usr/bin/env bash
# Tries what README.md and its translations tell people to type: readme_test.sh BIN_FOLDER LIBRARY_FOLDER
#
# The commands of amporactl have to be known with all their options; what "amporactl status" is said to say has to be in
# its source; the program in C++ has to print the figures of a data file. The commands that install packages are tried by scripts/test-packages.sh.
set -euo pipefail
bin=$1 library=$2
project=$(cd "$(dirname "$0")/.." && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail() {
  echo "$1" >&2
  exit 1
}

# is_known WORD...: a command of amporactl, by its help.
is_known() {
  local words=() options=() word help
  for word in "$@"; do
    case $word in
      -*) options+=("$word") ;;
      *) words+=("$word") ;;
    esac
  done
  # The first word or two are the verb; what follows is its parameters.
  help=$("$bin/amporactl" "${words[@]:0:2}" --help 2>/dev/null) || help=$("$bin/amporactl" "${words[0]}" --help) || return
  for word in "${options[@]}"; do
    grep -qE -- "(^|[ ,])$word( |,|\$)" <<<"$help" || { echo "it has no option $word" >&2; return 1; }
  done
}

# A data file with one record: 32248 MW on 2012-07-02 from 13:00 to 13:05.
make_data() {
  mkdir "$scratch/AmporaSrv"
  python3 -c 'import struct, sys
sys.stdout.buffer.write(struct.pack("<4I8H", 0x10000, 1, 1, 0, 2012, 7, 1, 2, 13, 30, 0, 0) +
                        struct.pack("<Q16H", 32248, 2012, 7, 1, 2, 13, 0, 0, 0, 2012, 7, 1, 2, 13, 5, 0, 0))' \
    >"$scratch/AmporaSrv/tokyo_00000001.dat"
}

make_data
# Literals that are written in several pieces, as one.
said_by_status=$(tr '\n' ' ' <"$project/ctl/StatusCauses.cpp" | sed 's/" *L"//g')
for document in "$project"/README*.md; do
  commands=0
  while read -r line; do
    read -r -a words <<<"${line%%#*}"
    [ "${words[0]}" != sudo ] || words=("${words[@]:1}")
    [ "${words[0]}" = amporactl ] || continue
    is_known "${words[@]:1}" || fail "$document: not understood: $line"
    commands=$((commands + 1))
  done < <(grep -E '^    [^ ]' "$document"; grep -oE '`[^`]+`' "$document" | tr -d '`')
  [ "$commands" -gt 0 ] || fail "$document: no commands found"

  causes=0
  while read -r cause; do
    while read -r piece; do
      [[ $said_by_status == *"$piece"* ]] || fail "$document: status does not say: $cause"
    done < <(sed 's/ *\.\.\. */\n/g; s/\.\.\.//g' <<<"$cause")
    causes=$((causes + 1))
  done < <(sed -n '/^| .*`amporactl status`/,/^$/s/^|[^|]*| `\([^`]*\)` |.*/\1/p' "$document")
  [ "$causes" -gt 5 ] || fail "$document: no reasons of missing data found"

  sed -n '/^```cpp$/,/^```$/{//!p}' "$document" >"$scratch/demand.cpp"
  c++ -std=c++17 -Wall -Wextra -Werror -I "$project/format/include" "$scratch/demand.cpp" -L "$library" -lampora \
    -Wl,-rpath,"$library" -o "$scratch/demand"
  said=$(AMPORA_COMMON_APPDATA=$scratch "$scratch/demand")
  [ "$said" = '13:00  32248 MW' ] || fail "$document: the program in C++ says: $said"
done
