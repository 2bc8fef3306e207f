#!/usr/bin/env bash
# Installs what is missing, builds, and runs the main job.
set -euo pipefail
cd "$(dirname "$0")/.."
TIFFGATE_WITH_OCTAVE=${TIFFGATE_WITH_OCTAVE:-0} scripts/install-deps.sh
scripts/build.sh build -DTIFFGATE_TESTS=OFF
build/shell/tiffgate "$@"
