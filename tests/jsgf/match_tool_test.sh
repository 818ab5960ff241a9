#!/usr/bin/env bash
# Runs jsgf-match as people do. Usage: match_tool_test.sh TOOL FOLDER-OF-GRAMMARS
set -u
tool=$1
grammars=$2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
failed=0

# expect STATUS OUTPUT COMMAND...: the command's exit status and all that it prints.
expect() {
  local status=$1 wanted=$2 got
  shift 2
  got=$("$@" 2>&1)
  local is=$?
  if [ "$is" != "$status" ] || [ "$got" != "$wanted" ]; then
    printf 'FAILED: %s\nwanted (%s): %s\ngot (%s): %s\n' "$*" "$status" "$wanted" "$is" "$got"
    failed=1
  fi
}

expect 0 $'match: Two, oh five.\n  rule: number\n  tags: {2} {0} {5}' "$tool" "$grammars/digits.jsgf" 'Two, oh five.'
expect 1 $'match: Yes please\n  rule: answer\n  tags: {yes}\nno match: maybe' "$tool" "$grammars/yesno.jsgf" \
  'Yes please' maybe
expect 0 $'match: a big pizza\n  rule: order\n  tags: {count=1} {size=large}' \
  bash -c 'printf "a big pizza\r\n" | "$1" "$2/pizza.jsgf"' - "$tool" "$grammars"
expect 1 $'no match: Two, oh-05.\n  words: [two] [oh] [0] [5]\n  fits as far as: two oh\n  then comes: 0
  could follow there: zero oh one two three four five six seven eight nine, or the end' \
  "$tool" --explain "$grammars/digits.jsgf" 'Two, oh-05.'
expect 0 'zero oh one two three four five six seven eight nine' \
  bash -c '"$1" --words "$2/digits.jsgf" | xargs' - "$tool" "$grammars"

printf '#JSGF V1.0;\ngrammar a;\npublic <a> = b\n' >"$folder/broken.jsgf"
expect 2 "$folder/broken.jsgf:4:1: expected ';', found the end of the file" "$tool" "$folder/broken.jsgf" b
expect 2 "$folder/none.jsgf: cannot be opened" "$tool" "$folder/none.jsgf"
exit $failed
