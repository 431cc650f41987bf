#!/usr/bin/env bash
# Shows one update pass of amporasrv against ampora-reportd: demo.sh [linux|windows]
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
clean_up() {
  trap - EXIT
  if [ -n "$reportd" ]; then
    kill "$reportd" 2>/dev/null || true
    wait "$reportd" 2>/dev/null || true
  fi
  if [ "$platform" = windows ]; then clean_windows; fi
  rm -rf "$scratch"
}
trap clean_up EXIT
trap 'exit 1' INT TERM

settings() { # of the server at this port
  printf '%s\r\n' 'Windows Registry Editor Version 5.00' '' '[HKEY_LOCAL_MACHINE\Software\Halvex\AmporaSrv]' \
    '"Enable"=dword:00000001' '"LogLevel"=dword:0000001b' "\"ApiHost\"=\"127.0.0.1:$1\""
}

# What each platform does its own way: prepare, run_service (trace lines on standard output), run_control, clean.
prepare_linux() {
  mkdir -p "$scratch"/{user,machine/AmporaSrv,lock,data}
  mkdir -m 700 "$scratch/run"
  settings "$1" >"$scratch/machine/AmporaSrv/settings.reg"
  export XDG_CONFIG_HOME=$scratch/user XDG_CONFIG_DIRS=$scratch/machine XDG_RUNTIME_DIR=$scratch/run
  export AMPORA_LOCK_DIR=$scratch/lock AMPORA_COMMON_APPDATA=$scratch/data
  export AMPORA_CONNECTED_STATE=2 # the loopback interface is network enough
  unset http_proxy https_proxy all_proxy HTTP_PROXY HTTPS_PROXY ALL_PROXY
}
service_linux() { "$build/app/amporasrv" 2>&1; }
control_linux() { "$build/ctl/amporactl" "$@"; }

data_folder_windows() { echo "$(scripts/wine.sh path)/drive_c/ProgramData/AmporaSrv"; }
prepare_windows() {
  settings "$1" >"$scratch/settings.reg"
  scripts/wine.sh run regedit /S "$scratch/settings.reg" </dev/null >/dev/null 2>&1
}
service_windows() {
  scripts/wine.sh run "$build/platform/win32/tracecat.exe" -- "$build/app/amporasrv.exe" </dev/null 2>/dev/null |
    sed 1d # "ready"
}
control_windows() { scripts/wine.sh run "$build/ctl/amporactl.exe" "$@" </dev/null 2>/dev/null; }
clean_windows() {
  scripts/wine.sh run reg delete 'HKLM\Software\Halvex' /f </dev/null >/dev/null 2>&1 || true
  scripts/wine.sh stop
  rm -rf "$(data_folder_windows)"
}

start_reportd() {
  local command=("$build/server/ampora-reportd")
  if [ "$platform" = windows ]; then
    scripts/wine.sh start
    command=(env WINEPREFIX="$(scripts/wine.sh path)" WINEDEBUG=-all wine "$build/server/ampora-reportd.exe")
  fi
  "${command[@]}" --port 0 </dev/null >"$scratch/reportd" 2>&1 &
  reportd=$!
  for _ in $(seq 100); do
    if grep -q 'http://' "$scratch/reportd"; then return; fi
    kill -0 "$reportd" 2>/dev/null || break
    sleep 0.1
  done
  cat "$scratch/reportd" >&2
  echo "demo: ampora-reportd did not start" >&2
  return 1
}

# "[TRA] 2012/07/02 13:00:00.123 4711(4712) Function : message" becomes "13:00:00.123 TRA Function : message"; lines of
# reading one XML node and of functions' entry and exit are left out, repeated ones are counted.
readable() {
  sed -E 's/\r$//' | awk '
    function put() { if (count) printf "  %s%s\n", line, (count > 1 ? "  (" count " times)" : "") }
    / CXMLParser::| CGSXMLAnalyzer::(GetAttribue|AnalyzeUsageTag) | : (Enter|Leave)$/ { left_out++; next }
    /^\[/ {
      text = substr($1, 2, 3); for (i = 5; i <= NF; i++) text = text " " $i
      if (text == last) { count++; next }
      put(); last = text; line = $3 " " text; count = 1
    }
    END { put(); printf "  and %d lines about single XML nodes and about entry and exit of functions\n", left_out }'
}

echo "Building..."
targets=(amporasrv amporactl ampora_reportd)
if [ "$platform" = windows ]; then targets+=(tracecat); fi
{ cmake --preset "$platform" && cmake --build --preset "$platform" --target "${targets[@]}"; } >"$scratch/build" 2>&1 ||
  { cat "$scratch/build" >&2; exit 1; }

start_reportd
tr -d '\r' <"$scratch/reportd"
port=$(grep -o '[0-9]*' "$scratch/reportd" | tail -n 1)
"prepare_$platform" "$port"

printf '\nThe trace lines of one pass of amporasrv:\n'
"service_$platform" >"$scratch/trace"
readable <"$scratch/trace"

printf '\nThe data files, shown by amporactl:\n'
"control_$platform" show

requests=$(grep -c 'CAmporaHttpClient::GetData : Enter' "$scratch/trace" || true)
printf '\namporasrv made %d requests.\n' "$requests"
[ "$requests" -eq 42 ] || { echo "demo: 42 were expected" >&2; exit 1; }
