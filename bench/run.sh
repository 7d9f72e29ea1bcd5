#!/bin/sh
# Installs what is missing, builds the benchmarks, runs them and reports.
#
#   bench/run.sh [--corpus=FOLDER] [Google Benchmark flags, such as --benchmark_filter=checksum]
#
# The results, the report and its picture are left in build/bench/. The machine should be idle.
set -eu
cd "$(dirname "$0")/.."

scripts/install-deps.sh build bench
cmake --preset release -DZEBDC_BUILD_BENCH=ON >/dev/null
cmake --build --preset release --target zebdc_bench

out=build/bench
mkdir -p "$out"
processor=$(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1)
build/release/zebdc_bench \
  --benchmark_repetitions=5 --benchmark_enable_random_interleaving=true \
  --benchmark_min_time=0.1 --benchmark_context=processor="$(echo "$processor" | tr ',' ';')" \
  --benchmark_out="$out/results.json" --benchmark_out_format=json "$@"
bench/report "$out/results.json" --markdown "$out/report.md" --svg "$out/report.svg"
cat "$out/report.md"
echo "Picture: $out/report.svg"
