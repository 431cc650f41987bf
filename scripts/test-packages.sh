#!/usr/bin/env bash
# Installs the Debian packages in build/packages into clean systems and uses them there: test-packages.sh [MODE...]
#
# MODE booted   a system with its service manager, which starts the server, and the program for a user who is logged in
#      plain    a system without one: the server is started by hand, the program by its autostart file
#
# Without MODE both. Each is a container of its own with no network but a loopback interface and a cable between two
# interfaces of its own. In each: first installation, first data of an ordinary user, an upgrade while the programs run,
# removal, purge, and what is left. Needs root. Everything lies in a scratch folder, which goes at the end.
set -euo pipefail
cd "$(dirname "$0")/.."
[ "$(id -u)" -eq 0 ] || { echo 'test-packages: needs root, for containers' >&2; exit 1; }
[ "$#" -gt 0 ] || set -- plain booted

scratch=$(mktemp -d)
container= # process of the container's manager
leader=    # first process in the container
machine=ampora-packages-$$
data=/var/lib/AmporaSrv

say() { printf '%6s s  %s\n' "$SECONDS" "$1"; }
fail() {
  echo "test-packages: $1" >&2
  exit 1
}

end_container() {
  [ -z "$leader" ] || kill -KILL "$leader" 2>/dev/null || true
  [ -z "$container" ] || { kill "$container" 2>/dev/null || true; wait "$container" 2>/dev/null || true; }
  container='' leader=''
  rm -rf "/run/systemd/nspawn/propagate/$machine"
}
clean_up() {
  trap - EXIT
  end_container
  rm -rf --one-file-system "$scratch"
}
trap clean_up EXIT
trap 'exit 1' INT TERM

# await WHAT COMMAND...: waits until the command succeeds, at most a minute.
await() {
  local what=$1
  shift
  for _ in $(seq 300); do
    if "$@" >/dev/null 2>&1; then return 0; fi
    sleep 0.2
  done
  "$@" || true
  fail "timed out waiting for $what"
}

# A second set of the same packages, with a higher version.
make_upgrade() {
  local package version tree=$scratch/tree
  mkdir "$scratch/1" "$scratch/2"
  cp build/packages/*.deb "$scratch/1"
  for package in "$scratch"/1/*.deb; do
    version=$(dpkg-deb --field "$package" Version)
    dpkg-deb --raw-extract "$package" "$tree"
    sed -i "s/^Version: .*/&+upgrade/; s/(= $version)/(= $version+upgrade)/" "$tree/DEBIAN/control"
    dpkg-deb --build "$tree" "$scratch/2" >/dev/null
    rm -r "$tree"
  done
}

