#!/usr/bin/env bash
# Installs what the build, the demo and the tests need, on Debian as root.
#
# Usage: setup/packages.sh [demo|live|test|thorough]
#   demo      the PBX with its headers, the compiler, the offline recogniser, its English model, recorded prompts
#   live      all of that, and what the live tests run: promtool, a SIP caller, a balancer
#   test      all of that, and what the other checks run: sanitizers, formatters
#   thorough  all of that, what makes a Debian to try it in, and what measures coverage
#
# Debian 12 has no Asterisk; Debian 11 has one whose module interface is the one we build for. It comes from the
# same mirror that this machine already uses, pinned low, so that nothing else on the machine changes suite. A Debian
# that has an Asterisk of its own, as the unstable one has, keeps to that.
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

. /etc/os-release
[ "${ID:-}" = debian ] || fail "this installs on Debian only; docs/which-asterisk.md says what is needed elsewhere"
. "$(dirname "$0")/mirror.sh"
release=${VERSION_CODENAME:-}

packages=(build-essential cmake ninja-build pkg-config git ca-certificates
  asterisk asterisk-dev
  libpocketsphinx-dev pocketsphinx-en-us
  asterisk-core-sounds-en-wav
  libwslay-dev libc-ares-dev libssl-dev nlohmann-json3-dev
  libutf8proc-dev libcurl4-openssl-dev libwebrtc-audio-processing-dev
  libgtest-dev
  python3 sox file)
# A part of PocketSphinx until its version 5.
[ "$release" = bookworm ] && packages+=(libsphinxbase-dev)
case $purpose in demo | live | test | thorough) ;; *) fail "unknown purpose '$purpose': say demo, live, test or thorough" ;; esac
[ "$purpose" = demo ] || packages+=(prometheus openssl sip-tester haproxy)
case $purpose in test | thorough)
  packages+=(libgmock-dev libbenchmark-dev libre2-dev libexpat1-dev
    clang clang-format clang-tidy libclang-rt-14-dev) ;;
esac
[ "$purpose" = thorough ] && packages+=(debootstrap llvm)

is_installed() { [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]; }

missing=()
for package in "${packages[@]}"; do is_installed "$package" || missing+=("$package"); done
[ ${#missing[@]} -eq 0 ] && exit 0

[ "$(id -u)" = 0 ] || fail "root is needed to install: ${missing[*]}. Run this as root, or install these yourself."

if [ "$release" = bookworm ] && { ! is_installed asterisk || ! is_installed asterisk-dev; }; then
  mirror=$(mirror_of bookworm) || fail "no Debian mirror found in /etc/apt: add a source for bookworm, then run this again"
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
if ! LC_ALL=C apt-cache policy asterisk | grep 'Candidate: [0-9]' >/dev/null; then
  fail "this Debian has no Asterisk; docs/which-asterisk.md says how to build for one that is compiled from source"
fi
DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}" >"$log" 2>&1 ||
  fail "the packages could not be installed: see above, then run this again"
echo "setup: packages are there"
