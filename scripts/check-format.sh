#!/bin/sh
# Checks that every source file is as clang-format leaves it; with --fix, makes it so.
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