# Makes the system ROOT with the packages of INCLUDE besides the essential ones. Our packages are installed once, for what
# they depend on, and purged again.
make_root() {
  local root=$1 include=$2
  apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' 'Origin: Debian' |
    mmdebstrap --variant=apt --include="$include" \
      --customize-hook='mkdir -p "$1/packages"' \
      --customize-hook="copy-in $scratch/1 $scratch/2 /packages" \
      --customize-hook='chroot "$1" useradd --create-home alice' \
      --customize-hook='chroot "$1" env DEBIAN_FRONTEND=noninteractive sh -c "
         apt-get install -y --no-install-recommends /packages/1/*.deb &&
         dpkg --purge \$(dpkg-query --showformat=\"\\\${source:Package} \\\${Package}\\n\" --show |
                         sed -n \"s/^amporasrv //p\")"' \
      "$(. /etc/os-release && echo "$VERSION_CODENAME")" "$root" - >"$scratch/log" 2>&1 ||
    { tail -n 20 "$scratch/log" >&2; fail 'the system cannot be made'; }
}

inside() { nsenter --target "$leader" --all -- env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 "$@"; }
as_user() { inside setpriv --reuid alice --regid alice --init-groups env XDG_RUNTIME_DIR=/run/user/1000 "$@"; }

has_started() {
  leader=$(pgrep --parent "$container" | tail -n 1)
  if [ "$1" = booted ]; then inside systemctl is-system-running; else inside test -e /run/started; fi
}

start_container() { # of MODE, in ROOT
  local options=(--as-pid2) command=(/bin/sh -c 'touch /run/started; exec sleep 600')
  if [ "$1" = booted ]; then options=(--boot) command=(); fi
  systemd-nspawn --quiet --directory="$2" --machine="$machine" --private-network --register=no --keep-unit --console=pipe \
    "${options[@]}" "${command[@]}" </dev/null >"$scratch/console" 2>&1 &
  container=$!
  await "the $1 container" has_started "$1"
  nsenter --target "$leader" --net sh -ec 'ip link set lo up; ip link add lan0 type veth peer lan1
    ip address add 192.0.2.1/24 dev lan0; ip link set lan0 up; ip link set lan1 up'
}

# Every file of the system but those that come and go.
list_files() {
  inside find / -xdev -regextype posix-extended \
    ! -regex '/var/(log|cache|tmp)/.*|/var/lib/dpkg/.*-old|/var/lib/private' -printf '%p\n' | sort >"$scratch/$1"
}
left_of() { comm -13 "$scratch/before" "$scratch/$1"; }

install_set() { inside sh -c "dpkg --install /packages/$1/*.deb" >"$scratch/log" 2>&1 || fail "$(cat "$scratch/log")"; }

# The processes that run this program, also one that has been replaced on the disk.
processes() { inside find /proc -maxdepth 2 -name exe -lname "/usr/bin/$1*" -printf '%h\n' 2>/dev/null | sed 's#/proc/##'; }
is_running() { [ -n "$(processes "$1")" ]; }
is_gone() { ! is_running "$1"; }

autostart() { # as a desktop does it
  local command
  command=$(inside sed -n 's/^Exec=//p' /etc/xdg/autostart/amporasrv.desktop)
  eval "as_user $command"
}

start_programs() { # of MODE
  if [ "$1" = plain ]; then
    inside setpriv --reuid nobody --regid nogroup --clear-groups ampora-reportd --source sample >/dev/null 2>&1 &
    inside install -d -m 0700 -o alice /run/user/1000
    await 'the server' inside bash -c ': </dev/tcp/127.0.0.1/8470'
    autostart >/dev/null 2>&1 &
  fi
  await amporasrv is_running amporasrv
}

data_is_there() { [ "$(as_user amporactl show | wc -l)" -eq 22 ]; } # 21 files and a heading
data_is_new() { [ -z "$(inside find "$data" -name '*.dat' ! -newermt 2002-01-01)" ]; }

# An update that the user asks for writes the files again.
check_update() {
  inside find "$data" -name '*.dat' -exec touch --date=2001-01-01 {} +
  as_user amporactl update || fail 'amporactl cannot ask for an update'
  await 'new data' data_is_new
  await 'all data files' data_is_there # not while one is being written
}

check_first_use() { # of MODE
  local said
  install_set 1
  [ "$(inside stat --format=%a "$data" /run/lock/AmporaSrvUpdateMutex | xargs)" = '777 666' ] ||
    fail 'not everybody may write to the data folder and the lock'
  enable
  start_programs "$1"
  if [ "$1" = booted ]; then as_user amporactl update; fi # it was started before it was switched on
  await 'the first data' data_is_there
  # What the autostart file starts beside it ends at once; where the service manager runs, it does not even start.
  said=$(autostart 2>&1) || fail "the autostart file's command fails: $said"
  [ "$1" = plain ] || [ -z "$said" ] || fail "the autostart file starts a copy beside the service: $said"
  [ "$(processes amporasrv | wc -l)" -eq 1 ] || fail 'there is not one copy'
  check_update
}

enable() { # with a trace
  inside sh -c 'amporactl config set Enable 1 && amporactl config set LogLevel 11 --machine' >"$scratch/log" 2>&1 ||
    fail "$(cat "$scratch/log")"
}

check_upgrade() { # of MODE
  local before after
  before=$(processes amporasrv)
  install_set 2
  await amporasrv is_running amporasrv
  after=$(processes amporasrv)
  case $1 in
    plain) [ "$before" = "$after" ] || fail 'the upgrade ended a copy that nobody starts again' ;;
    booted) [ "$before" != "$after" ] || fail 'the old version goes on after the upgrade' ;;
  esac
  check_update
  # The new copy has read the level of the trace, which counts from a start on.
  [ "$1" = plain ] || as_user journalctl --user --unit amporasrv --quiet | grep 'Next UpdateTimer Started' >/dev/null ||
    fail 'the journal has no trace'
}

check_end() { # of MODE
  if [ "$1" = plain ]; then
    as_user amporasrv /Exit 2>/dev/null || fail 'amporasrv /Exit failed'
  else
    as_user systemctl --user stop amporasrv
    [ "$(as_user systemctl --user show --property=Result --value amporasrv)" = success ] || fail 'the service failed'
  fi
  await 'the end of amporasrv' is_gone amporasrv
  if [ "$1" = plain ]; then autostart >/dev/null 2>&1 & else as_user systemctl --user start amporasrv; fi
  await amporasrv is_running amporasrv
}

check_removal() {
  inside dpkg --remove $packages >"$scratch/log" 2>&1 || fail "$(cat "$scratch/log")"
  is_gone amporasrv || fail 'amporasrv runs after its removal'
  list_files removed
  ! left_of removed | grep -E '^/(usr|lib|bin|sbin)/' || fail 'the removal leaves these programs'
  inside test -e "$data/tokyo_00000001.dat" || fail 'the removal took the data'
  inside touch "$data/notes"
  inside dpkg --purge $packages >"$scratch/log" 2>&1 || fail "$(cat "$scratch/log")"
  list_files purged
  [ "$(left_of purged | xargs)" = "$data $data/notes" ] || fail "the purge leaves $(left_of purged)"
}

check_mode() { # MODE
  local root=$scratch/$1 include=systemd-standalone-tmpfiles
  if [ "$1" = booted ]; then include=systemd,systemd-sysv,dbus-user-session,libpam-systemd; fi
  make_root "$root" "$include"
  if [ "$1" = booted ]; then # the server must not ask the companies
    mkdir -p "$root/etc/systemd/system/ampora-reportd.service.d"
    printf '[Service]\nExecStart=\nExecStart=/usr/bin/ampora-reportd --source sample\n' \
      >"$root/etc/systemd/system/ampora-reportd.service.d/sample.conf"
  fi
  say "$1: the system is made"
  start_container "$1" "$root"
  if [ "$1" = booted ]; then
    inside loginctl enable-linger alice
    await 'the user manager' as_user systemctl --user is-system-running
  fi
  list_files before
  check_first_use "$1"
  say "$1: installed; an ordinary user has data"
  check_upgrade "$1"
  say "$1: upgraded while it ran"
  check_end "$1"
  check_removal
  say "$1: removed and purged; nothing is left"
  end_container
}

packages=$(for package in build/packages/*.deb; do dpkg-deb --field "$package" Package; done | xargs)
make_upgrade
for mode in "$@"; do check_mode "$mode"; done
