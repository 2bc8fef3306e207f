#!/usr/bin/env bash
# build.sh DIR [cmake options...]: configures and builds into DIR.
set -euo pipefail
cd "$(dirname "$0")/.."
dir=$1; shift
cmake -S . -B "$dir" -DTIFFGATE_WERROR=ON "$@" >/dev/null
cmake --build "$dir" -j"$(nproc)"
