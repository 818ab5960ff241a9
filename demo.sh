#!/usr/bin/env bash
# Recognises recorded human speech on real calls: installs what is missing, builds, and places calls on a private PBX.
#
# Usage: ./demo.sh                words out of short lists, from the PBX's own recorded prompts
#        ./demo.sh FILE.wav [--words monday,tuesday]
#                                 a recording of your own, and what may be said in it
#        ./demo.sh --grammar      a dialogue with grammars, and its result documents
#        ./demo.sh --endpointing  numbers read with pauses, cut by three settings of the timeouts and by a grammar;
#                                 and pictures of it
#        ./demo.sh --server       the words through a speech server and the WebSocket plugin
#        ./demo.sh --transcription   the words through an HTTP transcription server
#
# Works on Debian 12, as root where packages are missing. The build is kept in build/, so a second run takes seconds.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$here/build

fail() {
  printf 'demo: %s\n' "$1" >&2
  exit 1
}

for argument in "$@"; do
  case $argument in
    -h | --help)
      sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"
      exit 0
      ;;
  esac
done

# Where it can be done at once: a mistake among the arguments is told before minutes of building.
if command -v python3 >/dev/null; then PYTHONDONTWRITEBYTECODE=1 python3 "$here/demo/demo.py" "$@"; fi

echo "demo: looking for the packages it needs"
"$here/setup/packages.sh" demo

echo "demo: building (a minute or two the first time, in build/)"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
# On Debian 12 the compiler is the one of the checks, which share this folder: with other flags they would build anew.
strict=OFF
grep -qs '^VERSION_CODENAME=bookworm$' /etc/os-release && strict=ON
{ cmake -S "$here" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_COMPILE_WARNING_AS_ERROR=$strict &&
  cmake --build "$build"; } >"$log" 2>&1 || {
  tail -n 40 "$log" >&2
  fail "the build failed, see above. A build/ folder from elsewhere is a common cause: remove it and run this again."
}
rm -f "$log"

exec python3 "$here/demo/demo.py" --build "$build" "$@"
