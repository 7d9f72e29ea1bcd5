#!/bin/bash
# Installs what is missing, builds the tool and shows it at work on a real file beside gzip:
#
#   ./demo.sh [FILE]
#
# Without FILE it takes the C++ compiler itself, some 30 MB. The results are checked: gzip must
# accept what zebz wrote, and each must give back the other's input.
set -eu
export LC_ALL=C
[ $# -eq 0 ] || file=$(realpath -- "$1")
cd "$(dirname "$0")"

scripts/install-deps.sh build demo
build=build/demo
cmake --preset release -B $build -DZEBDC_BUILD_TESTS=OFF -DZEBDC_BUILD_BENCH=OFF >/dev/null
cmake --build $build --target zebz
zebz=$build/zebz
file=${file:-$(g++ -print-prog-name=cc1plus)}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
size=$(stat -c %s -- "$file")

# best COMMAND...: the shortest of three runs, in microseconds. The output goes to $work/out.
best() {
  local shortest= start time
  for _ in 1 2 3; do
    start=$EPOCHREALTIME
    "$@" >"$work/out"
    time=$((${EPOCHREALTIME/./} - ${start/./}))
    if [ -z "$shortest" ] || [ "$time" -lt "$shortest" ]; then shortest=$time; fi
  done
  echo "$shortest"
}

# speed MICROSECONDS: bytes per microsecond are MB/s.
speed() {
  awk -v size="$size" -v time="$1" 'BEGIN { printf "%.0f", size / time }'
}

row() {
  printf '%-10s %12s %8s %16s %18s\n' "$@"
}

# measure LABEL COMMAND...: one row of the table; the compressed file is left in $work/LABEL.gz.
measure() {
  local label=$1 pack unpack packed
  shift
  pack=$(best "$@" -c -- "$file")
  mv "$work/out" "$work/$label.gz"
  gzip -t "$work/$label.gz"
  unpack=$(best "$1" -dc "$work/$label.gz")
  cmp "$work/out" "$file"
  packed=$(stat -c %s "$work/$label.gz")
  row "$label" "$packed" "$(awk -v a="$packed" -v b="$size" 'BEGIN { printf "%.1f %%", 100 * a / b }')" \
    "$(speed "$pack") MB/s" "$(speed "$unpack") MB/s"
}

echo
echo "$file: $size bytes"
echo
row "" bytes size compression decompression
for level in 1 6 9; do
  measure zebz-$level $zebz -$level
  measure gzip-$level gzip -$level
done
measure zebz-6-T0 $zebz -6 -T0

for level in 1 6 9; do
  gzip -dc "$work/zebz-$level.gz" | cmp - "$file"
  $zebz -dc "$work/gzip-$level.gz" | cmp - "$file"
done
echo
echo "gzip -t accepts what zebz wrote, and each tool gives back what the other was given."
