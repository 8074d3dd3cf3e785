#!/usr/bin/env bash
# Sets up, builds, makes a demo stick and runs the service in the foreground
# on it, so a newcomer can talk to it at once (Ctrl-C stops it).
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)" --target usb-media-service usb-media-ctl

export USBMEDIA_ROOT="${USBMEDIA_ROOT:-$PWD/demo/root}"
bash scripts/make-demo-stick.sh "$USBMEDIA_ROOT"

if [ -z "${USBMEDIA_AUDIO_SINK:-}" ] && ! ls /dev/snd/pcm* >/dev/null 2>&1; then
  export USBMEDIA_AUDIO_SINK="fakesink sync=true"
  echo "No sound card found: playing into '$USBMEDIA_AUDIO_SINK' (real time, silent)."
fi
port="${USBMEDIA_PORT:-8885}"
cat <<MSG

Starting the service on 127.0.0.1:$port with USBMEDIA_ROOT=$USBMEDIA_ROOT
In a second terminal, watch what the service pushes (it plays only while a
client is connected, so keep this running):
  build/usb-media-ctl watch
In a third terminal (the client puts \$USBMEDIA_ROOT before /mnt paths):
  export USBMEDIA_ROOT=$USBMEDIA_ROOT
  build/usb-media-ctl index /mnt/usb-stick1      # index the stick
  build/usb-media-ctl ls                          # browse it
  build/usb-media-ctl play-all                    # play from the first folder
  build/usb-media-ctl status                      # what is playing
  build/usb-media-ctl art                         # Welcome.mp3 has a cover image
  build/usb-media-ctl --help                      # every verb
or any method by hand, raw JSON in and out:
  build/usb-media-ctl --json call ping

The service prints a start banner that ends with "USB Service Ended.": that
line closes the start-up report (with the start-up time above it); the
service keeps running until Ctrl-C.

MSG
exec build/usb-media-service "$@"
