#!/usr/bin/env bash
# Puts the PBX's headers of Debian's unstable release into a folder, without installing anything: apt works in folders of
# its own, in which nothing of that release may be installed.
#
# Usage: unstable_headers.sh FOLDER
# FOLDER/include holds asterisk.h afterwards; what is there already is kept. Exits 77 with a line when they cannot be had.
set -euo pipefail
cd "$(dirname "$0")/../.."
. setup/mirror.sh
folder=$1
[ -e "$folder/include/asterisk.h" ] && exit 0

skip() {
  echo "SKIPPED: the headers of Debian's unstable Asterisk cannot be had: $1"
  exit 77
}
command -v apt-get >/dev/null || skip 'there is no apt-get'
mirror=$(mirror_in_use) || skip 'no Debian mirror is named in /etc/apt'
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
chmod 755 "$scratch" # apt loads as a user of its own
mkdir -p "$scratch"/{lists,cache,preferences.d}
echo "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror unstable main" >"$scratch/sources.list"
printf 'Package: *\nPin: release a=unstable\nPin-Priority: -1\n' >"$scratch/preferences.d/never"
apt=(apt-get -qq -o Dir::State::lists="$scratch/lists" -o Dir::Cache="$scratch/cache"
  -o Dir::Etc::sourcelist="$scratch/sources.list" -o Dir::Etc::sourceparts=/dev/null
  -o Dir::Etc::preferences=/dev/null -o Dir::Etc::preferencesparts="$scratch/preferences.d")
"${apt[@]}" -o APT::Update::Error-Mode=any update >"$scratch/log" 2>&1 || skip "$(tail -n 1 "$scratch/log")"
(cd "$scratch" && "${apt[@]}" download asterisk-dev/unstable) >"$scratch/log" 2>&1 || skip "$(tail -n 1 "$scratch/log")"
dpkg-deb -x "$scratch"/asterisk-dev_*.deb "$scratch/files"
mkdir -p "$folder"
cp -r "$scratch/files/usr/include" "$folder/"
