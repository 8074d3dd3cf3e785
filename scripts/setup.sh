#!/usr/bin/env bash
# Installs every Debian package the service, its tests and its benchmarks need
# (clang with its fuzzer runtime for the lock-annotation build and the fuzzer),
# then the npm packages of the protocol checks (tests/protocol/package.json)
# into ~/.cache/usb-media-service/openrpc-tools.
# `--bench` adds what bench/run compares the service with (mpd); the tests,
# and so CI, do without it.
# Idempotent: packages already present are skipped; apt-get update runs once,
# and only when something is missing; npm runs only when what it is asked for
# changed.
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build pkg-config git
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev
  gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good
  gstreamer1.0-plugins-ugly gstreamer1.0-libav gstreamer1.0-alsa
  libglib2.0-dev libjsoncpp-dev zlib1g-dev
  libtag1-dev libsqlite3-dev
  libgtest-dev googletest
  python3 python3-mutagen
  libsystemd-dev python3-jsonschema dpkg-dev file
  libfuse3-dev fuse3
  clang libclang-rt-14-dev
)
BENCH_PACKAGES=(mpd)
if [ "${1:-}" = "--bench" ]; then
  PACKAGES+=("${BENCH_PACKAGES[@]}")
fi

missing=()
for pkg in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$pkg")
  fi
done

# node and npm may come from Debian (nodejs, npm) or from elsewhere (NodeSource's
# nodejs bundles npm and conflicts with Debian's npm package): ask for the
# commands, not the packages.
if ! command -v node >/dev/null || ! command -v npm >/dev/null; then
  missing+=(nodejs npm)
fi

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#PACKAGES[@]} packages present"
else
  SUDO=""
  if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
  echo "setup: installing ${missing[*]}"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# The OpenRPC validator for protocol_openrpc_valid: the version package.json
# names, and its dependencies as the registry had them on the date below, so
# every machine resolves the same tree. Kept out of the source tree so that a
# build directory or a fresh clone needs nothing but this cache; reinstalled
# only when package.json or the date changes.
openrpc_registry_date=2026-11-20
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
tools=${USBMEDIA_OPENRPC_TOOLS:-${XDG_CACHE_HOME:-$HOME/.cache}/usb-media-service/openrpc-tools}
wanted="$(cat "$here/tests/protocol/package.json") $openrpc_registry_date"
if [ -d "$tools/node_modules" ] && [ "$(cat "$tools/installed-for" 2>/dev/null)" = "$wanted" ]; then
  echo "setup: OpenRPC validator present in $tools"
else
  echo "setup: installing the OpenRPC validator into $tools"
  rm -rf "$tools.new"
  mkdir -p "$tools.new"
  cp "$here/tests/protocol/package.json" "$tools.new/"
  (cd "$tools.new" && npm install --before="$openrpc_registry_date" --no-package-lock --ignore-scripts \
     --no-audit --no-fund --loglevel=error)
  printf '%s' "$wanted" > "$tools.new/installed-for"
  rm -rf "$tools"
  mv "$tools.new" "$tools"
fi
