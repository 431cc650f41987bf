#!/usr/bin/env bash
# Takes the pictures of the documentation, docs/pictures: the report server's pages, and a terminal with the programs at
# work on sample data. Look at them before you commit them: pictures.sh [pages|terminal]...
set -euo pipefail
cd "$(dirname "$0")/.."
[ "$#" -gt 0 ] || set -- pages terminal
pictures=$PWD/docs/pictures
mkdir -p "$pictures"

take_pages() {
  scripts/setup.sh build tests browser
  scripts/build.sh --tests linux page_server
  testing/browser/alone.sh python3 -B testing/browser/pictures.py build/linux/tests/page_server "$pictures"
}

# The programs have settings and folders of their own, as in the demo.
take_terminal() {
  scripts/setup.sh build pictures
  scripts/build.sh linux programs
  local bin=$PWD/build/linux/bin suffix='' trace=$PWD/build/pictures-trace.txt
  . scripts/scratch.sh
  "$bin/ampora-reportd" --source sample --port 0 </dev/null >"$scratch/reportd" 2>&1 &
  reportd=$!
  await_reportd
  prepare_linux "$port"
  start_service_linux
  await_pass
  local draw=(env PATH="$bin:$PATH" /usr/bin/python3 -B testing/browser/terminal.py)
  "${draw[@]}" "$pictures/terminal.svg" 100 amporactl 'amporactl status | head -n 9' 'amporactl chart tokyo'
  "$bin/amporactl" chart tokyo --svg "$pictures/chart.svg"
  "$bin/amporactl" exit --wait
}

for part in "$@"; do "take_$part"; done
ls -l "$pictures"
