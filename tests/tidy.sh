#!/usr/bin/env bash
# clang-tidy over what ships: the module, its plugins, the grammar library, the companion.
#
# Usage: tidy.sh FOLDER [shallow|deep]
#   FOLDER   for a build tree of its own; nothing is compiled in it
#   shallow  follows fewer roads through the code: seconds instead of minutes, for every day
#   deep     the analyser's usual effort
# Prints the findings, and exits non-zero when there is one.
set -euo pipefail
cd "$(dirname "$0")/.."
folder=$1
mode=${2:-deep}
# Most of the time goes into headers, so files are looked at in bundles that share them.
cmake -S . -B "$folder" -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=8 >/dev/null
# In a bundle each file is included, which is no fault there, and is analysed only when that is asked for.
sed -nE 's/^ *"file": "(.*)"$/\1/p' "$folder/compile_commands.json" | grep -v '/demo/' |
  xargs -P "$(nproc)" -n 1 clang-tidy --quiet -p "$folder" --checks=-bugprone-suspicious-include \
    --extra-arg=-Xclang --extra-arg=-analyzer-opt-analyze-headers \
    --extra-arg=-Xclang --extra-arg=-analyzer-config --extra-arg=-Xclang --extra-arg="mode=$mode" 2>/dev/null
