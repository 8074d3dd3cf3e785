#!/usr/bin/env bash
# Builds the service for the 32-bit ARM head unit (armhf) and runs its test
# suites and a daemon smoke test under qemu-arm.
#
#   scripts/cross-armhf.sh [--build-only | --sysroot-only]
#
# Steps, each skipped when already done:
#   1. host packages: Debian's cross compiler, qemu-user, mmdebstrap (apt);
#   2. a sysroot of Debian 12 armhf packages (USBMEDIA_SYSROOT, by default
#      ~/.cache/usb-media-service/sysroot-armhf), made from the host's own apt
#      source and reused while its stamp matches the package list (a sysroot
#      this script did not make, e.g. a device maker's, is used as it is);
#   3. a build in build-armhf/ with cmake/toolchain-armhf.cmake;
#   4. ctest under emulation: unit and integration suites, then the load
#      tests one at a time, then the smoke test (label "smoke").
# USBMEDIA_ARMHF_LOAD=skip leaves the load tests out (the reason is printed).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

build_only=0 sysroot_only=0
case "${1:-}" in
  --build-only) build_only=1 ;;
  --sysroot-only) sysroot_only=1 ;;
  "") ;;
  *) echo "usage: $0 [--build-only | --sysroot-only]" >&2; exit 2 ;;
esac

jobs=${USBMEDIA_JOBS:-$(nproc)}
sysroot=${USBMEDIA_SYSROOT:-${XDG_CACHE_HOME:-$HOME/.cache}/usb-media-service/sysroot-armhf}
builddir=${USBMEDIA_ARMHF_BUILD:-build-armhf}
suite=bookworm

stage_prefix=armhf
. "$root/scripts/stage-timer.sh"

# --- 1. host packages -------------------------------------------------------
stage "host packages"
HOST_PACKAGES=(g++-arm-linux-gnueabihf qemu-user mmdebstrap)
missing=()
for pkg in "${HOST_PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$pkg")
  fi
done
if [ ${#missing[@]} -gt 0 ]; then
  SUDO=""
  if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
  echo "cross-armhf: installing ${missing[*]}"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# --- 2. sysroot --------------------------------------------------------------
# What the daemon links against and what its tests play media through.
# TagLib and SQLite hold a stick's tag library (usbmedia_tags); TagLib's
# pkg-config file also links zlib.
SYSROOT_PACKAGES=(
  libc6-dev libstdc++-12-dev
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev libglib2.0-dev
  libjsoncpp-dev zlib1g-dev libgtest-dev libsystemd-dev libfuse3-dev
  libtag1-dev libsqlite3-dev
  gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-ugly
  gstreamer1.0-libav gstreamer1.0-alsa gstreamer1.0-tools
)
stamp_text="$suite ${SYSROOT_PACKAGES[*]} fixups-1"

# The first stanza of the host's deb822 apt source, for suite $suite only.
host_source() {
  local file
  for file in /etc/apt/sources.list.d/debian.sources /etc/apt/sources.list.d/*.sources; do
    [ -f "$file" ] || continue
    awk 'BEGIN { RS = ""; ORS = "\n" } NR == 1 { print; exit }' "$file" |
      sed -E "s/^Suites:.*/Suites: $suite/"
    return 0
  done
  echo "cross-armhf: no deb822 apt source in /etc/apt/sources.list.d" >&2
  return 1
}

# The extract variant runs no maintainer scripts; do what they would have.
fix_sysroot() {
  local sysroot=$1 link target
  # Absolute symbolic links point into the host; make them relative.
  while IFS= read -r -d '' link; do
    target=$(readlink "$link")
    case "$target" in
      /*) ln -sfn "$(realpath -m --relative-to="$(dirname "$link")" "$sysroot$target")" "$link" ;;
    esac
  done < <(find "$sysroot" -type l -print0)
  # update-alternatives links (libavcodec needs the BLAS/LAPACK ones).
  local dir=$sysroot/usr/lib/arm-linux-gnueabihf lib impl
  for lib in libblas.so.3 liblapack.so.3; do
    if [ ! -e "$dir/$lib" ]; then
      impl=$(find "$dir" -mindepth 2 -maxdepth 2 -name "$lib" | sort | head -n1)
      [ -n "$impl" ] && ln -sfn "${impl#"$dir"/}" "$dir/$lib"
    fi
  done
  # qemu -L would open the sysroot's /dev/ptmx instead of the host's.
  rm -rf "$sysroot/dev"
}

stage "sysroot"
if [ -f "$sysroot/.usbmedia-stamp" ] && [ "$(cat "$sysroot/.usbmedia-stamp")" = "$stamp_text" ]; then
  echo "cross-armhf: reusing $sysroot"
elif [ ! -f "$sysroot/.usbmedia-stamp" ] && [ -n "$(ls -A "$sysroot" 2>/dev/null)" ]; then
  echo "cross-armhf: using $sysroot as it is (not made here)"
else
  # Made aside and moved into place once complete: an interrupted run
  # leaves nothing that looks reusable.
  echo "cross-armhf: making $sysroot"
  mkdir -p "$(dirname "$sysroot")"
  rm -rf "$sysroot.new"
  include=$(IFS=,; echo "${SYSROOT_PACKAGES[*]}")
  host_source | mmdebstrap --quiet --variant=extract --architectures=armhf \
    --include="$include" "$suite" "$sysroot.new" -
  fix_sysroot "$sysroot.new"
  echo "$stamp_text" > "$sysroot.new/.usbmedia-stamp"
  rm -rf "$sysroot"
  mv "$sysroot.new" "$sysroot"
fi

if [ $sysroot_only -eq 1 ]; then
  stage ""
  exit 0
fi

# --- 3. build ---------------------------------------------------------------
stage "build"
cmake -S . -B "$builddir" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-armhf.cmake" \
  -DUSBMEDIA_SYSROOT="$sysroot" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DUSBMEDIA_BUILD_BENCH=OFF >/dev/null
cmake --build "$builddir" -j"$jobs"
if [ $build_only -eq 1 ]; then
  stage ""
  exit 0
fi

# --- 4. tests under emulation ----------------------------------------------
status=0
cd "$builddir"
stage "unit and integration tests under qemu-arm"
# Most integration tests wait on real-time playback, so more tests than
# cores run at once, as in the host build.
bash "$root/scripts/run-ctest.sh" . -j"$(( jobs * 2 ))" --output-on-failure --timeout 600 -LE 'load|smoke' || status=1

stage "load tests under qemu-arm, one at a time"
if [ "${USBMEDIA_ARMHF_LOAD:-run}" = skip ]; then
  echo "cross-armhf: load tests skipped (USBMEDIA_ARMHF_LOAD=skip): their deadlines measure"
  echo "  the emulator sharing the cores with other tests, not the target; run them alone"
else
  # Run beside other tests under emulation a deadline can be missed.
  bash "$root/scripts/run-ctest.sh" . -j1 --output-on-failure --timeout 600 -L load || status=1
fi

stage "daemon smoke test under qemu-arm"
smoke_log=$(mktemp)
if ctest --output-on-failure --timeout 180 -L smoke -V > "$smoke_log" 2>&1; then
  grep -E '^[0-9]+: smoke:' "$smoke_log" | sed -E 's/^[0-9]+: //'
else
  cat "$smoke_log"
  status=1
fi
rm -f "$smoke_log"
stage ""
[ $status -eq 0 ] && echo "=== armhf: all passed" || echo "=== armhf: FAILED"
exit $status
