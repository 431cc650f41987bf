#!/usr/bin/env bash
# Shows amporasrv at work against ampora-reportd: it starts, makes its pass, says when the next one is due, makes another
# one when amporactl asks for it, and ends when a second copy tells it to: demo.sh [linux|windows]
#
# Needs no settings on the machine and leaves nothing behind: settings, runtime, lock and data folders lie in a scratch
# folder (Windows: settings and data in the wine prefix of this checkout, removed at the end).
set -euo pipefail
cd "$(dirname "$0")/.."
platform=${1:-linux}
case $platform in linux | windows) ;; *) echo "usage: demo.sh [linux|windows]" >&2; exit 2 ;; esac
build=build/$platform

scratch=$(mktemp -d)
reportd=
service=
clean_up() {
  trap - EXIT
  for process in $service $reportd; do
    kill "$process" 2>/dev/null || true
    wait "$process" 2>/dev/null || true
  done
  if [ "$platform" = windows ]; then clean_windows; fi
  rm -rf "$scratch"
}
trap clean_up EXIT
trap 'exit 1' INT TERM

settings() { # of the server at this port
  printf '%s\r\n' 'Windows Registry Editor Version 5.00' '' '[HKEY_LOCAL_MACHINE\Software\Halvex\AmporaSrv]' \
    '"Enable"=dword:00000001' '"LogLevel"=dword:0000000b' "\"ApiHost\"=\"127.0.0.1:$1\""
}

# What each platform does its own way: prepare, start_service (in the background, trace lines to $scratch/trace),
# run_service (with arguments, to its end), run_control, clean.
prepare_linux() {
  mkdir -p "$scratch"/{user,machine/AmporaSrv,lock,data}
  mkdir -m 700 "$scratch/run"
  settings "$1" >"$scratch/machine/AmporaSrv/settings.reg"
  export XDG_CONFIG_HOME=$scratch/user XDG_CONFIG_DIRS=$scratch/machine XDG_RUNTIME_DIR=$scratch/run
  export AMPORA_LOCK_DIR=$scratch/lock AMPORA_COMMON_APPDATA=$scratch/data
  export AMPORA_CONNECTED_STATE=2 # the loopback interface is network enough
  unset http_proxy https_proxy all_proxy HTTP_PROXY HTTPS_PROXY ALL_PROXY
}
start_service_linux() {
  "$build/bin/amporasrv" 2>"$scratch/trace" &
  service=$!
}
run_service_linux() { "$build/bin/amporasrv" "$@" 2>/dev/null; }
control_linux() { "$build/bin/amporactl" "$@"; }

data_folder_windows() { echo "$(scripts/wine.sh path)/drive_c/ProgramData/AmporaSrv"; }
prepare_windows() {
  settings "$1" >"$scratch/settings.reg"
  scripts/wine.sh run regedit /S "$scratch/settings.reg" </dev/null >/dev/null 2>&1
}
start_service_windows() {
  mkfifo "$scratch/listening" # the listener ends when nobody has it open any more
  exec 8<>"$scratch/listening"
  scripts/wine.sh run "$build/tests/tracecat.exe" <"$scratch/listening" >"$scratch/trace" 2>/dev/null 8>&- &
  await 'the listener' grep -q '^ready' "$scratch/trace"
  scripts/wine.sh run "$build/bin/amporasrv.exe" </dev/null >/dev/null 2>&1 8>&- &
  service=$!
}
run_service_windows() { scripts/wine.sh run "$build/bin/amporasrv.exe" "$@" </dev/null >/dev/null 2>&1; }
control_windows() { scripts/wine.sh run "$build/bin/amporactl.exe" "$@" </dev/null 2>/dev/null; }
clean_windows() {
  scripts/wine.sh run reg delete 'HKLM\Software\Halvex' /f </dev/null >/dev/null 2>&1 || true
  scripts/wine.sh stop
  rm -rf "$(data_folder_windows)"
}

