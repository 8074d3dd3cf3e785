#!/usr/bin/env bash
# Footprint rows for bench/run: stripped sizes of the daemon and the client
# on armhf and x86-64, the daemon's idle resident memory natively and under
# qemu-arm, and the CPU of a minute of MP3 playback under qemu-arm beside
# gst-launch-1.0's (the target's own, under the same emulator).
#
#   bench/footprint.sh NATIVE_BUILD_DIR [PLAYBACK_SECONDS]
# Makes or reuses the armhf sysroot and a Release armhf build in
# build-armhf-release/. Prints "| figure | value | reference | ratio | target |"
# rows on standard output, progress on standard error.
set -euo pipefail
cd "$(dirname "$0")/.."
native=$1
seconds=${2:-30}
sysroot=${USBMEDIA_SYSROOT:-${XDG_CACHE_HOME:-$HOME/.cache}/usb-media-service/sysroot-armhf}
armhf=build-armhf-release
emulator=("$PWD/cmake/qemu-armhf.sh" "$sysroot")

bash scripts/cross-armhf.sh --sysroot-only >&2
cmake -S . -B "$armhf" -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchain-armhf.cmake" -DUSBMEDIA_SYSROOT="$sysroot" \
  -DCMAKE_BUILD_TYPE=Release -DUSBMEDIA_BUILD_TESTS=OFF -DUSBMEDIA_BUILD_BENCH=OFF >/dev/null
cmake --build "$armhf" -j"$(nproc)" --target usb-media-service usb-media-ctl >/dev/null

work=$(mktemp -d)
pid=""
trap '[ -n "$pid" ] && kill -KILL "$pid" 2>/dev/null; rm -rf "$work"' EXIT

row() { printf '| %-44s | %-14s | %-26s | %-12s | %-10s |\n' "$@"; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b > 0) printf "%.2f", a / b; else print "-" }'; }

stripped_kb() {  # STRIP BINARY
  "$1" -o "$work/stripped" "$2"
  echo $(( ($(stat -c %s "$work/stripped") + 512) / 1024 ))
}
for binary in usb-media-service usb-media-ctl; do
  arm=$(stripped_kb arm-linux-gnueabihf-strip "$armhf/$binary")
  x86=$(stripped_kb strip "$native/$binary")
  row "stripped size: $binary armhf" "$arm KB" "x86-64 $x86 KB" "$(ratio "$arm" "$x86")" "-"
done

# Resident memory of an idle daemon: serving, no stick, nothing playing.
idle_rss_kb() {  # [EMULATOR...] DAEMON
  local port
  port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
  mkdir -p "$work/root"
  USBMEDIA_ROOT=$work/root USBMEDIA_PORT=$port USBMEDIA_AUDIO_SINK="fakesink sync=true" "$@" >/dev/null 2>&1 &
  pid=$!
  for _ in $(seq 300); do
    python3 -c "import socket, sys; socket.create_connection(('127.0.0.1', $port), 0.2)" 2>/dev/null && break
    sleep 0.1
  done
  sleep 3
  awk '/^VmRSS:/ { print $2 }' "/proc/$pid/status"
  kill -TERM "$pid"; wait "$pid" || true; pid=""
}
rss_native=$(idle_rss_kb "$native/usb-media-service")
rss_qemu=$(idle_rss_kb "${emulator[@]}" "$armhf/usb-media-service")
row "idle RSS: daemon armhf under qemu-arm" "$rss_qemu KiB" "x86-64 native $rss_native KiB" \
  "$(ratio "$rss_qemu" "$rss_native")" "-"

# A minute of MP3 playback under the emulator: the daemon (mpg123audiodec)
# against the target's gst-launch-1.0 with decodebin's default (avdec_mp3).
echo "=== playback CPU under qemu-arm ($seconds s of MP3)" >&2
USBMEDIA_TEST_DAEMON=$PWD/$armhf/usb-media-service USBMEDIA_TEST_EMULATOR="$(IFS='|'; echo "${emulator[*]}")" \
  "$native/bench/playback_bench" --cpu-only --seconds "$seconds" --label "armhf (qemu-arm)" \
  --gst-launch "$sysroot/usr/bin/gst-launch-1.0" | tee /dev/stderr | grep -E '^\| '
