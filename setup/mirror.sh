# To be sourced: finds the Debian mirror that this machine uses, so that the tree names none.

# mirror_of SUITE: the first mirror that apt's source lists, in either of their forms, name for the suite.
mirror_of() {
  { cat /etc/apt/sources.list /etc/apt/sources.list.d/*.list 2>/dev/null || true; } |
    sed -nE "s/^deb +(\[[^]]*\] +)?([^ ]+) +$1 +main.*/\2/p" | head -n 1 | grep . && return
  awk -v suite="$1" 'BEGIN { RS = ""; FS = "\n" }
       { uri = ""; ok = 0
         for (i = 1; i <= NF; i++) {
           if ($i ~ /^URIs:/) { split($i, part, /[ \t]+/); uri = part[2] }
           if ($i ~ "^Suites:(.*[ \t])?" suite "([ \t]|$)") ok = 1
         }
         if (ok && uri != "") { print uri; exit } }' /etc/apt/sources.list.d/*.sources 2>/dev/null | grep .
}

# mirror_in_use: the mirror of the Debian that is installed here; fails when there is none.
mirror_in_use() {
  local suite
  for suite in "$(. /etc/os-release && echo "${VERSION_CODENAME:-none}")" sid unstable; do
    mirror_of "$suite" && return
  done
  return 1
}
