#!/bin/sh
# Line coverage of src/ by the test suites, each under every kernel tier that this machine has.
#
#   scripts/coverage.sh [-u] [ctest flags, such as -R lz]
#
# Needs gcc and gcovr. Prints a line for each file and the totals, with and without the kernels of
# tiers that the machine lacks; -u lists the lines that no test reaches. Built in build/coverage.
set -eu
cd "$(dirname "$0")/.."

list_uncovered=0
if [ "${1:-}" = -u ]; then
  list_uncovered=1
  shift
fi

build=build/coverage
cmake -S . -B $build -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_COMPILER=gcc \
  -DCMAKE_CXX_COMPILER=g++ -DCMAKE_CXX_FLAGS="--coverage -O1 -g0" -DZEBDC_BUILD_BENCH=OFF \
  -DZEBDC_BUILD_TOOLS=OFF -DZEBDC_BUILD_EXAMPLES=OFF >/dev/null
cmake --build $build -j 2
find $build -name '*.gcda' -delete
ctest --test-dir $build --output-on-failure -j 2 -E '^(consumer|bench|frame[.]library)' "$@"
gcovr --root . --filter src/ --gcov-ignore-parse-errors --json $build/coverage.json $build

python3 - $build/coverage.json $list_uncovered <<'END'
import json
import re
import sys

# The tiers whose kernels this machine cannot run, by the flags that their names begin with.
with open('/proc/cpuinfo') as cpuinfo:
    flags = cpuinfo.read()
lacking = [tier for tier, flag in (('SSE42', ' sse4_2'), ('AVX2', ' avx2'),
                                   ('VPCLMUL', ' vpclmulqdq'), ('AVX512', ' avx512bw'))
           if flag not in flags]


def lines_of_lacking_tiers(path):
    lines = set()
    inside = False
    with open(path) as source:
        for number, text in enumerate(source, 1):
            begin = re.match(r'ZEBDC_BEGIN_(\w+)', text)
            if begin:
                inside = begin.group(1) in lacking
            elif text.startswith('ZEBDC_END_TARGET'):
                inside = False
            if inside:
                lines.add(number)
    return lines


def percent(covered, total):
    return '%6.2f %%' % (100 * covered / total if total else 100)


with open(sys.argv[1]) as report:
    files = json.load(report)['files']
totals = [0, 0, 0, 0]
for entry in sorted(files, key=lambda f: f['file']):
    # A line of a template counts as covered where any of its instances is.
    counts = {}
    for line in entry['lines']:
        if line.get('gcovr/noncode'):
            continue
        number = line['line_number']
        counts[number] = counts.get(number, 0) + line['count']
    unreachable = lines_of_lacking_tiers(entry['file'])
    here = [number for number in counts if number not in unreachable]
    covered = [number for number in here if counts[number]]
    totals[0] += len(covered)
    totals[1] += len(here)
    totals[2] += sum(1 for number in counts if counts[number])
    totals[3] += len(counts)
    print(percent(len(covered), len(here)), '%5d' % len(here), entry['file'])
    if sys.argv[2] == '1':
        for number in sorted(set(here) - set(covered)):
            print('        line', number)
print(percent(*totals[:2]), '%5d' % totals[1], 'src/')
if lacking:
    print(percent(*totals[2:]), '%5d' % totals[3], 'src/ with the kernels for', ', '.join(lacking))
END
