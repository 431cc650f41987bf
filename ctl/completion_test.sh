#!/usr/bin/env bash
# Completes command lines of amporactl in real shells: completion_test.sh AMPORACTL SHELL
set -euo pipefail
program=$(realpath "$1") shell=$2
here=$(cd "$(dirname "$0")" && pwd)
export HOME
HOME=$(mktemp -d)
trap 'rm -rf "$HOME"' EXIT
cd "$HOME"
mkdir inner outer
"$program" completion "$shell" >script

# complete_SHELL LINE: the candidates for the end of the line, one per line.
complete_bash() {
  bash --norc -c 'source ./script
    IFS=" " read -r -a COMP_WORDS <<<"$1"
    [[ $1 != *" " ]] || COMP_WORDS+=("")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    _amporactl && printf "%s\n" "${COMPREPLY[@]}"' bash "$1"
}
complete_fish() { fish --no-config -c 'source ./script; complete -C $argv[1]' "$1" | cut -f 1; }
complete_zsh() {
  rm -f matches done
  timeout 20 zsh -f "$here/completion_test.zsh" ./script "$1"
}

failed=0
# expect LINE WORD...: exactly these can end the line.
expect() {
  local line=$1 found wanted
  shift
  found=$("complete_$shell" "$line" | sed 's#/$##' | sort -u | xargs)
  wanted=$(printf '%s\n' "$@" | sort -u | xargs)
  [ "$found" = "$wanted" ] && return
  echo "$shell: \"$line\" is completed by \"$found\", not \"$wanted\"" >&2
  failed=1
}

expect 'amporactl up' update
expect 'amporactl sho' show
expect 'amporactl --v' --version
expect 'amporactl show t' tokyo tohoku
expect 'amporactl show ' tokyo tohoku chubu kansai kyushu
expect 'amporactl show tokyo a' actual
expect 'amporactl show --fol' --folder
expect 'amporactl show --folder o' outer
expect 'amporactl show --folder outer kan' kansai
expect 'amporactl show tokyo --folder outer a' actual
expect 'amporactl update x'
expect 'amporactl completion ' bash fish powershell zsh
exit "$failed"
