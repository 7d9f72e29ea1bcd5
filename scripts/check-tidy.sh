#!/bin/sh
# Runs clang-tidy over the C++ sources of the products, as the release build compiles them.
set -eu
cd "$(dirname "$0")/.."

[ -f build/release/compile_commands.json ] || cmake --preset release >/dev/null
sed -n 's|^ *"file": "\(.*\)",*$|\1|p' build/release/compile_commands.json |
  grep -E "^$PWD/(core|src|tools)/.*[.]cpp$" | sort -u |
  xargs -d '\n' -n 1 -P "$(nproc)" clang-tidy -p build/release --quiet --warnings-as-errors='*'
