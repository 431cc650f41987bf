# What the scripts have in common that show amporasrv at work with settings of its own; to be sourced, from the project's
# folder, after the variables bin (folder of the programs), suffix (of their names) and trace (file of amporasrv's trace).
#
# Settings, runtime, lock and data folders lie in the folder $scratch, which goes at the end, as do the processes whose
# ids are in reportd and service.
# shellcheck shell=bash disable=SC2154

scratch=$(mktemp -d)
reportd=
service=
first_line=1 # of the trace of the current pass

fail() {
  echo "$(basename "$0" .sh): $1; the trace is in $trace" >&2
  exit 1
}

# Ends the processes and removes the folder; clean_more, where a script has it, goes between.
clean_up() {
  trap - EXIT
  for process in $service $reportd; do
    kill "$process" 2>/dev/null || true
    wait "$process" 2>/dev/null || true
  done
  if declare -F clean_more >/dev/null; then clean_more; fi
  rm -rf "$scratch"
}
trap clean_up EXIT
trap 'exit 1' INT TERM

settings() { # of the server at this port
  printf '%s\r\n' 'Windows Registry Editor Version 5.00' '' '[HKEY_LOCAL_MACHINE\Software\Halvex\AmporaSrv]' \
    '"Enable"=dword:00000001' '"LogLevel"=dword:0000000b' "\"ApiHost\"=\"127.0.0.1:$1\""
}

# Makes the folders and settings for a server at this port, for programs of this system.
prepare_linux() {
  mkdir -p "$scratch"/{user,machine/AmporaSrv,lock,data}
  mkdir -m 700 "$scratch/run"
  settings "$1" >"$scratch/machine/AmporaSrv/settings.reg"
  export XDG_CONFIG_HOME=$scratch/user XDG_CONFIG_DIRS=$scratch/machine XDG_RUNTIME_DIR=$scratch/run
  export AMPORA_LOCK_DIR=$scratch/lock AMPORA_COMMON_APPDATA=$scratch/data
  export AMPORA_CONNECTED_STATE=2 # the loopback interface is network enough
}
start_service_linux() { # without a proxy, for it asks this machine alone
  env -u http_proxy -u https_proxy -u all_proxy -u HTTP_PROXY -u HTTPS_PROXY -u ALL_PROXY \
    "$bin/amporasrv" 2>"$trace" &
  service=$!
}
run_control_linux() { "$bin/amporactl" "$@"; }

# await WHAT COMMAND...: waits until the command succeeds, at most two minutes.
await() {
  local what=$1
  shift
  for _ in $(seq 1200); do
    if "$@" 2>/dev/null; then return 0; fi
    sleep 0.1
  done
  fail "timed out waiting for $what"
}

# The port that ampora-reportd names in its ready line, in $scratch/reportd; waits for it and shows it.
await_reportd() {
  await ampora-reportd grep -q 'http://' "$scratch/reportd"
  sed 's/\r$//; s/^/  /' "$scratch/reportd"
  port=$(grep -o '[0-9]*' "$scratch/reportd" | tail -n 1)
}

# count PATTERN: how many lines of the trace, from the current pass on, have it.
count() { tail -n "+$first_line" "$trace" | grep -c "$1" || true; }
is_armed() { [ "$(count 'ThreadProc : Next UpdateTimer Started')" -gt 0 ]; }
has_ended() { ! kill -0 "$service"; }
is_armed_or_ended() { is_armed || has_ended; }

# Shows a command as it is typed.
say_command() { printf '\n$ %s/%s%s%s\n' "$bin" "$1" "$suffix" "${2:+ $2}"; }

# Waits for the end of the pass and tells how many requests it made, in reports and missing.
await_pass() {
  await 'the end of the pass' is_armed_or_ended
  is_armed || fail 'amporasrv ended before it had made its pass'
  reports=$(count 'AnalyzeData : .* Tag Success')
  missing=$(count 'GetData : StatusCode is Error 503')
  echo "  $((reports + missing)) requests: $reports answered with a report, $missing with status 503"
}
