#!/usr/bin/env bash
# Shows amporasrv at work with what the power companies publish: checks whether their files can be downloaded, starts
# ampora-reportd on live sources and amporasrv against it, shows the data files, and goes on until Ctrl-C:
# live.sh [FOLDER [PROGRAMS]]
#
# The figures are kept in FOLDER/state (FOLDER: build/live), so that a second run goes on where the first one ended;
# ampora-reportd's messages and amporasrv's trace are kept in FOLDER as well. Settings of amporasrv lie in a scratch
# folder. PROGRAMS is the folder of the programs; without it they are built. AMPORA_LIVE_CONFIG names a settings file for
# ampora-reportd; without it the companies' usual addresses count. Exit status 0 after Ctrl-C, 1 when one of the programs
# fails.
set -euo pipefail
cd "$(dirname "$0")/.."
folder=${1:-build/live}
bin=${2:-build/linux/bin} suffix='' trace=$folder/trace.txt
messages=$folder/reportd.txt
config=()
if [ -n "${AMPORA_LIVE_CONFIG:-}" ]; then config=(--config "$AMPORA_LIVE_CONFIG"); fi

# shellcheck source=scripts/scratch.sh
. scripts/scratch.sh
trap 'exit 0' INT TERM

# metric NAME: the values of a metric of ampora-reportd, one in a line.
metric() {
  exec 7<>"/dev/tcp/127.0.0.1/$port"
  printf 'GET /metrics HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n' >&7
  sed -n "s/^$1{.*} //p" <&7
  exec 7>&-
}
# Whether every enabled company has been polled: each poll ends in a success or a counted failure.
have_polled() {
  local ended
  ended=$(($(metric ampora_last_success_timestamp_seconds | wc -l) + $(metric ampora_poll_failures_total | wc -l)))
  [ "$ended" -ge "$(grep -o 'polling .*' "$messages" | tr ',' '\n' | wc -l)" ]
}

# Waits for the first polls, at most a minute and a half: soon after midnight a company may have nothing to take or count.
await_polls() {
  for _ in $(seq 900); do
    if have_polled 2>/dev/null; then return 0; fi
    sleep 0.1
  done
}

is_first=yes
if [ -e "$folder/state/figures.sqlite" ]; then is_first=no; fi
mkdir -p "$folder/state"
chmod 700 "$folder/state"
STATE_DIRECTORY=$(cd "$folder/state" && pwd)
export STATE_DIRECTORY
rm -f "$trace" "$messages"
if [ "$#" -lt 2 ]; then scripts/build.sh linux programs; fi

say_command ampora-reportd "check${config[*]:+ ${config[*]}}"
if ! "$bin/ampora-reportd" check "${config[@]}" 2>&1; then
  echo
  echo '  Not every company could be reached. The others are served, and every company is polled until it answers.'
fi

say_command ampora-reportd "--port 0${config[*]:+ ${config[*]}}"
"$bin/ampora-reportd" --port 0 "${config[@]}" </dev/null >"$scratch/reportd" 2>"$messages" &
reportd=$!
await_reportd
if [ "$is_first" = yes ]; then await_polls; fi
sed 's/^/  /' "$messages"
prepare_linux "$port"

say_command amporasrv
echo '  It makes its first pass at once and asks for two days of each kind of data. Status 503 means that there is no data'
echo '  for that day, such as the usage of tomorrow.'
start_service_linux
await_pass

say_command amporactl show
run_control_linux show || fail 'amporactl cannot show the data files'

cat <<END

The page of today:     http://127.0.0.1:$port/
The figures are in:    $STATE_DIRECTORY
The trace is in:       $trace
Ctrl-C ends all of it.
END
wait "$reportd" || fail "ampora-reportd ended with exit code $?"
fail 'ampora-reportd has ended'
