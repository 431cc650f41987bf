#!/usr/bin/env bash
# Runs the parts named, in order, whatever becomes of the one before:
#   checks                                  what can be said without running anything: layout, layers, repository rules,
#                                           static analysis, how the programs are built; and the checks of these checks
#   linux | linux-asan | linux-tsan | linux-coverage | windows   build that preset, test it, check its trace messages
# Ends with the test runner's closing lines of each part. Exit status 1 when anything failed.
set -uo pipefail
cd "$(dirname "$0")/.."
mkdir -p build

closing=$(mktemp)
wine_started=
on_exit() {
  [ -z "$wine_started" ] || scripts/wine.sh stop
  rm -f "$closing"
}
trap on_exit EXIT
trap 'exit 1' INT TERM

failed=()
# step NAME COMMAND...: announces and runs the command, remembers its failure.
step() {
  local name=$1
  shift
  printf '\n== %s\n' "$name"
  if "$@"; then return 0; fi
  failed+=("$name")
  return 1
}

# Each test process leaves the trace lines that it saw in this folder.
run_tests() {
  local preset=$1
  export AMPORA_TRACE_COLLECT=$PWD/build/$preset/trace-messages
  rm -rf "$AMPORA_TRACE_COLLECT"
  mkdir "$AMPORA_TRACE_COLLECT"
  ctest --preset "$preset" -j4 --no-tests=error 2>&1 | tee "build/$preset/ctest.log"
  local status=${PIPESTATUS[0]}
  { echo "$preset:"; sed -n '/% tests passed/,$p' "build/$preset/ctest.log"; } >>"$closing"
  count_cases "build/$preset/Testing/Temporary/LastTest.log" >>"$closing" || status=1
  return "$status"
}

# One CTest test can be many cases. Fails unless each program has run every case with which it started: it could have
# ended early with status 0.
count_cases() {
  awk '/^\[=+\] Running [0-9]+ tests? from/ { started += $3 }
       /^\[=+\] [0-9]+ tests? from .* ran\./ { ended += $2 }
       END { printf "%d cases ran of %d\n\n", ended, started; exit started == 0 || ended != started }' "$1"
}

start_wine() {
  wine_started=yes
  scripts/wine.sh start
}

configure_both() { scripts/configure.sh --tests linux && scripts/configure.sh --tests windows; }
build_both() { scripts/build.sh --tests linux programs library && scripts/build.sh --tests windows programs library; }

run_checks() {
  step "checks of the checks" scripts/test-checks
  step "layout" scripts/check-format
  step "layers" scripts/check-layers
  step "backends" scripts/check-backends
  step "functions" scripts/check-functions
  step "repository rules" scripts/check-repository
  step "documents" scripts/check-docs
  if step "configuration" configure_both; then step "static analysis" scripts/check-tidy; fi
  if step "programs" build_both; then step "hardening" scripts/check-hardening; fi
}

run_preset() {
  step "$1 build" scripts/build.sh --tests "$1" all || return
  if [ "$1" = windows ]; then step "wine" start_wine || return; fi
  step "$1 tests" run_tests "$1"
  step "$1 trace messages" scripts/check-trace-messages "build/$1/trace-messages"
}

for part in "$@"; do
  case $part in
    checks) run_checks ;;
    linux | linux-asan | linux-tsan | linux-coverage | windows) run_preset "$part" ;;
    *) echo "test.sh: unknown part $part" >&2; failed+=("$part") ;;
  esac
done

printf '\n'
for name in "${failed[@]}"; do echo "FAILED: $name"; done
cat "$closing"
[ "${#failed[@]}" -eq 0 ]
