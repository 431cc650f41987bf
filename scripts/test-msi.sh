#!/usr/bin/env bash
# Tries the Windows Installer package under wine, in a prefix of its own: test-msi.sh [PACKAGE]
#
# Install, run, repair, upgrade while a copy runs, refused downgrade, uninstall while a copy runs, another folder; each
# step is judged by the files and the registry, not by the exit code of msiexec. PACKAGE: what package-windows.sh makes,
# and made by it unless given; the programs are those of build/windows. wine's installer is not that of Windows: it has no
# Restart Manager, does not compute EstimatedSize, and shows nothing.
set -euo pipefail
cd "$(dirname "$0")/.."
here=$PWD/packaging/windows
scratch=$(mktemp -d)
export AMPORA_WINEPREFIX=$PWD/build/wine-msi
drive=$AMPORA_WINEPREFIX/drive_c
installed="$drive/Program Files/AmporaSrv"
data=$drive/ProgramData/AmporaSrv
reportd=
service=

clean_up() {
  trap - EXIT
  [ -z "$reportd" ] || kill "$reportd" 2>/dev/null || true
  scripts/wine.sh stop # with all that runs in the prefix
  rm -rf "$AMPORA_WINEPREFIX" "$AMPORA_WINEPREFIX.lock" "$scratch"
}
trap clean_up EXIT
trap 'exit 1' INT TERM

fail() {
  echo "test-msi: $1" >&2
  [ ! -e "$scratch/log" ] || tail -n 40 "$scratch/log" >&2
  exit 1
}
step() { printf '%-75s %s\n' "$1" "$(($(date +%s) - started)) s"; }

wine() { scripts/wine.sh run "$@" </dev/null 2>/dev/null; }
windows_path() { echo "Z:${1//\//\\}"; }
# msi OPTION PACKAGE [PROPERTY...]: runs the installer without a dialog.
msi() {
  local option=$1 package
  package=$(windows_path "$2")
  shift 2
  timeout 120 scripts/wine.sh run msiexec "$option" "$package" "$@" /qn '/l*v' "$(windows_path "$scratch/log")" \
    </dev/null >/dev/null 2>&1 || true
}

# await WHAT COMMAND...: waits until the command succeeds, at most 30 seconds.
await() {
  local what=$1
  shift
  for _ in $(seq 300); do
    if "$@" 2>/dev/null; then return 0; fi
    sleep 0.1
  done
  fail "timed out waiting for $what"
}

# The files and folders of the drive, without those of the system's HTTP client, and the registry with the name of its key
# before each value.
snapshot() {
  (cd "$drive" && find . -mindepth 1 | grep -v '/[Tt]emp/\|/INetC' | sort) >"$scratch/files-$1"
  wine reg export HKLM "$(windows_path "$scratch/registry.reg")" /y >/dev/null
  iconv -f utf-16 -t utf-8 "$scratch/registry.reg" | tr -d '\r' |
    awk '/^\[/ { key = $0; print; next } /./ { print key $0 }' | grep -v "$wine_noise" | sort >"$scratch/registry-$1"
  machine_path | sed 's/;*$//' >>"$scratch/registry-$1" # wine leaves the separator of a removed folder behind
}
# What wine changes by itself: its devices, and the empty keys of an installer that has been used, which Windows has.
wine_noise='^\[HKEY_LOCAL_MACHINE\\\(Hardware'
wine_noise+='\|System\\CurrentControlSet\\\(Control\\\(Class\|DeviceClasses\|ServiceCurrent\|Session Manager\\Environment\|Video\)'
wine_noise+='\|Enum\|Hardware Profiles\)'
wine_noise+='\|Software\\Classes\\Installer\(\\\(Features\|Products\|UpgradeCodes\)\)\?\]$'
wine_noise+='\|Software\\Microsoft\\Windows\\CurrentVersion\\Installer\\'
wine_noise+='\(UpgradeCodes\|UserData\(\\S-1-5-18\(\\\(Components\|Products\)\)\?\)\?\)\]$\)'

value() { wine reg query "$1" /v "$2" | tr -d '\r' | sed -n 's/^ .*REG_[A-Z_]* *//p'; }
uninstall_key='HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall'
entry() { wine reg query "$uninstall_key" | tr -d '\r' | grep '{' || true; }
# expect_entry NAME VALUE: of the package's only entry in the list of programs.
expect_entry() {
  [ "$(entry | wc -l)" -eq 1 ] || fail "$(entry | wc -l) entries in the list of programs"
  local found
  found=$(value "$(entry)" "$1")
  [ "$found" = "$2" ] || fail "$1 is '$found', not '$2'"
}
machine_path() { value 'HKLM\System\CurrentControlSet\Control\Session Manager\Environment' PATH; }

