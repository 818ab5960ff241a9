#!/usr/bin/env bash
# Runs every check: formatting, component tests with sanitizers, live tests in a private PBX, a short fuzzing, static
# analysis. Exits non-zero when anything failed.
#
# Usage: ./test.sh [--thorough | --host DIR]
#   --thorough  for a release; takes several times as long: the component tests also as compiled for release, and what of
#               the code they run; every live test with the address sanitizer and longer ones, a longer fuzzing, the
#               analyser's full depth; the two commands of README.md in a fresh Debian 12, and the live tests on the
#               Asterisk of Debian's unstable release
#   --host DIR  only the live tests, on the Asterisk whose prefix is DIR, such as /opt/asterisk, for which it builds; the
#               variable QUILLBROOK_HOST does the same
#
# Installs what is missing. Builds are kept in build/ (what ships), build-address/, build-thread/, build-component/,
# build-fuzz/, build-tidy/, build-series/, build-coverage/ and build-host/; their check-*.log hold the details. The live
# tests mostly wait, so they run beside the later builds.
set -uo pipefail
cd "$(dirname "$0")" || exit 1

fuzz=(0.002 jsgf_grammar jsgf_match) depth=shallow live_with_sanitizer='calls|grammar' packages=test host=''
[ -z "${QUILLBROOK_HOST:-}" ] || [ $# -gt 0 ] || set -- --host "$QUILLBROOK_HOST"
unset QUILLBROOK_HOST
case ${1:-}:${2:+argument} in
  :) ;;
  --thorough:) fuzz=(0.25) depth=deep live_with_sanitizer=live packages=thorough && export QUILLBROOK_THOROUGH=1 JSGF_TEST_ROUNDS=5000 ;;
  --host:argument) host=$2 packages=live ;;
  *) echo "usage: $0 [--thorough | --host DIR]" >&2 && exit 2 ;;
esac
jobs=$(nproc)
# Files are compiled in bundles, which share the work on their headers.
sanitized=(-DQUILLBROOK_TESTS=ON -DCMAKE_BUILD_TYPE=Debug -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=5)
failures=()
summary=()

say() { printf 'test: %3d s: %s\n' "$SECONDS" "$1"; }

# check NAME COMMAND...: runs a step; on failure shows the end of what it printed and returns 1. What the step cannot do
# here it says in lines that begin with SKIPPED, and ends with 77 if that is all of it.
check() {
  local name=$1 log status=0
  shift
  log=$(mktemp)
  say "$name"
  "$@" >"$log" 2>&1 || status=$?
  while read -r line; do
    summary+=("$(printf '%-28s %s' "$name:" "$line")")
    say "$line"
  done < <(grep '^SKIPPED' "$log")
  if [ "$status" != 0 ] && [ "$status" != 77 ]; then
    failures+=("$name")
    tail -n 60 "$log"
    say "FAILED: $name"
    status=1
  fi
  rm -f "$log"
  return "$((status == 1))"
}

# in_fresh_root NAME SUITE SCRIPT: a step in a Debian of its own; shows what it says, too.
in_fresh_root() {
  local log="build/check-$2.log"
  check "$1" bash -c 'tests/debian/fresh_root.sh "$1" "$2" >"$3" 2>&1; status=$?; tail -n 100 "$3"; exit $status' \
    bash "$2" "$3" "$log"
  sed -n 's/^test: /in '"$2"': /p; /^shown: /p' "$log"
}

# build FOLDER OPTION...: configures and builds. At a low priority, because the live tests beside it keep a clock.
build() { cmake -S . -B "$1" -G Ninja -DCMAKE_COMPILE_WARNING_AS_ERROR=ON "${@:2}" && nice -n 10 ninja -C "$1" -j "$jobs"; }

# run_tests NAME FOLDER OPTION...: runs ctest, shows what failed, and keeps its closing line.
run_tests() {
  local name=$1 folder=$2 log="$2/check-${1//[^a-z]/-}.log" closing cases skipped
  shift 2
  ctest --test-dir "$folder" --output-on-failure --timeout 300 "$@" >"$log" 2>&1 || failures+=("$name")
  closing=$(grep -E '^[0-9]+% tests passed' "$log" || echo 'ctest did not finish')
  # Each program holds many cases; both test frameworks say how many.
  cases=$(sed -nE 's/^(\[==========\] |Ran )([0-9]+) tests? .*(ran\.|in ).*/\2/p' "$folder/Testing/Temporary/LastTest.log" |
    awk '{ sum += $1 } END { print sum + 0 }')
  skipped=$(sed -nE 's/^.*\(skipped=([0-9]+)\)$/\1/p; s/^\[  SKIPPED \] ([0-9]+) tests?,.*/\1/p' \
    "$folder/Testing/Temporary/LastTest.log" | awk '{ sum += $1 } END { if (sum) print ", " sum " skipped" }')
  grep '^promtool' "$folder/Testing/Temporary/LastTest.log"
  grep -oE "skipped ['\"].*" "$folder/Testing/Temporary/LastTest.log" | sort | uniq -c
  case $closing in 100%*) ;; *) grep -vE '^ +Start |Passed' "$log" | tail -n 120 ;; esac
  summary+=("$(printf '%-28s %s (%s cases%s)' "$name:" "$closing" "$cases" "$skipped")")
  say "${summary[-1]}"
}

