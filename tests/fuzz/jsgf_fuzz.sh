#!/usr/bin/env bash
# Builds the grammar library's fuzz targets and runs each over its corpus and a number of inputs made from it.
#
# Usage: jsgf_fuzz.sh FOLDER [RUNS]
#   FOLDER  for the build, and for inputs that broke something
#   RUNS    inputs for each target, 10000 when left out; -1 goes on until it's interrupted
set -euo pipefail
cd "$(dirname "$0")/../.."
folder=$1
runs=${2:-10000}
cmake -S . -B "$folder" -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=Release \
  -DQUILLBROOK_SANITIZE=fuzzer -DCMAKE_UNITY_BUILD=ON >/dev/null
ninja -C "$folder" jsgf_grammar_fuzz jsgf_match_fuzz
for target in jsgf_grammar jsgf_match; do
  found=$folder/$target-corpus
  mkdir -p "$found"
  # What it finds goes to its own folder; the corpus in the tree is only read. The same seed, so the same inputs.
  "$folder/tests/fuzz/${target}_fuzz" -runs="$runs" -seed=1 -max_len=2000 -timeout=20 -verbosity=0 \
    -dict=tests/fuzz/jsgf_words.dict -artifact_prefix="$folder/$target-" "$found" "tests/fuzz/corpus/$target" \
    configs/grammars
  printf '%s: %s inputs\n' "$target" "$runs"
done