# expect_installed VERSION PACKAGE [FOLDER]: the files, byte for byte, and what is registered. The library is in a FOLDER
# only.
expect_installed() {
  local folder=${3:-C:\\Program Files\\AmporaSrv\\} entries
  rm -rf "$scratch/expected"
  mkdir "$scratch/expected"
  (cd "$scratch/expected" && msiextract "$2" >/dev/null)
  if [ $# -lt 3 ]; then
    (cd "$scratch/expected/AmporaSrv" && xargs rm <"$here/files/library" && find . -type d -empty -delete)
  fi
  diff -r "$scratch/expected/AmporaSrv" "$installed" >&2 || fail "$1 is not installed as it was packed"
  expect_entry DisplayName AmporaSrv
  expect_entry Publisher Halvex
  expect_entry DisplayVersion "$1"
  expect_entry InstallLocation "$folder"
  expect_entry ReadMe "${folder}doc\\installing-windows.html"
  expect_entry NoModify 0x1
  [ -n "$(value "$(entry)" UninstallString)" ] || fail 'there is no UninstallString'
  [ "$(value 'HKLM\Software\Microsoft\Windows\CurrentVersion\Run' AmporaSrv)" = "\"${folder}bin\\amporasrv.exe\"" ] ||
    fail 'amporasrv is not started at sign-in'
  entries=$(machine_path | tr ';' '\n' | grep -cF "${folder}bin\\" || true)
  [ "$entries" -eq 1 ] || fail "PATH names the programs $entries times: $(machine_path)"
}

start_installed() {
  wine "$installed/bin/amporasrv.exe" >/dev/null &
  service=$!
}
runs() { wine "$installed/bin/amporactl.exe" update >/dev/null; }
has_ended() { ! kill -0 "$service" 2>/dev/null; }
data_files() { find "$data" -name '*.dat' 2>/dev/null | wc -l; }
has_all_data() { [ "$(data_files)" -eq 21 ]; }

mkdir "$scratch/packages"
if [ $# -gt 0 ]; then
  package=$(realpath "$1")
else
  scripts/package-windows.sh '' "$scratch/packages" >/dev/null
  package=$(echo "$scratch"/packages/*.msi)
fi
property() { msiinfo export "$package" Property | tr -d '\r' | sed -n "s/^$1\t//p"; }
version=$(property ProductVersion)
newer_version=${version%.*}.$((${version##*.} + 1))
newer=$scratch/newer.msi
"$here/newer-msi" build/windows "$newer_version" "$newer"

started=$(date +%s)
scripts/wine.sh stop
rm -rf "$AMPORA_WINEPREFIX"
scripts/wine.sh start
WINEPREFIX=$(scripts/wine.sh path) WINEDEBUG=-all wine build/windows/bin/ampora-reportd.exe --source sample --port 0 \
  >"$scratch/reportd" &
reportd=$!
await ampora-reportd grep -q 'http://' "$scratch/reportd"
port=$(tr -d '\r' <"$scratch/reportd" | grep -o '[0-9]*$' | tail -n 1)
# What the administrator sets is not the package's: it stays as it is through all of this.
wine reg add 'HKLM\Software\Halvex\AmporaSrv' /v Enable /t REG_DWORD /d 1 /f >/dev/null
wine reg add 'HKLM\Software\Halvex\AmporaSrv' /v ApiHost /d "127.0.0.1:$port" /f >/dev/null
wine reg add 'HKLM\Software\Microsoft\Windows\CurrentVersion\Run' /v Another /d another.exe /f >/dev/null
snapshot before
step 'a fresh prefix, with settings'

msi /i "$package"
expect_installed "$version" "$package"
step "install $version"

start_installed
await 'the data files' has_all_data
wine "$installed/bin/amporactl.exe" show >/dev/null || fail 'amporactl finds fault with the data files'
step 'the installed programs make their data files'

rm "$installed/bin/amporactl.exe" "$installed/doc/changelog.html"
msi /i "$package" REINSTALL=ALL REINSTALLMODE=amus # what /fa stands for, which wine's msiexec lacks
expect_installed "$version" "$package"
step 'repair after two files were deleted'

has_ended && start_installed
await 'the running copy' runs
msi /i "$newer" START=1
await 'the end of the older copy' has_ended
expect_installed "$newer_version" "$newer"
[ "$(data_files)" -eq 21 ] || fail 'the upgrade has touched the data files'
await 'the newer copy, which START=1 asks for' runs
step "upgrade to $newer_version while a copy runs"

msi /i "$package"
expect_installed "$newer_version" "$newer"
step "$version does not replace it"

msi /x "$newer"
snapshot after
diff "$scratch/files-before" "$scratch/files-after" | sed -n 's/^[<>] //p' | grep -v '^./\(ProgramData/AmporaSrv\(/.*\)\?\|windows/Installer\)$' &&
  fail 'the uninstalled package has left these files or taken them away'
diff "$scratch/registry-before" "$scratch/registry-after" >&2 ||
  fail 'the uninstalled package has left (>) these keys and values, or taken them (<) away'
[ "$(data_files)" -eq 21 ] || fail 'the data files have gone with the package'
wine tasklist | grep -qi amporasrv && fail 'amporasrv still runs'
step 'uninstall while a copy runs leaves the data files alone'

installed="$drive/Power data/AmporaSrv"
msi /i "$package" 'INSTALLDIR=C:\Power data\AmporaSrv' ADDLOCAL=ALL
expect_installed "$version" "$package" 'C:\Power data\AmporaSrv\'
msi /i "$newer" ADDLOCAL=ALL # wine does not carry the choice of features over to a newer version
expect_installed "$newer_version" "$newer" 'C:\Power data\AmporaSrv\'
msi /x "$newer"
[ ! -e "$drive/Power data/AmporaSrv" ] || fail "the package has left files: $(find "$drive/Power data/AmporaSrv")"
[ -z "$(entry)" ] || fail 'the package is still in the list of programs'
step 'the same with the library in a folder of choice, which an upgrade keeps'