sources() { git ls-files --cached --others --exclude-standard "$@" | while read -r file; do [ -e "$file" ] && echo "$file"; done; }

check_format() { sources '*.cpp' '*.h' '*.c' | xargs clang-format --dry-run -Werror; }

check_scripts() {
  local file
  sources '*.sh' .ci/run | while read -r file; do bash -n "$file" || return 1; done || return 1
  sources '*.py' timeline/quillbrook-timeline jsgfkitxx/tools/quillbrook-srgs | xargs env PYTHONPYCACHEPREFIX="$PWD/build/pycache" python3 -m py_compile
}

# start_tests NAME FOLDER OPTION...: run_tests in the background, in a process group so that all of it can be ended.
# Tests mostly wait, so twice as many run as there are processors.
names=()
pids=()
logs=()
start_tests() {
  say "$1 tests, beside what follows"
  names+=("$1")
  logs+=("$(mktemp)")
  set -m
  { failures=(); run_tests "$@" -j $((2 * jobs)); exit ${#failures[@]}; } >"${logs[-1]}" 2>&1 &
  pids+=($!)
  set +m
}

# finish_tests: waits for all of them and shows what they said.
finish_tests() {
  local index
  for index in "${!pids[@]}"; do
    wait "${pids[index]}" || failures+=("${names[index]}")
    cat "${logs[index]}"
    summary+=("$(sed -nE 's/^test: [^:]*: (.*: .* cases.*\))/\1/p' "${logs[index]}")")
  done
  end_tests
}

end_tests() {
  local pid
  for pid in "${pids[@]}"; do kill -- "-$pid" 2>/dev/null; done
  wait
  rm -f "${logs[@]}"
  names=()
  pids=()
  logs=()
}
trap end_tests EXIT

# finish: the summary, and the end.
finish() {
  echo
  for line in "${summary[@]}"; do say "$line"; done
  if [ ${#failures[@]} -gt 0 ]; then
    say "FAILED: ${failures[*]}"
    exit 1
  fi
  say 'everything passed'
  exit 0
}

say 'looking for the packages it needs'
setup/packages.sh "$packages" || exit 1

if [ -n "$host" ]; then
  export QUILLBROOK_HOST=$host
  check "build for the PBX in $host" build build-host -DCMAKE_BUILD_TYPE=Release -DASTERISK_PREFIX="$host" || exit 1
  start_tests "live, $("$host/sbin/asterisk" -V)" build-host -L live
  finish_tests
  finish
fi

check 'formatting' check_format
check 'scripts' check_scripts
check 'release build' build build -DCMAKE_BUILD_TYPE=Release || exit 1
start_tests 'live' build -L live
check 'another series, a prefix of its own' nice -n 10 tests/other_series.sh build-series
check 'build with address and undefined-behaviour sanitizers' build build-address -DQUILLBROOK_SANITIZE=address "${sanitized[@]}"
start_tests 'component, address sanitizer' build-address -LE live
check 'build with thread sanitizer' build build-thread -DQUILLBROOK_SANITIZE=thread "${sanitized[@]}"
finish_tests
# Not beside the component tests: ctest keeps one log for a folder.
start_tests 'live, address sanitizer' build-address -L live -R "$live_with_sanitizer"
start_tests 'component, thread sanitizer' build-thread -L threads
check 'fuzzing' nice -n 10 tests/fuzz/run.sh "${fuzz[@]}"
check 'static analysis' nice -n 10 tests/tidy.sh build-tidy "$depth"
if [ "$depth" = deep ]; then
  check 'build of the component tests for release' build build-component -DQUILLBROOK_TESTS=ON -DCMAKE_BUILD_TYPE=Release
  start_tests 'component' build-component -LE live
fi
finish_tests
if [ "$packages" = thorough ]; then
  check 'coverage' bash -c 'tests/coverage.sh build-coverage >build/check-coverage.log' && cat build/check-coverage.log
  in_fresh_root 'README in a fresh Debian 12' bookworm './demo.sh && ./test.sh'
  in_fresh_root "Asterisk of Debian's unstable release" unstable \
    './test.sh --host /usr && tests/package_facts.sh build-host | sed "s/^/shown: /"'
  tests/package_facts.sh build
fi
finish
