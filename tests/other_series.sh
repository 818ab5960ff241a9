#!/usr/bin/env bash
# Compiles module and companion for a PBX of another series, with a prefix of its own, and looks at where they are
# installed. The headers are those of Debian's unstable release; where they cannot be had, a line says so, and those of the
# installed PBX serve for the rest.
#
# Usage: other_series.sh FOLDER
# FOLDER keeps headers and build.
set -euo pipefail
cd "$(dirname "$0")/.."
mkdir -p "$1"
folder=$(cd "$1" && pwd)
prefix=$folder/pbx
build=$folder/build
wrong() { printf 'other_series: %s\n' "$1" >&2 && exit 1; }

headers=$folder/unstable/include
tests/debian/unstable_headers.sh "$folder/unstable" || { [ $? = 77 ] && headers=/usr/include; }
rm -rf "$prefix" "$folder/installed"
mkdir -p "$prefix/etc/asterisk" "$prefix/lib64/pbx-modules" "$prefix/include"
ln -s "$headers/asterisk.h" "$headers/asterisk" "$prefix/include/"
printf '[directories](!)\nastmoddir => %s ; where it looks\n' "$prefix/lib64/pbx-modules" >"$prefix/etc/asterisk/asterisk.conf"

cmake -S . -B "$build" -G Ninja -DASTERISK_PREFIX="$prefix" -DQUILLBROOK_PLUGINS=dummy -DQUILLBROOK_DEMO=OFF \
  -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON -DCMAKE_BUILD_TYPE=Debug -DCMAKE_UNITY_BUILD=ON \
  -DCMAKE_COMPILE_WARNING_AS_ERROR=ON | tee "$folder/configured"
for line in "headers: $prefix/include" "modules: $prefix/lib64/pbx-modules" "configuration: $prefix/etc/asterisk"; do
  grep -qxF -- "-- Asterisk $line" "$folder/configured" || wrong "it does not say '$line'"
done
grep -qE '^-- Asterisk version: [0-9]+' "$folder/configured" || wrong 'the version is not told'
ninja -C "$build"
if ninja -C "$build" package >"$folder/package" || ! grep -q 'No package can be made' "$folder/package"; then
  wrong 'a package is made for a PBX that is not the installed one'
fi

DESTDIR=$folder/installed cmake --install "$build" >/dev/null
DESTDIR=$folder/installed cmake --install "$build" --component companion >/dev/null
for file in "$prefix/lib64/pbx-modules/res_speech_quillbrook.so" "$prefix/lib64/pbx-modules/res_quillbrook_companion.so" \
  "$prefix/etc/asterisk/quillbrook.conf.sample" /usr/lib/quillbrook/plugin_dummy.so; do
  [ -e "$folder/installed$file" ] || wrong "$file is not installed"
done
stray=$(find "$folder/installed" -path "$folder/installed$prefix" -prune -o \( -name '*.conf.sample' -o -name 'res_*.so' \) \
  -not -path '*/doc/*' -print)
[ -z "$stray" ] || wrong "installed where another PBX looks: $stray"

if cmake -S . -B "$folder/none" -G Ninja -DASTERISK_INCLUDE_DIR=/nonexistent >"$folder/refused" 2>&1 ||
  ! grep -q 'are not in' "$folder/refused"; then
  wrong 'a folder without headers is taken'
fi
