#!/usr/bin/env bash
# Installs what the build, the demo and the tests need, on Debian 12 as root.
#
# Usage: setup/packages.sh [demo|test]
#   demo   the PBX with its headers, the compiler, the offline recogniser, its English model, recorded prompts
#   test   all of that, and what the checks run: sanitizers, formatters, promtool, a SIP caller
#
# Debian 12 has no Asterisk; Debian 11 has one whose module interface is the one we build for. It comes from the
# same mirror that this machine already uses, pinned low, so that nothing else on the machine changes suite.
# A machine that has everything is left alone, in well under a second. Exits 1 with a sentence on what to do.
set -euo pipefail

purpose=${1:-demo}
log=$(mktemp -t quillbrook-packages.XXXXXX)
trap 'rm -f "$log"' EXIT

fail() {
  printf 'setup: %s\n' "$1" >&2
  [ -s "$log" ] && { printf 'setup: the last lines of apt were:\n' >&2; tail -n 15 "$log" >&2; }
  exit 1
}

packages=(build-essential cmake ninja-build pkg-config git ca-certificates
  asterisk asterisk-dev
  libpocketsphinx-dev libsphinxbase-dev pocketsphinx-en-us
  asterisk-core-sounds-en-wav
  libwslay-dev libc-ares-dev libssl-dev nlohmann-json3-dev
  python3 sox file)
if [ "$purpose" = test ]; then
  packages+=(libgtest-dev libgmock-dev libbenchmark-dev libre2-dev libexpat1-dev
    clang clang-format clang-tidy libclang-rt-14-dev prometheus openssl)
elif [ "$purpose" != demo ]; then
  fail "unknown purpose '$purpose': say demo or test"
fi

is_installed() { [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]; }

missing=()
for package in "${packages[@]}"; do is_installed "$package" || missing+=("$package"); done
[ ${#missing[@]} -eq 0 ] && exit 0

[ "$(id -u)" = 0 ] || fail "root is needed to install: ${missing[*]}. Run this as root, or install these yourself."
. /etc/os-release
[ "${VERSION_CODENAME:-}" = bookworm ] || fail "this installs on Debian 12 (bookworm) only; here, install these yourself: ${missing[*]}"

# The first mirror that this machine names for bookworm, in either form of apt's source lists.
mirror_in_use() {
  { cat /etc/apt/sources.list /etc/apt/sources.list.d/*.list 2>/dev/null || true; } |
    sed -nE 's/^deb +(\[[^]]*\] +)?([^ ]+) +bookworm +main.*/\2/p' | head -n 1 | grep . && return
  awk 'BEGIN { RS = ""; FS = "\n" }
       { uri = ""; ok = 0
         for (i = 1; i <= NF; i++) {
           if ($i ~ /^URIs:/) { split($i, part, /[ \t]+/); uri = part[2] }
           if ($i ~ /^Suites:.*[ \t]bookworm([ \t]|$)/) ok = 1
         }
         if (ok && uri != "") { print uri; exit } }' /etc/apt/sources.list.d/*.sources 2>/dev/null
}

if ! is_installed asterisk || ! is_installed asterisk-dev; then
  mirror=$(mirror_in_use) || true
  [ -n "$mirror" ] || fail "no Debian mirror found in /etc/apt: add a source for bookworm, then run this again"
  echo "setup: adding Debian 11 (bullseye), pinned low, for Asterisk 16"
  echo "deb $mirror bullseye main" >/etc/apt/sources.list.d/quillbrook-bullseye.list
  printf 'Package: *\nPin: release n=bullseye\nPin-Priority: 100\n' >/etc/apt/preferences.d/quillbrook-bullseye
fi

# Keeps the packages from starting services (the system-wide Asterisk, prometheus) while they are installed.
policy=/usr/sbin/policy-rc.d
if [ ! -e "$policy" ]; then
  printf '#!/bin/sh\nexit 101\n' >"$policy"
  chmod +x "$policy"
  trap 'rm -f "$log" "$policy"' EXIT
fi

echo "setup: installing ${#missing[@]} packages (a minute or two the first time): ${missing[*]}"
apt-get update >"$log" 2>&1 || fail "the package lists could not be updated: check the network and /etc/apt"
DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}" >"$log" 2>&1 ||
  fail "the packages could not be installed: see above, then run this again"
echo "setup: packages are there"
