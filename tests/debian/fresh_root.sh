#!/usr/bin/env bash
# Runs a script in a freshly made Debian, with nothing prepared, in a copy of this tree. The root is gone afterwards, with
# every process in it.
#
# Usage: fresh_root.sh SUITE SCRIPT
#   SUITE   bookworm, unstable, ...
#   SCRIPT  for bash, as root, in the copy of the tree; with git as if from a clone
# Needs root, debootstrap and 4 GB below TMPDIR. Exits 77 with a line where no root can be made, else as the script does.
set -euo pipefail
cd "$(dirname "$0")/../.."
. setup/mirror.sh
suite=$1
script=$2

skip() {
  echo "SKIPPED: no Debian root of $suite can be made: $1"
  exit 77
}
[ "$(id -u)" = 0 ] || skip 'that takes root'
command -v debootstrap >/dev/null || skip 'debootstrap is not installed'
mirror=$(mirror_in_use) || skip 'no Debian mirror is named in /etc/apt'
unshare --mount --pid --fork true 2>/dev/null || skip 'this machine grants no mounts'

root=$(mktemp -d -t fresh-root.XXXXXX)
chmod 755 "$root" # apt loads as a user of its own
trap 'rm -rf --one-file-system "$root"' EXIT
debootstrap --variant=minbase --include=ca-certificates "$suite" "$root" "$mirror" >"$root.log" 2>&1 || {
  tail -n 5 "$root.log"
  rm -f "$root.log"
  skip 'debootstrap failed, see above'
}
rm -f "$root.log"
cp /etc/resolv.conf "$root/etc/"
[ -e "$root/etc/hosts" ] || echo '127.0.0.1 localhost' >"$root/etc/hosts" # as the installer leaves it
# How this machine reaches its mirror, and what it thinks of its age.
apt-config dump | grep '^Acquire::' >"$root/etc/apt/apt.conf.d/as-outside"
[ ! -d /etc/apt/auth.conf.d ] || cp -r /etc/apt/auth.conf.d "$root/etc/apt/"
git clone --quiet "file://$(git rev-parse --show-toplevel)" "$root/quillbrook"
# What is not committed yet, too.
git ls-files --modified --others --exclude-standard | while read -r file; do [ ! -e "$file" ] || echo "$file"; done |
  tar -cf - -T - | tar -xf - -C "$root/quillbrook"

# All mounts and processes end with the first one in here.
unshare --mount --pid --fork --kill-child bash -c '
  set -e
  mount --make-rprivate /
  mount -t proc proc "$1/proc"
  mount --rbind /sys "$1/sys"
  mount --rbind /dev "$1/dev"
  mount -t tmpfs -o mode=1777 scratch "$1/tmp"
  exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root TERM=dumb chroot "$1" \
    bash -c "cd /quillbrook && $2"' bash "$root" "$script"
