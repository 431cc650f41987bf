#!/usr/bin/env bash
# Runs Windows programs on this machine, in a wine prefix of our own without a screen.
#
#   wine.sh start       makes the prefix, once, and starts its server; quick when it runs already
#   wine.sh run CMD...  runs one command in the prefix, starting the server when it does not run
#   wine.sh stop        ends the server, with every program that still runs in the prefix; without $AMPORA_WINEPREFIX,
#                       the servers of all prefixes of this checkout
#   wine.sh path        prints the prefix's folder
#
# The prefix is build/wine of this checkout, or $AMPORA_WINEPREFIX. Each prefix has a server of its own, so that two of
# them do not meet. A server that nobody has used for 15 minutes ends by itself.
set -euo pipefail

idle_s=900

root=$(cd "${BASH_SOURCE[0]%/*}/.." && pwd)
prefix=${AMPORA_WINEPREFIX:-$root/build/wine}
if [ -e "$prefix" ] && [ ! -O "$prefix" ]; then
  # wine works in a prefix of its own user only, and root and another user may share a checkout.
  prefix=$prefix-$(id -u)
fi
case $prefix in /*) ;; *) prefix=$PWD/$prefix ;; esac
created="$prefix/.ampora-created" # the prefix is complete
warm="$prefix/.ampora-warm"       # its server has been warmed

export WINEPREFIX="$prefix"
export WINEDEBUG="${AMPORA_WINEDEBUG:--all}"
# No offers to install Mono or Gecko, and nothing added to the user's desktop menus.
export WINEDLLOVERRIDES='mscoree,mshtml=;winemenubuilder.exe=d'
# The user's folders stay out of it; file names are UTF-8.
export HOME="$prefix/home" LC_ALL=C.UTF-8
# The null graphics driver needs no display. wine takes proxies from the environment, which Windows does not.
unset DISPLAY WAYLAND_DISPLAY http_proxy https_proxy ftp_proxy all_proxy no_proxy \
  HTTP_PROXY HTTPS_PROXY FTP_PROXY ALL_PROXY NO_PROXY

running() { wineserver -k0 >/dev/null 2>&1; }

# Nothing that the server outlives may hold the caller's streams or the lock (9), or the caller would wait for it.
quiet() { "$@" </dev/null >/dev/null 2>&1 9>&-; }

create() {
  rm -rf "$prefix/drive_c" "$prefix/dosdevices" "$prefix"/*.reg "$prefix/.update-timestamp"
  mkdir -p "$HOME"
  quiet wine wineboot -i || { echo "wine.sh: cannot make the prefix $prefix" >&2; return 1; }
  quiet wine reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f
  # The first server has started its programs with the other driver, and keeps its registry in memory until it ends.
  quiet wineserver -k || true
  quiet wineserver -w
  touch "$created"
}

start() {
  if [ -e "$warm" ] && running; then
    return
  fi
  mkdir -p "$prefix"
  exec 9>"$prefix.lock"
  flock 9
  if ! { [ -e "$warm" ] && running; }; then # else another start was quicker
    rm -f "$warm"
    quiet wineserver -k || true
    quiet wineserver -w
    [ -e "$created" ] || create
    quiet wineserver "-p$idle_s"
    # The first program starts the services, which keep its streams and its process group.
    quiet setsid -w wine wineboot
    touch "$warm"
  fi
  exec 9>&-
}

stop() {
  rm -f "$warm"
  if running; then
    quiet wineserver -k || true
    quiet wineserver -w
  fi
}

stop_all() {
  for prefix in "$root"/build/wine*/; do
    [ ! -O "$prefix" ] || AMPORA_WINEPREFIX=${prefix%/} "${BASH_SOURCE[0]}" stop
  done
}

# wine starts its desktop program as soon as a program needs one, with that program's standard error, and the desktop
# goes on while anybody uses it: whoever reads the program's standard error through a pipe would wait for its end. So
# standard error goes through a file, and comes when the program has ended.
run_with_late_errors() {
  local file child status
  file=$(mktemp "$prefix/errors.XXXXXX")
  exec 7<"$file" 8>"$file"
  rm "$file"
  wine "$@" <&0 2>&8 7<&- 8>&- &
  child=$!
  trap 'kill "$child" 2>/dev/null' HUP INT TERM
  status=0
  wait "$child" || status=$?
  while kill -0 "$child" 2>/dev/null; do # a signal ended the wait
    status=0
    wait "$child" || status=$?
  done
  cat <&7 >&2
  return "$status"
}

case "${1:-}" in
  start) start ;;
  stop) if [ -n "${AMPORA_WINEPREFIX:-}" ]; then stop; else stop_all; fi ;;
  path) echo "$prefix" ;;
  run)
    shift
    [ $# -gt 0 ] || { echo "wine.sh: run needs a command" >&2; exit 2; }
    start
    if [ -p /dev/fd/2 ] || [ -S /dev/fd/2 ]; then
      run_with_late_errors "$@"
    else
      exec wine "$@"
    fi
    ;;
  *)
    sed -n '2,/^set /{/^#/s/^# \{0,1\}//p}' "${BASH_SOURCE[0]}" >&2
    exit 2
    ;;
esac
