#!/usr/bin/env bash
# Fails when a manual page has an error in its language, is not found by its name, or has lines that a terminal of 80
# columns breaks in the wrong place: manuals_test.sh PAGE...
set -euo pipefail
[ "$#" -gt 0 ]
failed=0
fail() {
  echo "$1" >&2
  failed=1
}
for page in "$@"; do
  name=$(basename "${page%.*}")
  said=$(mandoc -Tlint -W warning "$page" 2>&1) || fail "$said"
  said=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings --local-file "$page" 2>&1 >/dev/null) || fail "$page: not shown"
  [ -z "$said" ] || fail "$page: $said"
  [[ $(lexgrog "$page") == "$page: \"$name - "* ]] || fail "$page: it has no line with name and purpose"
done
exit "$failed"
