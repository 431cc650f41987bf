#!/usr/bin/env bash
# Compares the report server with nginx: bench-reportd.sh [PROGRAM]
#
# Both serve the same reports, of some 2 KB and 20 KB, over connections that are kept: nginx from files, with one worker,
# the report server as sample data. The server that is measured has processor 0 to itself, the client (wrk) processor 1.
# The two take turns; the table shows the median of the requests answered in a second, and the processor time that the
# server used for a request, which depends less on what else the machine does. PROGRAM: instead of the one that is built
# here. Debian starts an nginx of its own when its package is installed.
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

taskset -c 0 "$program" --source sample --port 0 >"$scratch/ready" &
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

# Clock ticks of processor time that a process has used.
ticks() { sed 's/.*) //' "/proc/$1/stat" | awk '{ print $12 + $13 }'; }

# One turn of a server (its process, the address asked for): requests a second, requests, ticks. A turn with a failed
# request is no figure.
measure() {
  local before output
  before=$(ticks "$1")
  output=$(taskset -c 1 wrk --threads 1 --connections "$connections" --duration "$seconds" "$2")
  if grep -qE 'Socket errors|Non-2xx' <<<"$output"; then
    echo "bench-reportd: requests failed: $output" >&2
    return 1
  fi
  awk -v ticks="$(($(ticks "$1") - before))" \
    '/^Requests\/sec:/ { rate = $2 } / requests in / { count = $1 } END { print rate, count, ticks }' <<<"$output"
}

worker=$(awk '{ print $1 }' "/proc/${children[1]}/task/${children[1]}/children")
for size in 2KB 20KB; do
  for _ in $(seq "$rounds"); do
    measure "$worker" "$theirs/$size.xml" >>"$scratch/nginx.$size"
    measure "${children[0]}" "$ours${targets[$size]}" >>"$scratch/ours.$size"
  done
done

median() { sort -n "$1" | awk '{ v[NR] = $1 } END { print int((v[int((NR + 1) / 2)] + v[int(NR / 2) + 1]) / 2) }'; }
micros() { awk -v hertz="$(getconf CLK_TCK)" '{ n += $2; t += $3 } END { printf "%.1f", 1e6 * t / hertz / n }' "$1"; }

printf '%-6s %6s | %11s %11s %5s | %11s %11s\n' report bytes 'nginx req/s' 'ours req/s' ratio 'nginx us' 'ours us'
for size in 2KB 20KB; do
  a=$(median "$scratch/nginx.$size")
  b=$(median "$scratch/ours.$size")
  printf '%-6s %6s | %11s %11s %5s | %11s %11s\n' "$size" "$(stat -c %s "$scratch/files/$size.xml")" "$a" "$b" \
    "$(awk "BEGIN { printf \"%.2f\", $b / $a }")" "$(micros "$scratch/nginx.$size")" "$(micros "$scratch/ours.$size")"
done
