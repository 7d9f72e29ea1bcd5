#!/bin/sh
# Installs what is missing, builds with warnings as errors and runs all tests.
#
#   ./test.sh [PRESET]     release (the default), debug, asan, or windows: cross-compiled, under Wine
set -eu
cd "$(dirname "$0")"

preset=${1:-release}
bench=OFF
[ "$preset" = release ] && bench=ON

build() {
  cmake --preset "$1" -DZEBDC_WERROR=ON "-DZEBDC_BUILD_BENCH=$2" >/dev/null
  shift 2
  cmake --build "$@"
}

if [ "$preset" = windows ]; then
  scripts/install-deps.sh build test windows
  scripts/peer-sources.sh build/windows/peers bzip2 lzo2
  # The same input is to give the same bytes in both worlds.
  build release ON --preset release --target zebz zlib_compress
  build windows OFF --preset windows
  # On a busy machine Wine now and then fails to start a program, without a word: a second try.
  exec scripts/wine-session.sh build/windows/wine \
    ctest --preset windows --parallel "$(nproc)" --repeat until-pass:2
fi
scripts/install-deps.sh build test
build "$preset" $bench --preset "$preset"
exec ctest --preset "$preset" --parallel "$(nproc)"
