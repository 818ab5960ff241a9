#!/usr/bin/env bash
# Runs every check: formatting, static analysis, component tests (plain, with address and undefined-behaviour
# sanitizers, with the thread sanitizer), and live tests on a private PBX. Exits non-zero when anything failed.
#
# Usage: ./test.sh
#
# Installs what is missing. Builds are kept in build/ (release), build-address/, build-thread/ and build-tidy/, whose
# Testing/ folders and check.log hold the details. The live tests mostly wait, so they run beside the sanitizers' builds.
set -uo pipefail
cd "$(dirname "$0")" || exit 1

started=$SECONDS
jobs=$(nproc)
failures=()
summary=()

say() { printf 'test: %s\n' "$1"; }

# check NAME COMMAND...: runs a step; on failure shows the end of what it printed and returns 1.
check() {
  local name=$1 log status=0
  shift
  log=$(mktemp)
  say "$name"
  if ! "$@" >"$log" 2>&1; then
    failures+=("$name")
    tail -n 60 "$log"
    say "FAILED: $name"
    status=1
  fi
  rm -f "$log"
  return "$status"
}

# build FOLDER OPTION...: configures and builds; a build that is up to date takes a second.
build() {
  local folder=$1
  shift
  cmake -S . -B "$folder" -G Ninja -DQUILLBROOK_TESTS=ON "$@" && nice -n 10 cmake --build "$folder" -j "$jobs"
}

# run_tests NAME FOLDER OPTION...: runs ctest, shows what failed, and keeps its closing line.
run_tests() {
  local name=$1 folder=$2 log=$2/check.log closing cases
  shift 2
  ctest --test-dir "$folder" --output-on-failure --timeout 120 "$@" >"$log" 2>&1 || failures+=("$name")
  closing=$(grep -E '^[0-9]+% tests passed' "$log" || echo 'ctest did not finish')
  # Each program holds many cases; both test frameworks say how many.
  cases=$(sed -nE 's/^(\[==========\] |Ran )([0-9]+) tests? .*(ran\.|in ).*/\2/p' "$folder/Testing/Temporary/LastTest.log" |
    awk '{ sum += $1 } END { print sum + 0 }')
  case $closing in 100%*) ;; *) grep -vE '^ +Start |Passed' "$log" | tail -n 120 ;; esac
  summary+=("$(printf '%-28s %s (%s cases)' "$name:" "$closing" "$cases")")
  say "${summary[-1]}"
}

sources() { git ls-files --cached --others --exclude-standard "$@" | while read -r file; do [ -e "$file" ] && echo "$file"; done; }

check_format() { sources '*.cpp' '*.h' '*.c' | xargs clang-format --dry-run -Werror; }

check_scripts() {
  local file
  for file in demo.sh test.sh setup/packages.sh .ci/run; do bash -n "$file" || return 1; done
  sources '*.py' | xargs env PYTHONPYCACHEPREFIX="$PWD/build/pycache" python3 -m py_compile
}

# Files that have passed are passed over until they, a header or the checks change.
check_tidy() {
  cmake -S . -B build-tidy -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang || return 1
  mkdir -p build-tidy/passed
  local common
  common=$({ clang-tidy --version; cat .clang-tidy; sources '*.h' | xargs cat; } | sha256sum | cut -c1-16)
  export common
  # Tests are built and run three times over; the analysis is for what ships.
  sources '*.cpp' | grep -vE '^(tests|bench)/' | nice -n 10 xargs -P "$jobs" -I {} bash -c '
    stamp=build-tidy/passed/$({ echo "$common"; cat "$1"; } | sha256sum | cut -c1-32)
    [ -e "$stamp" ] && exit 0
    clang-tidy --quiet -p build-tidy "$1" 2>/dev/null && touch "$stamp"' tidy {}
}

say 'looking for the packages it needs'
setup/packages.sh test || exit 1

check 'formatting' check_format
check 'scripts' check_scripts
check 'release build (build/)' build build -DCMAKE_BUILD_TYPE=Release || exit 1
run_tests 'component' build -LE live -j "$jobs"

# In the background and in a process group of its own, so that all of it can be ended; its lines are shown when it is done.
say 'live tests, beside the builds with sanitizers'
live_log=$(mktemp)
set -m
( failures=(); run_tests 'live' build -L live; exit ${#failures[@]} ) >"$live_log" 2>&1 &
live=$!
set +m
trap 'kill -- "-$live" 2>/dev/null; wait; rm -f "$live_log"' EXIT

check 'build with address and undefined-behaviour sanitizers' build build-address -DCMAKE_BUILD_TYPE=Debug -DQUILLBROOK_SANITIZE=address
run_tests 'component, address sanitizer' build-address -LE live -j "$jobs"
check 'build with thread sanitizer' build build-thread -DCMAKE_BUILD_TYPE=Debug -DQUILLBROOK_SANITIZE=thread
run_tests 'component, thread sanitizer' build-thread -L threads -j "$jobs"
check 'static analysis' check_tidy

wait "$live" || failures+=('live')
cat "$live_log"
summary+=("$(sed -nE 's/^test: (live: .*)/\1/p' "$live_log")")

echo
for line in "${summary[@]}"; do say "$line"; done
say "$((SECONDS - started)) seconds"
if [ ${#failures[@]} -gt 0 ]; then
  say "FAILED: ${failures[*]}"
  exit 1
fi
say 'everything passed'
