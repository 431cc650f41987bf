#!/usr/bin/env bash
# Does a pass with curl and xmllint, as an administrator would write it: with_curl.sh HOST:PORT FOLDER
#
# Writes a file of lines for each company and kind, with the records that amporasrv keeps. A usage: start, seconds, value.
# A peak: start, end, value.
set -euo pipefail
host=$1
folder=$2
days=$(date -d '12 hours ago' +%F)\ $(date -d '12 hours' +%F)
upper=$(date -d '12 hours' +%FT%T)

fetch() { # COMPANY CATEGORY KIND SECONDS: the lines of what ended no longer than 12 hours ago and began within 12 hours
  local day lower
  lower=$(date -d "12 hours ago $4 seconds ago" +%FT%T)
  for day in $days; do
    curl --silent --fail "http://$host/$2/$1/$3?date=$day&output=xml" | xmllint --xpath '/power_report/*/*' - |
      awk -F'"' -v lower="$lower" -v upper="$upper" -v peak="$([ "$2" = peak ] && echo 1)" \
        '{ split($5, value, /[<>]/) } peak || ($2 >= lower && $2 <= upper) { print $2, $4, value[2] }'
  done >"$folder/$1_$3"
}

for company in tokyo tohoku kansai; do
  fetch "$company" usage instant 300
  fetch "$company" usage actual 3600
  fetch "$company" usage estimated 3600
  fetch "$company" peak supply 0
  fetch "$company" peak demand 0
done
fetch chubu usage actual 3600
fetch chubu peak supply 0
fetch chubu peak demand 0
fetch kyushu usage instant 300
fetch kyushu peak supply 0
fetch kyushu peak demand 0
