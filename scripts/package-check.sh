#!/usr/bin/env bash
# Builds the Debian package from a build directory (default: build, the normal
# test build, reused), checks its file list and dependencies, installs it with
# apt-get, checks the user and art folder it makes and the unit's exposure
# (systemd-analyze security, at most 2.5), runs the installed daemon as the
# unit does (systemd-run where systemd is PID 1, else setpriv as usbmedia
# without capabilities) on a fake stick: it answers "ping", plays a WAV, has
# no capability; checks that systemd accepts the units, then purges it.
# Usage: scripts/package-check.sh [BUILD_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."

dir=${1:-build}
SUDO=$([ "$(id -u)" -eq 0 ] || echo sudo)

echo "=== package: build"
if [ ! -f "$dir/CMakeCache.txt" ]; then
  cmake -S . -B "$dir" -DUSBMEDIA_BUILD_BENCH=OFF >/dev/null
fi
cmake --build "$dir" -j"$(nproc)" --target usb-media-service usb-media-ctl >/dev/null
rm -f "$dir"/usb-media-service_*.deb
(cd "$dir" && cpack -G DEB >/dev/null)
deb=$(ls "$dir"/usb-media-service_*.deb)
echo "built $deb"

fail() { echo "package: $*" >&2; exit 1; }

echo "=== package: contents"
contents=$(dpkg-deb -c "$deb")
echo "$contents"
for file in ./usr/bin/usb-media-service ./usr/bin/usb-media-ctl \
            ./lib/systemd/system/usb-media-service.service ./lib/udev/rules.d/90-usb-media-service.rules \
            ./lib/systemd/system/usb-media-stick@.service ./lib/systemd/system/usb-media-stick-unsupported@.service \
            ./usr/share/usb-media-service/openrpc.json ./usr/share/doc/usb-media-service/README.md \
            ./usr/share/doc/usb-media-service/openrpc.json \
            ./usr/share/doc/usb-media-service/mnt-usb-stick1.mount.example \
            ./usr/lib/tmpfiles.d/usb-media-service.conf; do
  grep -q " $file\$" <<<"$contents" || fail "$file missing from the package"
done
depends=$(dpkg-deb -f "$deb" Depends)
echo "Depends: $depends"
# Computed by dpkg-shlibdeps from the binaries, not written by hand.
for library in libgstreamer1.0-0 libjsoncpp libsystemd0 libc6; do
  grep -q "$library" <<<"$depends" || fail "Depends lacks $library"
