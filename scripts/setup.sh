#!/usr/bin/env bash
# Installs every Debian 12 package that building, testing and running Quovara needs.
# Safe to run again: when everything is present it only checks and returns.
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build ccache pkg-config clang-format
  qtbase5-dev qtbase5-dev-tools libqt5opengl5-dev libqt5sql5-sqlite
  libopencv-dev libeigen3-dev
  libopenmesh-dev
  libexiv2-dev
  libgl1-mesa-dev libglu1-mesa-dev libosmesa6-dev libgl1-mesa-dri
  xvfb xauth
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  clang libclang-rt-14-dev
  assimp-testmodels assimp-utils libassimp-dev libtinyobjloader-dev
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
