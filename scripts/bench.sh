#!/usr/bin/env bash
# bench.sh [quick|full] [Google Benchmark flags]: installs what is missing,
# builds, and runs the benchmarks; prints one table of medians and ratios
# to floors measured in the same run (see docs/PERFORMANCE.md).
set -euo pipefail
cd "$(dirname "$0")/.."
TIFFGATE_WITH_OCTAVE=${TIFFGATE_WITH_OCTAVE:-0} scripts/install-deps.sh
# A tree of its own: the benchmarks need no tests, and the other trees keep
# their options.
scripts/build.sh build-bench -DTIFFGATE_TESTS=OFF -DTIFFGATE_BENCH=ON >/dev/null
exec build-bench/bench/tiffgate_bench "${1:-quick}" "${@:2}"
