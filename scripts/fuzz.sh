#!/usr/bin/env bash
# fuzz.sh [SECONDS]: builds the fuzz targets (build-fuzz/, clang, address and
# undefined-behaviour sanitizers) and runs both at once for SECONDS each
# (default 60). A crash, sanitizer report, leak, timeout, memory blow-up or
# broken invariant fails the run; the input behind it is left in
# build-fuzz/findings/, ready to replay with build-fuzz/fuzz/fuzz_<target> FILE.
# Inputs that reached new code stay in build-fuzz/corpus/ for the next run.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
corpus=${TIFFGATE_CORPUS:-$PWD/../shared/corpus}
dir=build-fuzz

cmake -S . -B "$dir" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DTIFFGATE_FUZZ=ON \
  -DTIFFGATE_TESTS=OFF -DTIFFGATE_BENCH=OFF -DTIFFGATE_WERROR=ON >/dev/null
cmake --build "$dir" -j2 --target fuzz_file fuzz_commands make_command_seeds

# Seeds: every corpus file, malformed ones included, and the seed programs.
mkdir -p "$dir"/seeds/file "$dir"/seeds/commands "$dir"/corpus/file "$dir"/corpus/commands "$dir"/findings
for f in "$corpus"/*.tif "$corpus"/*.tiff; do ln -sf "$f" "$dir/seeds/file/$(basename "$f")"; done
for f in "$corpus"/malformed/*; do ln -sf "$f" "$dir/seeds/file/malformed-$(basename "$f")"; done
"$dir"/fuzz/make_command_seeds "$dir"/seeds/commands

export ASAN_OPTIONS=detect_leaks=1
export UBSAN_OPTIONS=print_stacktrace=1
# One input may take seconds under the sanitizers, never 30; 2 GB is far
# above what the drivers' budget lets one input allocate.
run() {
  local target=$1
  shift
  "$dir/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=30 -rss_limit_mb=2048 \
    -artifact_prefix="$dir/findings/$target-" -print_final_stats=1 "$@" >"$dir/fuzz-$target.log" 2>&1
}
run file "$dir"/corpus/file "$dir"/seeds/file &
file_pid=$!
run commands -max_len=4096 "$dir"/corpus/commands "$dir"/seeds/commands &
commands_pid=$!

status=0
for target in file commands; do
  pid_var=${target}_pid
  if wait "${!pid_var}"; then
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$dir/fuzz-$target.log")
    rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$dir/fuzz-$target.log")
    echo "fuzz_$target: $runs inputs in ${seconds} s ($rate/s), no finding"
  else
    status=1
    echo "fuzz_$target FAILED; log: $dir/fuzz-$target.log"
    grep -E -A25 'ERROR|runtime error|tiffgate fuzz:|Test unit written' "$dir/fuzz-$target.log" | head -60 || true
  fi
done
exit $status
