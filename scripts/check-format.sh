#!/bin/sh
# Checks that every source file is as clang-format leaves it, with --fix makes it so, and that no
# line is too long and every file ends with the end of a line.
set -eu
cd "$(dirname "$0")/.."

mode="--dry-run -Werror"
[ "${1:-}" = --fix ] && mode=-i

# The words of $mode are meant to split.
# shellcheck disable=SC2086
git ls-files -z -- '*.h' '*.c' '*.cpp' | xargs -0 clang-format $mode

# Comments are laid out by hand; their width is checked here.
git ls-files -z -- '*.h' '*.c' '*.cpp' '*.inc' '*.S' | xargs -0 awk '
  length > 100 { print FILENAME ":" FNR ": more than 100 columns"; found = 1 }
  END { exit found }'

git ls-files -z | xargs -0 sh -c '
  found=0
  for file; do
    [ -z "$(tail -c 1 "$file")" ] || { echo "$file: the last line has no end"; found=1; }
  done
  exit $found' sh
