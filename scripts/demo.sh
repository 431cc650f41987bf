#!/usr/bin/env bash
# Shows amporasrv at work against ampora-reportd: it starts and makes its pass, makes another one when amporactl asks for
# it, shows its data and that all is in order, and ends when a second copy tells it to: demo.sh [linux|windows]
#
# Needs no settings on the machine and leaves none behind: settings, runtime, lock and data folders lie in a scratch folder
# (Windows: settings and data in the wine prefix of this checkout, removed at the end). Only the trace is kept, in
# build/demo. Exit status 1, with the reason on standard error, when anything expected does not happen.
set -euo pipefail
cd "$(dirname "$0")/.."
platform=${1:-linux}
case $platform in
  linux) bin=build/linux/bin suffix='' trace=build/demo/trace.txt ;;
  windows) bin=build/windows/bin suffix=.exe trace=build/demo/trace-windows.txt ;;
  *) echo "usage: demo.sh [linux|windows]" >&2; exit 2 ;;
esac

# With the settings' defaults a pass asks for 21 kinds of data of five companies, two days each.
files=21
answers=$((2 * files))

. scripts/scratch.sh
clean_more() {
  if [ "$platform" = windows ]; then clean_windows; fi
}

# What each platform does its own way: build, start_reportd, prepare, start_service (in the background, trace lines to
# $trace), run_service (with arguments, to its end), run_control, clean. Some of it is in scratch.sh.
build_linux() { scripts/build.sh linux programs; }
start_reportd_linux() {
  "$bin/ampora-reportd" --source sample --port 0 </dev/null >"$scratch/reportd" 2>&1 &
  reportd=$!
}
run_service_linux() { "$bin/amporasrv" "$@" 2>/dev/null; }

build_windows() { scripts/build.sh windows programs tracecat; }
start_reportd_windows() {
  scripts/wine.sh start
  WINEPREFIX=$(scripts/wine.sh path) WINEDEBUG=-all wine "$bin/ampora-reportd.exe" --source sample --port 0 </dev/null \
    >"$scratch/reportd" 2>&1 &
  reportd=$!
}
prepare_windows() {
  settings "$1" >"$scratch/settings.reg"
  scripts/wine.sh run regedit /S "$scratch/settings.reg" </dev/null >/dev/null 2>&1
}
start_service_windows() {
  mkfifo "$scratch/listening" # the listener ends when nobody has it open any more
  exec 8<>"$scratch/listening"
  scripts/wine.sh run build/windows/tests/tracecat.exe <"$scratch/listening" >"$trace" 2>/dev/null 8>&- &
  await 'the listener' grep -q '^ready' "$trace"
  scripts/wine.sh run "$bin/amporasrv.exe" </dev/null >/dev/null 2>&1 8>&- &
  service=$!
}
run_service_windows() { scripts/wine.sh run "$bin/amporasrv.exe" "$@" </dev/null >/dev/null 2>&1; }
run_control_windows() { scripts/wine.sh run "$bin/amporactl.exe" "$@" </dev/null 2>/dev/null | tr -d '\r'; }
clean_windows() {
  scripts/wine.sh run reg delete 'HKLM\Software\Halvex' /f </dev/null >/dev/null 2>&1 || true
  scripts/wine.sh stop
  rm -rf "$(scripts/wine.sh path)/drive_c/ProgramData/AmporaSrv"
}

mark_trace() { first_line=$(($(wc -l <"$trace") + 1)); }

# Waits for the end of the pass and tells what it did.
show_pass() {
  await_pass
  [ $((reports + missing)) -eq "$answers" ] || fail "$answers answers were expected"
  "run_control_$platform" show >"$scratch/table" || fail 'amporactl cannot show the data files'
  awk 'NR > 1 { if (!($1 in records)) order[++n] = $1; records[$1] += $4; all += $4 }
    END { printf "  %d records in %d files:", all, NR - 1
          for (i = 1; i <= n; i++) printf " %s %d%s", order[i], records[order[i]], (i < n ? "," : "\n") }' "$scratch/table"
  [ "$(awk 'NR > 1 && $4 > 0' "$scratch/table" | wc -l)" -eq "$files" ] || fail "$files files with records were expected"
  show_next_update
}

# When the timer that was armed last falls due.
show_next_update() {
  local line
  line=$(tail -n "+$first_line" "$trace" | grep 'Set Interval:' | tail -n 1 | tr -d '\r')
  [[ $line =~ ^\[[^\ ]*\ ([0-9/]+)\ ([0-9:]+).*Set\ Interval:([0-9]+)min$ ]] || fail 'no next update was announced'
  local end
  end=$(date -d "${BASH_REMATCH[1]//\//-} ${BASH_REMATCH[2]}" +%s)
  echo "  next update: ${BASH_REMATCH[3]} minutes later, at $(date -d "@$((end + ${BASH_REMATCH[3]} * 60))" +%H:%M:%S)"
}

mkdir -p build/demo
rm -f "$trace"
cat <<END
This demo builds the programs and starts, in a scratch folder with settings of its own,
  ampora-reportd  a report server that computes sample data, on a free port of this machine;
  amporasrv       the background program: it downloads the reports of five power companies and writes data files;
  amporactl       which asks it for an update, shows the data files and draws a chart.

END
"build_$platform"

say_command ampora-reportd '--source sample --port 0'
"start_reportd_$platform"
await_reportd
"prepare_$platform" "$port"

say_command amporasrv
echo '  It makes its first pass at once and asks for two days of each kind of data. Status 503 means that there is no data'
echo '  for that day, such as the usage of tomorrow.'
"start_service_$platform"
show_pass

say_command amporactl update
mark_trace
"run_control_$platform" update || fail 'amporactl cannot ask for an update'
show_pass

say_command amporactl show
cat "$scratch/table"

say_command amporactl status
"run_control_$platform" status || fail 'amporactl does not find everything in order'

say_command amporactl 'chart tokyo'
"run_control_$platform" chart tokyo || fail 'amporactl cannot draw a chart'

say_command amporasrv /Exit
"run_service_$platform" /Exit || fail 'the copy that tells amporasrv to end failed'
await 'the end of amporasrv' has_ended
wait "$service" || fail "amporasrv ended with exit code $?"
service=
echo '  The running copy has ended, with exit code 0.'

printf '\nThe trace of all this, %d lines, is in %s.\n' "$(wc -l <"$trace")" "$trace"
