#!/usr/bin/env bash
# Installs the Debian packages the project needs, only those missing.
# Safe to run again: an installed system is left alone.
set -euo pipefail

packages=(
  build-essential cmake pkg-config
  libtiff-dev libtiff-tools libboost-dev
  libgtest-dev libbenchmark-dev
  libreadline-dev
  clang libclang-rt-14-dev
  valgrind
  python3-tifffile python3-numpy
)
if [ "${TIFFGATE_WITH_OCTAVE:-1}" = 1 ]; then
  packages+=(octave liboctave-dev)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}"
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO=sudo
$SUDO apt-get update -q
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
