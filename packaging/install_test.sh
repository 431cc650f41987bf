#!/usr/bin/env bash
# Installs what was built into a scratch folder, with a prefix that nobody configured, and looks at it: which files there
# are, whether the service managers accept theirs, and whether the programs work from there: install_test.sh BUILD_FOLDER
set -euo pipefail
build=$1
here=$(cd "$(dirname "$0")" && pwd)
trace=/dev/null
. "$here/../scripts/scratch.sh"
prefix=$scratch/prefix
export MANPATH=$prefix/share/man # the units name their pages

# expect_files FOLDER LIST...: fails unless FOLDER holds exactly the files that are listed in LIST..., below packaging/files.
expect_files() {
  local folder=$1
  shift
  (cd "$here/files" && sort "$@") >"$scratch/expected"
  (cd "$folder" && find . ! -type d -printf '%P\n' | sort) >"$scratch/installed"
  diff "$scratch/expected" "$scratch/installed" >&2 || fail "(<) packaging/files/$* is not (>) what was installed"
}

# check_unit UNIT PROGRAM EXPOSURE [OPTION]: the unit is sound, starts PROGRAM, and gives it no more rights than those of
# this exposure, in tenths.
check_unit() {
  local unit=$1 program=$2 exposure=$3 said
  shift 3
  grep -qE "^ExecStart=$program( |\$)" "$unit" || fail "$unit does not start $program: $(grep ^ExecStart= "$unit")"
  said=$(systemd-analyze "$@" verify "$unit" 2>&1) || fail "$said"
  [ -z "$said" ] || fail "$said"
  systemd-analyze "$@" security --offline=true --no-pager --threshold="$exposure" "$unit" >"$scratch/exposure" ||
    fail "$(tail -n 1 "$scratch/exposure")"
  tail -n 1 "$scratch/exposure"
}

check_files() {
  local component
  for component in $(ls "$here/files"); do
    cmake --install "$build" --component "$component" --prefix "$scratch/$component" >/dev/null
    expect_files "$scratch/$component" "$component"
  done
  cmake --install "$build" --prefix "$prefix" >/dev/null
  expect_files "$prefix" $(ls "$here/files")
  # As a package does it: the settings of the whole system are not below /usr.
  DESTDIR=$scratch/destination cmake --install "$build" --component programs --prefix /usr >/dev/null
  grep -q '^TryExec=/usr/bin/amporasrv$' "$scratch/destination/etc/xdg/autostart/amporasrv.desktop" ||
    fail 'below /usr, the autostart file is not in /etc'
}

check_service_managers() {
  # The user manager has to exist for this; an empty folder of its own will do.
  mkdir -m 700 "$scratch/manager"
  XDG_RUNTIME_DIR=$scratch/manager check_unit "$prefix/lib/systemd/user/amporasrv.service" "$prefix/bin/amporasrv" 21 --user
  # 1.3 of 10: what remains is that it uses the network.
  local server=$prefix/lib/systemd/system/ampora-reportd.service command
  check_unit "$server" "$prefix/bin/ampora-reportd" 13
  command=$(sed -n 's/^ExecStart=//p' "$server")
  $command --version >/dev/null || fail "the program does not understand: $command"
  desktop-file-validate "$prefix/etc/xdg/autostart/amporasrv.desktop"
  systemd-tmpfiles --create --root="$scratch/tree" "$prefix/lib/tmpfiles.d/amporasrv.conf"
  [ "$(stat -c %a "$scratch/tree/var/lib/AmporaSrv" "$scratch/tree/run/lock/AmporaSrvUpdateMutex" | xargs)" = '777 666' ] ||
    fail 'systemd-tmpfiles does not make the data folder and the lock for everybody'
}

# The installed programs, with settings of their own: sample data, one pass, the table, the end.
check_programs() {
  bin=$prefix/bin suffix='' trace=$scratch/trace
  "$bin/ampora-reportd" --source sample --port 0 </dev/null >"$scratch/reportd" 2>&1 &
  reportd=$!
  await_reportd
  prepare_linux "$port"
  start_service_linux
  await_pass
  "$bin/amporactl" show >"$scratch/table" || fail 'amporactl cannot show the data files'
  "$bin/amporasrv" /Exit 2>/dev/null || fail 'amporasrv /Exit failed'
  await 'the end of amporasrv' has_ended
  [ "$(wc -l <"$scratch/table")" -eq 22 ] || fail "amporactl shows no 21 data files: $(cat "$scratch/table")"
}

check_files
check_service_managers
check_programs
