#!/usr/bin/env bash
# Makes the package of a build and prints what it is made for: version, dependencies, and what its module is.
#
# Usage: package_facts.sh BUILD
set -euo pipefail
build=$(cd "$1" && pwd)
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cpack --config "$build/CPackConfig.cmake" -B "$folder/made" >"$folder/log" 2>&1 || { cat "$folder/log" && exit 1; }
package=$(echo "$folder"/made/*.deb)
basename "$package"
dpkg-deb -f "$package" Version Depends Recommends
dpkg-deb -x "$package" "$folder/files"
cd "$folder/files"
module=$(find usr/lib -name res_speech_quillbrook.so)
file "$module"
# The least kernel and processor that it asks for, and the number that finds its debug information.
readelf --notes --wide "$module"
readelf --dynamic --wide "$module" | grep NEEDED
