#!/usr/bin/env bash
# Runs every check: formatting, static analysis, component tests (plain, with address and undefined-behaviour
# sanitizers, with the thread sanitizer), live tests on a private PBX, a short fuzzing. Exits non-zero when anything
# failed.
#
# Usage: ./test.sh
#
# Installs what is missing. Builds are kept in build/ (release), build-address/, build-thread/, build-fuzz/ and
# build-tidy/; their check-*.log hold the details. The live tests mostly wait, so they run beside the later builds.
set -uo pipefail
cd "$(dirname "$0")" || exit 1

started=$SECONDS
jobs=$(nproc)
failures=()
summary=()

say() { printf 'test: %s\n' "$1"; }

# check NAME COMMAND...: runs a step; on failure shows the end of what it printed and returns 1.
check() {
  local name=$1 log status=0 begun=$SECONDS
  shift
  log=$(mktemp)
  say "$name"
  if ! "$@" >"$log" 2>&1; then
    failures+=("$name")
    tail -n 60 "$log"
    say "FAILED: $name"
    status=1
  fi
  say "    $((SECONDS - begun)) s"
  rm -f "$log"
  return "$status"
}

configure() {
  local folder=$1
  shift
  cmake -S . -B "$folder" -G Ninja -DQUILLBROOK_TESTS=ON "$@"
}

# build FOLDER OPTION...: configures and builds; a build that is up to date takes a second.
build() { configure "$@" && nice -n 10 ninja -C "$1" -j "$jobs"; }

# build_label LABEL FOLDER OPTION...: the same, of no more than what the tests of a label run.
build_label() {
  local label=$1
  shift
  configure "$@" || return 1
  ctest --test-dir "$1" -L "$label" --show-only=json-v1 | python3 -c '
import json, os, sys
folder = os.path.realpath(sys.argv[1]) + "/"
words = [word for test in json.load(sys.stdin)["tests"] for word in test.get("command", [])]
print("\n".join(sorted({word[len(folder):] for word in words if word.startswith(folder)})))' "$1" |
    nice -n 10 xargs ninja -C "$1" -j "$jobs"
}

# run_tests NAME FOLDER OPTION...: runs ctest, shows what failed, and keeps its closing line.
run_tests() {
  local name=$1 folder=$2 log="$2/check-${1//[^a-z]/-}.log" closing cases
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

# start_live NAME FOLDER: runs the live tests in the background, in a process group so that all of it can be ended.
live_pids=()
live_logs=()
start_live() {
  say "$1 tests, beside what follows"
  live_logs+=("$(mktemp)")
  set -m
  { failures=(); run_tests "$1" "$2" -L live -j 2; exit ${#failures[@]}; } >"${live_logs[-1]}" 2>&1 &
  live_pids+=($!)
  set +m
}

finish_live() {
  local index
  for index in "${!live_pids[@]}"; do
    wait "${live_pids[index]}" || failures+=("live tests $((index + 1))")
    cat "${live_logs[index]}"
    summary+=("$(sed -nE 's/^test: (live.*: .*)/\1/p' "${live_logs[index]}")")
  done
}

end_live() {
  local pid
  for pid in "${live_pids[@]}"; do kill -- "-$pid" 2>/dev/null; done
  wait
  rm -f "${live_logs[@]}"
}
trap end_live EXIT

check_fuzz() {
  local script
  for script in tests/fuzz/*_fuzz.sh; do nice -n 10 "$script" build-fuzz 2000 || return 1; done
}

say 'looking for the packages it needs'
setup/packages.sh test || exit 1

check 'formatting' check_format
check 'scripts' check_scripts
check 'release build (build/)' build build -DCMAKE_BUILD_TYPE=Release || exit 1
run_tests 'component' build -LE live -j "$jobs"

start_live 'live' build
check 'build with address and undefined-behaviour sanitizers' build build-address -DCMAKE_BUILD_TYPE=Debug -DQUILLBROOK_SANITIZE=address
run_tests 'component, address sanitizer' build-address -LE live -j "$jobs"
start_live 'live, address sanitizer' build-address
check 'build with thread sanitizer' build_label threads build-thread -DCMAKE_BUILD_TYPE=Debug -DQUILLBROOK_SANITIZE=thread
run_tests 'component, thread sanitizer' build-thread -L threads -j "$jobs"
check 'fuzzing, a short while' check_fuzz
check 'static analysis' check_tidy

finish_live

echo
for line in "${summary[@]}"; do say "$line"; done
say "$((SECONDS - started)) seconds"
if [ ${#failures[@]} -gt 0 ]; then
  say "FAILED: ${failures[*]}"
  exit 1
fi
say 'everything passed'
