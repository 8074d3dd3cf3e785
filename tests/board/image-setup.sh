#!/usr/bin/env bash
# mmdebstrap setup hook for the emulated board's image (ROOT is $1): an
# initramfs with only the modules that find the root file system on the virt
# board. With initramfs-tools' default (MODULES=most) mkinitramfs alone takes
# half an hour under emulation.
set -euo pipefail
target=$1
mkdir -p "$target/etc/initramfs-tools/conf.d" "$target/usr/share/initramfs-tools/modules.d"
echo "MODULES=list" > "$target/etc/initramfs-tools/conf.d/usbmedia-board.conf"
printf '%s\n' virtio_mmio virtio_blk ext4 > "$target/usr/share/initramfs-tools/modules.d/usbmedia-board"
