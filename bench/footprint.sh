#!/usr/bin/env bash
# Footprint rows for bench/run: stripped sizes of the daemon and the client
# on armhf and x86-64, the daemon's idle resident memory natively and under
# qemu-arm, and the CPU of a minute of MP3 playback under qemu-arm beside
# gst-launch-1.0's (the target's own, under the same emulator), and guest
# instructions per second of MP3 playback counted by a qemu plugin
# (bench/qemu-insn-count.c) where qemu-arm loads plugins.
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
  mkdir -p "$work/root"
  rm -f "$work/port"
  USBMEDIA_ROOT=$work/root USBMEDIA_AUDIO_SINK="fakesink sync=true" \
    python3 scripts/with-listener.py "$work/port" "$@" >/dev/null 2>&1 &
  pid=$!
  until [ -s "$work/port" ]; do sleep 0.05; done
  port=$(cat "$work/port")
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
playback=$(USBMEDIA_TEST_DAEMON=$PWD/$armhf/usb-media-service USBMEDIA_TEST_EMULATOR="$(IFS='|'; echo "${emulator[*]}")" \
  "$native/bench/playback_bench" --cpu-only --seconds "$seconds" --label "armhf (qemu-arm)" \
  --gst-launch "$sysroot/usr/bin/gst-launch-1.0")
echo "$playback" | grep -vE '^\| ' >&2
echo "$playback" | grep -E '^\| '

# Guest instructions per second of MP3 playback, counted by a qemu plugin:
# the daemon (serving, one client watching, playing the file to its end)
# against the target's gst-launch-1.0 playing it through decodebin (its
# default choice, then with mpg123audiodec pinned).
insn_seconds=20
plugin=$work/libqemu-insn-count.so
cc -O2 -shared -fPIC -o "$plugin" bench/qemu-insn-count.c 2>/dev/null &&
  { QEMU_PLUGIN="file=$plugin,dir=$work" "${emulator[@]}" "$armhf/usb-media-ctl" --help >/dev/null 2>&1 || true; }
if ! ls "$work"/insns.* >/dev/null 2>&1; then
  echo "footprint: no guest instruction counts (qemu-arm did not load the plugin)" >&2
  exit 0
fi
rm -f "$work"/insns.*
echo "=== guest instructions under qemu-arm ($insn_seconds s of MP3)" >&2
mkdir -p "$work/root/mnt/usb-stick1/Bench"
mp3=$work/root/mnt/usb-stick1/Bench/tone.mp3
gst-launch-1.0 -q audiotestsrc num-buffers=$(( insn_seconds * 44100 / 1024 )) ! audioconvert ! lamemp3enc \
  ! filesink location="$mp3"

count_of() {  # DIRECTORY: the count of the one program run with it
  cat "$1"/insns.* 2>/dev/null | head -n1
}
reference_insns() {  # DIRECTORY [ENVIRONMENT...]
  local dir=$1; shift
  mkdir -p "$dir"
  env "$@" QEMU_PLUGIN="file=$plugin,dir=$dir" "${emulator[@]}" "$sysroot/usr/bin/gst-launch-1.0" -q \
    filesrc location="$mp3" ! decodebin ! audioconvert ! fakesink sync=true
  count_of "$dir"
}
ref_default=$(reference_insns "$work/ref-default")
ref_mpg123=$(reference_insns "$work/ref-mpg123" GST_PLUGIN_FEATURE_RANK=mpg123audiodec:MAX)

mkdir -p "$work/daemon"
rm -f "$work/port"
USBMEDIA_ROOT=$work/root USBMEDIA_AUDIO_SINK="fakesink sync=true" QEMU_PLUGIN="file=$plugin,dir=$work/daemon" \
  python3 scripts/with-listener.py "$work/port" "${emulator[@]}" "$armhf/usb-media-service" >/dev/null 2>&1 &
pid=$!
until [ -s "$work/port" ]; do sleep 0.05; done
port=$(cat "$work/port")
ctl() { USBMEDIA_PORT=$port "$native/usb-media-ctl" "$@"; }
for _ in $(seq 300); do ctl status >/dev/null 2>&1 && break; sleep 0.1; done
ctl watch --json > "$work/watch.log" 2>&1 &
watch=$!
sleep 0.5
USBMEDIA_ROOT=$work/root ctl play /mnt/usb-stick1/Bench >/dev/null
for _ in $(seq $(( insn_seconds * 10 + 300 ))); do
  grep -q endOfPlayListNotification "$work/watch.log" && break
  sleep 0.1
done
kill -TERM "$pid"; wait "$pid" || true; pid=""
kill "$watch" 2>/dev/null || true  # it may have left with the daemon
wait "$watch" 2>/dev/null || true
daemon_insns=$(count_of "$work/daemon")

per_second() { awk -v n="$1" -v s="$insn_seconds" 'BEGIN { printf "%.1f M/s", n / s / 1e6 }'; }
row "armhf guest instructions per s of MP3" "$(per_second "$daemon_insns")" \
  "gst-launch $(per_second "$ref_default")" "$(ratio "$daemon_insns" "$ref_default")" "<= 0.6"
row "armhf gst-launch, mpg123audiodec pinned" "$(per_second "$ref_mpg123")" \
  "default $(per_second "$ref_default")" "$(ratio "$ref_mpg123" "$ref_default")" "-"
