#!/usr/bin/env bash
# memcheck.sh [BUILD_DIR]: builds the tree (default: build) and runs every
# unit test executable in it under valgrind memcheck, as many at once as
# there are cores. Any invalid access, use of uninitialised memory, or leak
# (definite, indirect or possible) fails the run; the Octave tests are not
# among them. Suppressions, each with its reason: scripts/memcheck.supp.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
scripts/build.sh "$build" >/dev/null

logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT
export TIFFGATE_CORPUS=${TIFFGATE_CORPUS:-$PWD/../shared/corpus}

run_one() {
  local test=$1 logs=$2 name
  name=$(basename "$test")
  # Children of a test that forks are checked as well: their
  # reports land in the same log, and an error makes them exit with 99.
  if valgrind --quiet --error-exitcode=99 --leak-check=full \
      --show-leak-kinds=definite,indirect,possible --errors-for-leak-kinds=definite,indirect,possible \
      --suppressions=scripts/memcheck.supp \
      --log-file="$logs/$name.%p.log" "$test" --gtest_brief=1 >"$logs/$name.out" 2>&1; then
    echo "clean   $name"
  else
    echo "FAILED  $name"
    touch "$logs/failed"
  fi
}
export -f run_one

start=$SECONDS
find "$build/tests" -maxdepth 1 -name '*_test' -type f -executable | sort |
  xargs -P "$(nproc)" -I{} bash -c 'run_one "$@"' _ {} "$logs"

if [ -e "$logs/failed" ]; then
  for f in "$logs"/*.log "$logs"/*.out; do
    [ -s "$f" ] || continue
    echo "--- $(basename "$f")"
    tail -n 60 "$f"
  done
  echo "memcheck: FAILED after $((SECONDS - start)) s"
  exit 1
fi
echo "memcheck: every unit test clean in $((SECONDS - start)) s"
