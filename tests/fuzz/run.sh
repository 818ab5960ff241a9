#!/usr/bin/env bash
# Builds the fuzz targets with libFuzzer, lets them look for inputs that break something, and prints a table of what they
# did. Each begins with its corpus in the tree and with what former runs found.
#
# Usage: run.sh HOURS [TARGET...]
#   HOURS   for all of them together, such as 8 or 0.1; as many run at a time as there are processors
#   TARGET  such as jsgf_match; all when left out
#
# An input that broke something is kept as build-fuzz/TARGET-crash-... (or -leak-, -timeout-, -oom-); to see it again:
# build-fuzz/tests/fuzz/TARGET_fuzz FILE. Once mended it becomes a file in tests/fuzz/corpus/TARGET.
set -euo pipefail
cd "$(dirname "$0")/../.."
folder=build-fuzz hours=$1
shift
targets=("$@")
[ $# -gt 0 ] || mapfile -t targets < <(cd tests/fuzz/corpus && ls)
cmake -S . -B "$folder" -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=Release \
  -DQUILLBROOK_TESTS=ON -DQUILLBROOK_SANITIZE=fuzzer -DCMAKE_UNITY_BUILD=ON >/dev/null
ninja -C "$folder" "${targets[@]/%/_fuzz}"
jobs=$(nproc)
[ "$jobs" -le ${#targets[@]} ] || jobs=${#targets[@]}
seconds=$(awk "BEGIN { print int($hours * 3600 * $jobs / ${#targets[@]}) + 1 }")

# What it finds goes to its own folder; the corpus in the tree is only read.
run() {
  local target=$1 options=() corpora=("$folder/$1-corpus" "tests/fuzz/corpus/$1")
  mkdir -p "${corpora[0]}"
  case $target in jsgf_*) options=(-dict=tests/fuzz/jsgf_words.dict) corpora+=(configs/grammars) ;; esac
  "$folder/tests/fuzz/${target}_fuzz" -max_total_time="$seconds" -max_len=2000 -timeout=20 -print_final_stats=1 \
    -artifact_prefix="$folder/$target-" "${options[@]}" "${corpora[@]}" >"$folder/$target.log" 2>&1 && return
  tail -n 40 "$folder/$target.log"
  return 1
}

row='%-14s %12s %8s %8s\n'
pids=() broken=()
for target in "${targets[@]}"; do
  [ ${#pids[@]} -lt "$jobs" ] || wait -n || true
  run "$target" &
  pids+=($!)
done
for index in "${!targets[@]}"; do wait "${pids[index]}" || broken+=("${targets[index]}"); done
printf "$row" target executions edges seconds
for target in "${targets[@]}"; do
  log=$folder/$target.log
  printf "$row" "$target" "$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")" \
    "$(sed -nE 's/^#.* cov: ([0-9]+) .*/\1/p' "$log" | tail -n 1)" "$seconds"
done
[ ${#broken[@]} -eq 0 ] || { echo "broken: ${broken[*]}" && exit 1; }
