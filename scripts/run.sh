#!/usr/bin/env bash
# Installs what is missing, builds, and runs the main job: the tiffgate
# shell writes a demonstration TIFF file with a small script, summarises it
# with "tiffgate info", and reads it back in a short script session. The
# file stays in build/demo/. With arguments, runs tiffgate with them instead.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
TIFFGATE_WITH_OCTAVE=${TIFFGATE_WITH_OCTAVE:-0} scripts/install-deps.sh
# The same build tree as the tests, but only the shell is built here.
scripts/build.sh build --target tiffgate
tiffgate=$root/build/shell/tiffgate
if [ $# -gt 0 ]; then
  exec "$tiffgate" "$@"
fi

mkdir -p build/demo
cd build/demo
rm -f demo.tif
echo "== tiffgate scripts/demo/write.tg: writing demo.tif through the gateway"
"$tiffgate" "$root/scripts/demo/write.tg"
echo
echo "== tiffgate info demo.tif"
"$tiffgate" info demo.tif
echo
echo "== tiffgate scripts/demo/session.tg: reading it back"
"$tiffgate" "$root/scripts/demo/session.tg"
