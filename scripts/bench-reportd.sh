#!/usr/bin/env bash
# Compares the report server with nginx: bench-reportd.sh [PROGRAM]
#
# Both serve the same reports, of some 2 KB and 20 KB, over connections that are kept: nginx from files, with one worker,
# the report server as sample data. The server that is measured has processor 0 to itself, the client (wrk) processor 1.
# The two take turns; the table shows the median of the requests answered in a second. PROGRAM: instead of the one that
# is built here.
#
#   ROUNDS       turns of each server and report (7)
#   SECONDS_EACH length of a turn in seconds (2)
#   CONNECTIONS  kept at once (16)
set -euo pipefail
cd "$(dirname "$0")/.."
rounds=${ROUNDS:-7}
seconds=${SECONDS_EACH:-2}
connections=${CONNECTIONS:-16}
if [ "$#" -gt 0 ]; then
  program=$1
else
  scripts/build.sh linux ampora_reportd
  program=build/linux/bin/ampora-reportd
fi
scripts/setup.sh bench-http
if [ "$(nproc)" -lt 2 ]; then
  echo "bench-reportd: needs two processors, one for the client" >&2
  exit 1
fi

scratch=$(mktemp -d)
children=()
end() {
  for child in "${children[@]}"; do kill "$child" 2>/dev/null && wait "$child" 2>/dev/null || true; done
  rm -rf "$scratch"
}
trap end EXIT

taskset -c 0 "$program" --port 0 >"$scratch/ready" &
children+=($!)
for _ in $(seq 100); do
  [ ! -s "$scratch/ready" ] || break
  sleep 0.1
done
ours=$(grep -o 'http://.*' "$scratch/ready")

query='date=2012-07-02&output=xml'
declare -A targets=([2KB]="/usage/tokyo/actual?$query" [20KB]="/usage/tokyo/instant?$query")
mkdir "$scratch/files"
for size in 2KB 20KB; do curl --silent --fail --output "$scratch/files/$size.xml" "$ours${targets[$size]}"; done

# A port that was free a moment ago.
port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
cat >"$scratch/nginx.conf" <<CONF
daemon off;
worker_processes 1;
pid $scratch/nginx.pid;
error_log $scratch/error.log;
events { worker_connections 512; }
http {
  types { application/xml xml; }
  access_log off;
  sendfile on;
  tcp_nopush on;
  keepalive_requests 1000000000;
  client_body_temp_path $scratch;
  proxy_temp_path $scratch;
  fastcgi_temp_path $scratch;
  uwsgi_temp_path $scratch;
  scgi_temp_path $scratch;
  server { listen 127.0.0.1:$port; root $scratch/files; }
}
CONF
chmod -R a+rX "$scratch"
taskset -c 0 /usr/sbin/nginx -p "$scratch" -c "$scratch/nginx.conf" 2>"$scratch/nginx.err" &
children+=($!)
theirs="http://127.0.0.1:$port"
for _ in $(seq 100); do
  ! curl --silent --fail --output /dev/null "$theirs/2KB.xml" || break
  sleep 0.1
done

# Requests a second of one turn; a turn with a failed request is no figure.
measure() {
  local output
  output=$(taskset -c 1 wrk --threads 1 --connections "$connections" --duration "$seconds" "$1")
  if grep -qE 'Socket errors|Non-2xx' <<<"$output"; then
    echo "bench-reportd: requests failed: $output" >&2
    return 1
  fi
  awk '/^Requests\/sec:/ { print $2 }' <<<"$output"
}

median() { sort -n "$1" | awk '{ value[NR] = $1 } END { print int((value[int((NR + 1) / 2)] + value[int(NR / 2) + 1]) / 2) }'; }

for size in 2KB 20KB; do
  for _ in $(seq "$rounds"); do
    measure "$theirs/$size.xml" >>"$scratch/nginx.$size"
    measure "$ours${targets[$size]}" >>"$scratch/ours.$size"
  done
done
printf '%-6s %8s %14s %16s %6s\n' report bytes 'nginx (req/s)' 'reportd (req/s)' ratio
for size in 2KB 20KB; do
  a=$(median "$scratch/nginx.$size")
  b=$(median "$scratch/ours.$size")
  printf '%-6s %8s %14s %16s %6s\n' "$size" "$(stat -c %s "$scratch/files/$size.xml")" "$a" "$b" \
    "$(awk "BEGIN { printf \"%.2f\", $b / $a }")"
done