done
grep -qw adduser <<<"$depends" || fail "Depends lacks adduser (the postinst makes the user with it)"
# The stick's tag library (TagLib, SQLite), for as long as a binary links it.
unpacked=$(mktemp -d /tmp/usb-media-deb-XXXXXX)
dpkg-deb -x "$deb" "$unpacked"
needed=$(for binary in "$unpacked"/usr/bin/*; do readelf -d "$binary"; done | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
rm -rf "$unpacked"
for pair in "libtag.so.1 libtag1v5" "libsqlite3.so.0 libsqlite3-0"; do
  read -r soname package <<<"$pair"
  grep -qxF "$soname" <<<"$needed" || continue
  grep -qw "$package" <<<"$depends" || fail "Depends lacks $package (the binaries link $soname)"
  echo "$soname: $package"
done

echo "=== package: install"
# A copy outside the build tree: apt's sandbox user must be able to read it.
staged=$(mktemp -d /tmp/usb-media-package-XXXXXX)
chmod 755 "$staged"
cp "$deb" "$staged/"
chmod 644 "$staged"/*.deb
daemon_pid=""
check_unit=""
root=""
# The package's postinst makes /home/root/art_dump; a purge takes back the
# folder, and this check the parent it made on this machine.
home_root_existed=$([ -d /home/root ] && echo yes || echo no)
cleanup() {
  if [ -n "$check_unit" ]; then $SUDO systemctl stop "$check_unit" 2>/dev/null || true; fi
  if [ -n "$daemon_pid" ]; then $SUDO kill "$daemon_pid" 2>/dev/null || true; wait 2>/dev/null || true; fi
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get purge -y -qq usb-media-service >/dev/null 2>&1 || true
  if [ "$home_root_existed" = no ]; then $SUDO rmdir /home/root 2>/dev/null || true; fi
  if [ -n "$root" ]; then $SUDO rm -rf "$root"; fi
  rm -rf "$staged"
}
trap cleanup EXIT
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "$staged/$(basename "$deb")" >/dev/null
dpkg-query -W -f='${Status} ${Version}\n' usb-media-service

unit=/lib/systemd/system/usb-media-service.service
echo "=== package: the service's user and art folder"
getent passwd usbmedia || fail "the package made no user usbmedia"
groups=$(id -nG usbmedia)
echo "usbmedia is in: $groups"
for group in usbmedia audio; do
  grep -qw "$group" <<<"$groups" || fail "usbmedia is not in the group $group"
done
art=$(stat -c '%a %U %G' /home/root/art_dump) || fail "the package made no art folder"
echo "/home/root/art_dump: $art"
[ "$art" = "770 usbmedia usbmedia" ] || fail "art folder is $art, not 770 usbmedia usbmedia"

echo "=== package: the unit's exposure (systemd-analyze security)"
if systemd-analyze security --help 2>/dev/null | grep -q -- --offline; then
  security=$(systemd-analyze security --offline=yes --no-pager "$unit" 2>&1) ||
    { echo "$security"; fail "systemd-analyze security failed"; }
  echo "$security"
  score=$(sed -n 's/.*Overall exposure level for [^:]*: \([0-9.]*\) .*/\1/p' <<<"$security")
  [ -n "$score" ] || fail "no exposure level in systemd-analyze's report"
  awk -v s="$score" 'BEGIN { exit !(s <= 2.5) }' || fail "exposure $score is above 2.5"
  echo "exposure $score: at most 2.5"
else
  echo "systemd-analyze here has no --offline: exposure not measured"
fi

echo "=== package: the installed service plays as its user"
port=$(/usr/bin/python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
# A fake device under /run: the unit's PrivateTmp= would hide one under /tmp.
root=$($SUDO mktemp -d /run/usb-media-check-XXXXXX)
$SUDO chmod 755 "$root"
$SUDO mkdir -p "$root/mnt/usb-stick1" "$root/home/root/art_dump" "$root/cache/usb-media-service"
# What tmpfiles.d and CacheDirectory= make on a device.
$SUDO chown usbmedia:usbmedia "$root/home/root/art_dump" "$root/cache/usb-media-service"
$SUDO chmod 770 "$root/home/root/art_dump"
$SUDO chmod 700 "$root/cache/usb-media-service"
/usr/bin/python3 - "$staged/Tone.wav" <<'PY'
import math, struct, sys, wave
with wave.open(sys.argv[1], "wb") as out:  # 3 s of 440 Hz, 16-bit stereo
    out.setnchannels(2); out.setsampwidth(2); out.setframerate(44100)
    out.writeframes(b"".join(struct.pack("<hh", v, v) for v in
                             (int(8000 * math.sin(2 * math.pi * 440 * i / 44100)) for i in range(3 * 44100))))
PY
$SUDO cp "$staged/Tone.wav" "$root/mnt/usb-stick1/Tone.wav"
$SUDO chmod 644 "$root/mnt/usb-stick1/Tone.wav"
sink="fakesink sync=true"
if [ "$(ps -p 1 -o comm=)" = systemd ]; then
  # The unit's own [Service] lines, as a transient unit on the fake device.
  check_unit=usb-media-check-$$.service
  properties=()
  while IFS= read -r line; do
    properties+=("--property=${line//%C//var/cache}")
  done < <(sed -n '/^\[Service\]/,/^\[/p' "$unit" | grep -E '^[A-Za-z]+=' |
           grep -vE '^(ExecStart|Restart|RestartSec|WatchdogSec)=')
  $SUDO systemd-run --quiet --unit="$check_unit" "${properties[@]}" \
    --property=ReadWritePaths="$root/home/root/art_dump" \
    --setenv=USBMEDIA_PORT="$port" --setenv=USBMEDIA_ROOT="$root" --setenv=USBMEDIA_AUDIO_SINK="$sink" \
    /usr/bin/usb-media-service || fail "systemd-run could not start the service"
  daemon_pid=$(systemctl show -P MainPID "$check_unit")
else
  # No systemd to run the unit: its user, groups, capabilities, umask and
  # environment by hand (systemd gives a service a clean environment).
  environment=()
  while IFS= read -r line; do
    environment+=("${line//%C/$root/cache}")
  done < <(sed -n 's/^Environment=//p' "$unit")
  umask=$(sed -n 's/^UMask=//p' "$unit")
  $SUDO sh -c 'umask "$0"; exec "$@"' "$umask" \
    setpriv --reuid=usbmedia --regid=usbmedia --init-groups --inh-caps=-all --bounding-set=-all --no-new-privs \
    env -i PATH=/usr/local/bin:/usr/bin:/bin HOME=/nonexistent USER=usbmedia LOGNAME=usbmedia "${environment[@]}" \
    USBMEDIA_PORT="$port" USBMEDIA_ROOT="$root" USBMEDIA_AUDIO_SINK="$sink" \
    /usr/bin/usb-media-service >"$staged/service.log" 2>&1 &
  launcher_pid=$!
  daemon_pid=$launcher_pid
  if [ -n "$SUDO" ]; then  # $! is sudo's: the service is the newest of its user's
    for _ in $(seq 1 100); do
      daemon_pid=$(pgrep -n -u usbmedia -f '^/usr/bin/usb-media-service$') && break
      sleep 0.1
    done
  fi
fi
service_log() {
  if [ -n "$check_unit" ]; then journalctl --no-pager -o cat -u "$check_unit" | tail -n 40; else cat "$staged/service.log"; fi
}
alive() { $SUDO kill -0 "$daemon_pid" 2>/dev/null; }
# Retries while the service binds; each try is one connection attempt.
reply=""
for _ in $(seq 1 300); do
  if reply=$(/usr/bin/usb-media-ctl --port "$port" --json call ping 2>/dev/null); then break; fi
  alive || { service_log; fail "the installed service exited"; }
  sleep 0.1
done
echo "ping -> $reply"
[ "$reply" = '{"id":1,"jsonrpc":"2.0","result":true}' ] || { service_log; fail "no ping reply"; }

# The service plays only while a client is connected: the watcher stays.
/usr/bin/usb-media-ctl --port "$port" --json watch >"$staged/watch.log" 2>"$staged/watch.err" &
watch_pid=$!
for _ in $(seq 1 300); do
  grep -q '^watching' "$staged/watch.err" && break
  kill -0 "$watch_pid" 2>/dev/null || { cat "$staged/watch.err"; fail "the watching client ended"; }
  sleep 0.1
done
USBMEDIA_ROOT=$root /usr/bin/usb-media-ctl --port "$port" play /mnt/usb-stick1/Tone.wav ||
  { service_log; fail "play refused"; }
# A second or more of the track played: the pipeline runs in real time (a
# busy machine may report 0 then 2).
for _ in $(seq 1 600); do
  grep -qE '"trackTime":[1-9]' "$staged/watch.log" && break
  alive || { service_log; fail "the service exited while playing"; }
  sleep 0.1
done
grep -qE '"trackTime":[1-9]' "$staged/watch.log" || { cat "$staged/watch.log"; service_log; fail "the WAV did not play"; }
echo "played: $(grep -c trackTimeNotification "$staged/watch.log") trackTimeNotification(s)"

status=$($SUDO cat "/proc/$daemon_pid/status")
grep -E '^(Umask|Uid|Gid|Groups|CapInh|CapPrm|CapEff|CapBnd|CapAmb|NoNewPrivs):' <<<"$status"
uid=$(id -u usbmedia)
grep -qE "^Uid:\s+$uid\s+$uid\s+$uid\s+$uid\s*\$" <<<"$status" || fail "the service does not run as usbmedia ($uid)"
grep -qE '^CapEff:\s+0000000000000000$' <<<"$status" || fail "the service has effective capabilities"
# Art files readable by the group usbmedia (the HMI), by no other user.
grep -qE '^Umask:\s+0027$' <<<"$status" || fail "the service's umask is not 0027"
grep -qE "^Groups:.*\\b$(getent group audio | cut -d: -f3)\\b" <<<"$status" || fail "the service is not in the group audio"
kill "$watch_pid" 2>/dev/null; wait "$watch_pid" 2>/dev/null || true

if [ -n "$check_unit" ]; then
  $SUDO systemctl stop "$check_unit"
  result=$(systemctl show -P Result "$check_unit" 2>/dev/null || echo success)
  $SUDO systemctl reset-failed "$check_unit" 2>/dev/null || true
  [ "$result" = success ] || fail "the service did not stop cleanly: $result"
else
  $SUDO kill "$daemon_pid"; wait "$launcher_pid" || fail "the service did not exit cleanly on SIGTERM"
fi
daemon_pid=""
check_unit=""

if command -v systemd-analyze >/dev/null; then
  echo "=== package: systemd-analyze verify"
  systemd-analyze verify /lib/systemd/system/usb-media-service.service || fail "systemd-analyze rejects the unit"
  # The stick units as the rule starts them, for port 1, beside the example
  # mount unit they bind to.
  units=$(mktemp -d /tmp/usb-media-units-XXXXXX)
  cp /usr/share/doc/usb-media-service/mnt-usb-stick1.mount.example "$units/mnt-usb\x2dstick1.mount"
  for template in usb-media-stick usb-media-stick-unsupported; do
    cp "/lib/systemd/system/$template@.service" "$units/$template@1.service"
  done
  (cd "$units" && SYSTEMD_UNIT_PATH="$units:" systemd-analyze verify "$units"/*) ||
    { rm -rf "$units"; fail "systemd-analyze rejects the stick units"; }
  rm -rf "$units"
fi
echo "=== package: purge"
DEBIAN_FRONTEND=noninteractive $SUDO apt-get purge -y -qq usb-media-service >/dev/null
[ ! -e /home/root/art_dump ] || fail "the purge left /home/root/art_dump"
# Kept, as Debian does with system users: files it owned may outlive the package.
getent passwd usbmedia >/dev/null || fail "the purge removed the user usbmedia"
echo "purged; the user usbmedia stays"
echo "=== package: passed"
