#!/bin/sh
# Installs what is missing, builds with warnings as errors and runs all tests.
#
#   ./test.sh [PRESET]     release (the default), debug or asan
set -eu
cd "$(dirname "$0")"

preset=${1:-release}
bench=OFF
[ "$preset" = release ] && bench=ON

scripts/install-deps.sh build test
cmake --preset "$preset" -DZEBDC_WERROR=ON -DZEBDC_BUILD_BENCH=$bench >/dev/null
cmake --build --preset "$preset"
exec ctest --preset "$preset" --parallel "$(nproc)"