# await WHAT COMMAND...: waits until the command succeeds, at most two minutes.
await() {
  local what=$1
  shift
  for _ in $(seq 1200); do
    if "$@" 2>/dev/null; then return 0; fi
    sleep 0.1
  done
  echo "demo: waited in vain for $what" >&2
  return 1
}

start_reportd() {
  local command=("$build/bin/ampora-reportd")
  if [ "$platform" = windows ]; then
    scripts/wine.sh start
    command=(env WINEPREFIX="$(scripts/wine.sh path)" WINEDEBUG=-all wine "$build/bin/ampora-reportd.exe")
  fi
  "${command[@]}" --port 0 </dev/null >"$scratch/reportd" 2>&1 &
  reportd=$!
  await ampora-reportd grep -q 'http://' "$scratch/reportd" || { cat "$scratch/reportd" >&2; return 1; }
}

# count PATTERN: how many trace lines have it.
count() { grep -c "$1" "$scratch/trace" || true; }
is_armed() { [ "$(count 'ThreadProc : Next UpdateTimer Started')" -ge "$1" ]; } # so often
has_ended() { ! kill -0 "$service"; }

# When the timer that was armed last falls due.
next_update() {
  local line
  line=$(grep -a 'Set Interval:' "$scratch/trace" | tail -n 1 | tr -d '\r')
  local minutes=${line##*Set Interval:}
  local day time
  read -r _ day time _ <<<"$line"
  printf 'The next update is due %s minutes later, at %s.\n' "${minutes%min}" \
    "$(date -d "@$(($(date -d "${day//\//-} ${time%.*}" +%s) + ${minutes%min} * 60))" +%H:%M:%S)"
}

# "[TRA] 2012/07/02 13:00:00.123 4711(4712) Function : message" becomes "13:00:00.123 TRA Function : message"; lines of
# reading one XML node are left out, repeated ones are counted.
readable() {
  sed -E 's/\r$//' | awk '
    function put() { if (count) printf "  %s%s\n", line, (count > 1 ? "  (" count " times)" : "") }
    / CXMLParser::| CGSXMLAnalyzer::(GetAttribue|AnalyzeUsageTag)/ { left_out++; next }
    /^\[/ {
      text = substr($1, 2, 3); for (i = 5; i <= NF; i++) text = text " " $i
      if (text == last) { count++; next }
      put(); last = text; line = $3 " " text; count = 1
    }
    END {
      put()
      if (left_out) printf "  and %d lines about single XML nodes\n", left_out
    }'
}

echo "Building..."
targets=(programs)
if [ "$platform" = windows ]; then targets+=(tracecat); fi
scripts/build.sh "$platform" "${targets[@]}"

start_reportd
tr -d '\r' <"$scratch/reportd"
port=$(grep -o '[0-9]*' "$scratch/reportd" | tail -n 1)
"prepare_$platform" "$port"

printf '\namporasrv starts and makes its pass:\n'
"start_service_$platform"
await 'the pass' is_armed 1
lines=$(wc -l <"$scratch/trace")
head -n "$lines" "$scratch/trace" | readable
next_update

printf '\namporactl asks for an update now:\n'
"control_$platform" update
await 'the update' is_armed 2
tail -n "+$((lines + 1))" "$scratch/trace" |
  grep -aE ' CAmporaUpdater::(ThreadProc|SetIntervalUpdate) : ' | readable
next_update

printf '\namporasrv /Exit ends it:\n'
lines=$(wc -l <"$scratch/trace")
"run_service_$platform" /Exit
await 'the end of amporasrv' has_ended
wait "$service"
service=
tail -n "+$((lines + 1))" "$scratch/trace" | readable

printf '\nThe data files, shown by amporactl:\n'
"control_$platform" show

# A day to come has no usage yet, which the server answers with 503.
answers=$(count 'AnalyzeData : .* Tag Success\|AnalyzeData : No Data')
printf '\namporasrv has got %d answers in two passes.\n' "$answers"
[ "$answers" -eq 84 ] || { echo "demo: 84 were expected" >&2; exit 1; }
