#!/usr/bin/env bash
# Daemon smoke test: the real daemon plays an MP3, a WMA and a WAV file from a
# stick folder, driven by the real client; the client's "watch --json" must
# show each track with one trackTimeNotification a second, and the daemon must
# exit with status 0 on SIGTERM.
#
#   daemon-smoke.sh DAEMON CLIENT [EMULATOR...]
# With an emulator command line (cross builds) both programs run through it.
set -euo pipefail
daemon=$1 client=$2
shift 2
emulator=("$@")

work=$(mktemp -d /tmp/usbmedia-smoke-XXXXXX)
daemon_pid="" watch_pid=""
cleanup() {
  [ -n "$watch_pid" ] && kill "$watch_pid" 2>/dev/null || true
  [ -n "$daemon_pid" ] && kill -KILL "$daemon_pid" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "smoke: FAILED: $*" >&2; [ -f "$work/daemon.log" ] && tail -n 30 "$work/daemon.log" >&2; exit 1; }

# Test media, made by the host's gst-launch-1.0 (never with the emulator's
# GStreamer variables). Each file has its own length, which tells the tracks
# apart in the notifications: 4 s of MP3, 5 s of WMA, 6 s of WAV.
stick=$work/root/mnt/usb-stick1
mkdir -p "$stick/Smoke"
make_media() {
  local file=$1 seconds=$2; shift 2
  env -u GST_PLUGIN_SYSTEM_PATH -u GST_REGISTRY_FORK -u USBMEDIA_GUEST_ENV \
    gst-launch-1.0 -q audiotestsrc num-buffers=$(( seconds * 44100 / 1024 + 1 )) ! audioconvert ! "$@" \
    ! filesink location="$stick/Smoke/$file" || fail "cannot make $file"
}
make_media 1-tone.mp3 4 lamemp3enc
make_media 2-tone.wma 5 avenc_wmav2 ! avmux_asf
make_media 3-tone.wav 6 wavenc

export USBMEDIA_ROOT=$work/root USBMEDIA_AUDIO_SINK="fakesink sync=true"
start=$SECONDS
# It serves on a socket made for it, so no other test's daemon can hold its port.
python3 "$(dirname "$0")/../../scripts/with-listener.py" "$work/port" "${emulator[@]}" "$daemon" \
  > "$work/daemon.log" 2>&1 &
daemon_pid=$!
until [ -s "$work/port" ]; do
  kill -0 "$daemon_pid" 2>/dev/null || fail "daemon exited at start"
  sleep 0.05
done
export USBMEDIA_PORT=$(cat "$work/port")

ctl() { "${emulator[@]}" "$client" "$@"; }
for _ in $(seq 150); do
  ctl status >/dev/null 2>&1 && break
  kill -0 "$daemon_pid" 2>/dev/null || fail "daemon exited at start"
  sleep 0.2
done
ctl status >/dev/null || fail "daemon not serving after 30 s"
echo "smoke: daemon serving after $(( SECONDS - start )) s"

# Every line the client prints, with the time it arrived.
ctl watch --json | while IFS= read -r line; do printf '%s %s\n' "$(date +%s.%N)" "$line"; done > "$work/watch.log" &
watch_pid=$!
sleep 1
ctl play /mnt/usb-stick1/Smoke >/dev/null || fail "play failed"

# Until the end of the playlist (or a generous limit).
deadline=$(( SECONDS + 60 ))
until grep -q endOfPlayListNotification "$work/watch.log"; do
  [ $SECONDS -lt $deadline ] || break
  sleep 0.5
done

kill -TERM "$daemon_pid"
status=0
wait "$daemon_pid" || status=$?
daemon_pid=""
sleep 0.5
kill "$watch_pid" 2>/dev/null || true
wait "$watch_pid" 2>/dev/null || true
watch_pid=""
[ $status -eq 0 ] || fail "daemon exited with $status on SIGTERM"

python3 - "$work/watch.log" <<'PY' || fail "notifications"
import json, statistics, sys
# The trackTimeNotification of each track in play order: a track begins where
# trackTime goes back. (An MP3's duration may read 0 until it is known.)
tracks = []
ended = False
for raw in open(sys.argv[1]):
    stamp, _, text = raw.partition(" ")
    try:
        message = json.loads(text)
    except ValueError:
        continue
    method, params = message.get("method"), message.get("params", {})
    if method == "trackTimeNotification":
        if not tracks or params["trackTime"] <= tracks[-1][-1][1]:
            tracks.append([])
        tracks[-1].append((float(stamp), params["trackTime"], params["trackDuration"]))
    ended = ended or method == "endOfPlayListNotification"
ok = ended and len(tracks) == 3
print(f"smoke: {len(tracks)} tracks played, end of playlist {'reported' if ended else 'MISSING'}")
for index, (name, seconds) in enumerate((("1-tone.mp3", 4), ("2-tone.wma", 5), ("3-tone.wav", 6))):
    seen = tracks[index] if index < len(tracks) else []
    values = [t for _, t, _ in seen]
    durations = sorted({d for _, _, d in seen})
    gaps = [b[0] - a[0] for a, b in zip(seen, seen[1:])]
    median = statistics.median(gaps) if gaps else 0.0
    good = bool(seen) and (seconds - 2 <= len(seen) <= seconds + 1
                           and values == list(range(values[0], values[0] + len(values)))
                           and durations[-1] == seconds and 0.75 <= median <= 1.25)
    print(f"smoke: {name} ({seconds} s): {len(seen)} trackTimeNotification, trackTime {values}, "
          f"trackDuration {durations}, median interval {median:.2f} s: {'ok' if good else 'WRONG'}")
    ok = ok and good
sys.exit(0 if ok else 1)
PY
echo "smoke: passed in $(( SECONDS - start )) s (daemon exit status 0 on SIGTERM)"
