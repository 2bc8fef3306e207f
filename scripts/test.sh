#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: once in a plain
# build, once under AddressSanitizer and UndefinedBehaviorSanitizer; the
# unit tests once more under valgrind memcheck (about a minute on two
# cores); then runs each fuzz target for a minute.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh

scripts/build.sh build
(cd build && ctest --output-on-failure -j"$(nproc)")

# Any sanitizer report aborts the test that caused it, so ctest fails.
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
scripts/build.sh build-asan -DTIFFGATE_SANITIZE=ON -DTIFFGATE_BENCH=OFF
(cd build-asan && ctest --output-on-failure -j"$(nproc)")

# No leak and no invalid access in the plain build either.
scripts/memcheck.sh build

# A minute of each fuzz target, both at once: any finding fails.
scripts/fuzz.sh 60
