#!/usr/bin/env bash
# build.sh DIR [cmake options...] [--target NAME]: configures and builds into
# DIR (everything, or the one target named).
set -euo pipefail
cd "$(dirname "$0")/.."
dir=$1; shift
options=(); target=()
while [ $# -gt 0 ]; do
  case $1 in
    --target) target=(--target "$2"); shift 2 ;;
    *) options+=("$1"); shift ;;
  esac
done
cmake -S . -B "$dir" -DTIFFGATE_WERROR=ON "${options[@]}" >/dev/null
cmake --build "$dir" -j"$(nproc)" "${target[@]}"
