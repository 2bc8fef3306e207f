#!/usr/bin/env bash
# bench.sh [quick|full] [Google Benchmark flags]: installs what is missing,
# builds, and runs the benchmarks; prints one table of medians and ratios
# to floors measured in the same run (see docs/PERFORMANCE.md).
# bench.sh octave [SIDE [REPEATS]]: the Octave host against Octave's own
# imread and imwrite, on a SIDE x SIDE RGB image (default 8192).
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "${1:-}" = octave ]; then
  TIFFGATE_WITH_OCTAVE=1 scripts/install-deps.sh
  scripts/build.sh build-bench -DTIFFGATE_TESTS=OFF -DTIFFGATE_BENCH=ON --target tiffgate_oct >/dev/null
  exec octave-cli --no-gui --norc --no-history --quiet --eval \
    "addpath('host/octave/package/inst', 'bench/octave');
     tiffgate_octave_bench('$PWD/build-bench/octave', ${2:-8192}, ${3:-3})"
fi
TIFFGATE_WITH_OCTAVE=${TIFFGATE_WITH_OCTAVE:-0} scripts/install-deps.sh
# A tree of its own: the benchmarks need no tests, and the other trees keep
# their options.
scripts/build.sh build-bench -DTIFFGATE_TESTS=OFF -DTIFFGATE_BENCH=ON >/dev/null
exec build-bench/bench/tiffgate_bench "${1:-quick}" "${@:2}"
