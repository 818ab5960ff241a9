#!/usr/bin/env bash
# Which lines and branches of what ships the component tests run: a table by folder, the whole, and the files with the
# most lines left out.
#
# Usage: coverage.sh FOLDER
#   FOLDER  for a build tree of its own; report.txt in it holds all files, lines.txt each line with its count
set -euo pipefail
cd "$(dirname "$0")/.."
folder=$1
version=$(clang --version | sed -nE 's/.*clang version ([0-9]+).*/\1/p')
cmake -S . -B "$folder" -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=Debug \
  -DQUILLBROOK_TESTS=ON -DQUILLBROOK_SANITIZE=coverage -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=5 >/dev/null
ninja -C "$folder" >"$folder/build.txt" || { tail -n 40 "$folder/build.txt" && exit 1; }
rm -rf "$folder/profiles"
mkdir "$folder/profiles"
# One profile for each program or shared object; the runs of one are added up. The long forms of tests go the same ways
# again and again.
LLVM_PROFILE_FILE=$PWD/$folder/profiles/%m.profraw env -u QUILLBROOK_THOROUGH ctest --test-dir "$folder" -LE live -j "$(nproc)" >"$folder/tests.txt" ||
  sed -n '/^The following tests FAILED/,/^Errors/p' "$folder/tests.txt" # what is slow now is no matter here
"llvm-profdata-$version" merge -o "$folder/all.profdata" "$folder"/profiles/*.profraw
mapfile -t objects < <(find "$folder" -name '*_test' -type f -o -name '*_fuzz' -type f -o -path '*/lib/quillbrook/*.so')
arguments=("${objects[@]/#/-object=}" -instr-profile="$folder/all.profdata"
  "-ignore-filename-regex=/(tests|demo|bench|companion|check|usr)/|plugins/example/")
"llvm-cov-$version" report "${arguments[@]}" >"$folder/report.txt" 2>/dev/null
"llvm-cov-$version" show "${arguments[@]}" >"$folder/lines.txt" 2>/dev/null
# Columns: file, three of regions, three of functions, three of lines, three of branches; the middle one counts misses.
awk '
  $1 ~ /\.(cpp|h)$/ {
    place = $1
    sub(/\/[^\/]*$/, "", place)
    lines[place] += $8; lines_missed[place] += $9; branches[place] += $11; branches_missed[place] += $12
    lines["total"] += $8; lines_missed["total"] += $9; branches["total"] += $11; branches_missed["total"] += $12
  }
  function share(all, missed) { return all ? 100 * (all - missed) / all : 100 }
  END {
    for (place in lines)
      printf "%-34s %6d lines %6.1f %%  %6d branches %6.1f %%\n", place, lines[place],
        share(lines[place], lines_missed[place]), branches[place], share(branches[place], branches_missed[place])
  }' "$folder/report.txt" | sort
echo 'lines left out, most first:'
awk '$1 ~ /\.(cpp|h)$/ && $9 { print $9, $1 }' "$folder/report.txt" | sort -rn | head -n 15
