#!/usr/bin/env bash
# The source lists in the CMakeLists.txt files are explicit. This compares them with the files that
# exist: a source that nobody lists would never be built, a test that nobody lists would never run.
#   tools/source-lists.sh           print the differences, fail if there are any
#   tools/source-lists.sh --write   bring the lists up to date
set -euo pipefail
cd "$(dirname "$0")/.."

files() { # folder, pattern
  if [ -d "$1" ]; then
    find "$1" -name "$2" -type f -printf '%P\n' | LC_ALL=C sort
  fi
}

# The files that the list opened by line $2 of folder $1 should name.
listed() {
  local suite
  case $2 in
    'set(headers') files "$1" '*.h' ;;
    'set(sources') files "$1" '*.cpp' ;;
    'set(support') files "$1/support" '*.cpp' | sed 's|^|support/|' ;;
    *)
      suite=${2#*\(}
      suite=${suite%% *}
      files "$1/$suite" '*.cpp' | sed "s|^|$suite/|"
      ;;
  esac
}

# Prints the CMakeLists.txt of folder $1 with the lists that its files call for. A list opens with
# `set(headers`, `set(sources`, `set(support` or `tarnlet_tests(FOLDER ...` and ends with `)`.
relisted() {
  local line folder=$1 inside=no
  while IFS= read -r line; do
    if [ "$inside" = yes ]; then
      [ "$line" = ')' ] || continue
      inside=no
    fi
    printf '%s\n' "$line"
    case $line in
      'set(headers' | 'set(sources' | 'set(support' | 'tarnlet_tests('*)
        inside=yes
        listed "$folder" "$line" | sed 's|^|  |'
        ;;
    esac
  done <"$folder/CMakeLists.txt"
}

status=0
for folder in framework model engine nexthop config xdksim agent cli bench tests; do
  list=$folder/CMakeLists.txt
  wanted=$(relisted "$folder")
  if [ "$wanted" = "$(cat "$list")" ]; then
    continue
  fi
  if [ "${1:-}" = --write ]; then
    printf '%s\n' "$wanted" >"$list"
    echo "$list: brought up to date"
  else
    echo "$list: the lists differ from the files (tools/source-lists.sh --write mends them):"
    diff "$list" <(printf '%s\n' "$wanted") | grep '^[<>]' || true
    status=1
  fi
done

while IFS= read -r file; do
  if ! grep -qxF "  $file" tests/CMakeLists.txt; then
    echo "tests/CMakeLists.txt: no list is for tests/$file"
    status=1
  fi
done < <(files tests '*.cpp' | grep -v '^install/')
exit $status
