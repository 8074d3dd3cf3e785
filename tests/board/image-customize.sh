#!/usr/bin/env bash
# mmdebstrap customize hook for the emulated board's image (ROOT is $1): what a
# device maker's image would set up around the service. The service's own
# files come later, from its package, as the README's device steps install it.
set -euo pipefail
target=$1

echo usbmedia-board > "$target/etc/hostname"
printf '127.0.0.1\tlocalhost\n127.0.1.1\tusbmedia-board\n' > "$target/etc/hosts"
printf 'LABEL=board-root\t/\text4\trw,noatime\t0\t1\n' > "$target/etc/fstab"
# A fixed machine id: every boot of the (read-only, snapshotted) image is
# then the same boot, with no first-boot set-up.
echo 5f1c0d3a9b7e4c2a8d6f0e1b2c3d4e5f > "$target/etc/machine-id"

# The test talks to a root shell on the serial console.
mkdir -p "$target/etc/systemd/system/serial-getty@ttyAMA0.service.d"
cat > "$target/etc/systemd/system/serial-getty@ttyAMA0.service.d/autologin.conf" <<'UNIT'
[Service]
ExecStart=
ExecStart=-/sbin/agetty --autologin root --noclear --keep-baud 115200,57600,38400,9600 %I dumb
UNIT

# The virt board has no sound card; Debian's armhf kernel has no snd-dummy
# but has the ALSA loopback card, which takes what a player writes.
echo snd-aloop > "$target/etc/modules-load.d/snd-aloop.conf"

# Nothing else runs on the board: no periodic apt or file system jobs in the
# middle of a measurement.
for unit in apt-daily.timer apt-daily-upgrade.timer dpkg-db-backup.timer e2scrub_all.timer \
            fstrim.timer man-db.timer e2scrub_reap.service; do
  ln -sf /dev/null "$target/etc/systemd/system/$unit"
done
