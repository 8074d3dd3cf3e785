#!/usr/bin/env bash
# Builds the Debian package from a build directory (default: build, the normal
# test build, reused), checks its file list and dependencies, installs it with
# apt-get, checks that the installed daemon answers "ping" on a free port and
# that systemd accepts the unit, then removes the package again.
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
            ./usr/share/doc/usb-media-service/mnt-usb-stick1.mount.example; do
  grep -q " $file\$" <<<"$contents" || fail "$file missing from the package"
done
depends=$(dpkg-deb -f "$deb" Depends)
echo "Depends: $depends"
# Computed by dpkg-shlibdeps from the binaries, not written by hand.
for library in libgstreamer1.0-0 libjsoncpp libsystemd0 libc6; do
  grep -q "$library" <<<"$depends" || fail "Depends lacks $library"
done

echo "=== package: install"
# A copy outside the build tree: apt's sandbox user must be able to read it.
staged=$(mktemp -d /tmp/usb-media-package-XXXXXX)
chmod 755 "$staged"
cp "$deb" "$staged/"
chmod 644 "$staged"/*.deb
daemon_pid=""
cleanup() {
  if [ -n "$daemon_pid" ]; then kill "$daemon_pid" 2>/dev/null || true; wait "$daemon_pid" 2>/dev/null || true; fi
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get purge -y -qq usb-media-service >/dev/null 2>&1 || true
  rm -rf "$staged"
}
trap cleanup EXIT
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "$staged/$(basename "$deb")" >/dev/null
dpkg-query -W -f='${Status} ${Version}\n' usb-media-service

echo "=== package: the installed service answers"
root=$staged/root
mkdir -p "$root/mnt/usb-stick1" "$root/home/root"
# On a socket made for it, as systemd's socket activation would hand it over.
USBMEDIA_ROOT=$root USBMEDIA_AUDIO_SINK="fakesink sync=true" \
  /usr/bin/python3 scripts/with-listener.py "$staged/port" /usr/bin/usb-media-service >"$staged/service.log" 2>&1 &
daemon_pid=$!
until [ -s "$staged/port" ]; do
  kill -0 "$daemon_pid" 2>/dev/null || { cat "$staged/service.log"; fail "the installed service exited"; }
  sleep 0.05
done
port=$(cat "$staged/port")
# Retries until the service answers; each try is one connection attempt.
reply=""
for _ in $(seq 1 300); do
  if reply=$(/usr/bin/usb-media-ctl --port "$port" --json call ping 2>/dev/null); then break; fi
  kill -0 "$daemon_pid" 2>/dev/null || { cat "$staged/service.log"; fail "the installed service exited"; }
  sleep 0.1
done
echo "ping -> $reply"
[ "$reply" = '{"id":1,"jsonrpc":"2.0","result":true}' ] || { cat "$staged/service.log"; fail "no ping reply"; }
kill "$daemon_pid"; wait "$daemon_pid" || fail "the service did not exit cleanly on SIGTERM"
daemon_pid=""

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
echo "=== package: passed"
