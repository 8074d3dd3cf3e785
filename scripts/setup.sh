#!/usr/bin/env bash
# Installs every Debian package the service, its tests and its benchmarks need.
# Idempotent: packages already present are skipped; apt-get update runs once,
# and only when something is missing.
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build pkg-config git
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev
  gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good
  gstreamer1.0-plugins-ugly gstreamer1.0-libav gstreamer1.0-alsa
  libglib2.0-dev libjsoncpp-dev zlib1g-dev
  libgtest-dev googletest
  python3 python3-mutagen
  libsystemd-dev python3-jsonschema dpkg-dev file
  libfuse3-dev fuse3
)

missing=()
for pkg in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$pkg")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#PACKAGES[@]} packages present"
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
echo "setup: installing ${missing[*]}"
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
