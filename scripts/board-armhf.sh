#!/usr/bin/env bash
# Boots the service's armhf package on a whole emulated board and runs the
# device scenario there: Debian 12 armhf with its own kernel, systemd and udev
# under qemu-system-arm (-M virt, 2 cores, TCG), a FAT32 stick plugged and
# pulled through the QEMU monitor, sound through ALSA's loopback card.
#
#   scripts/board-armhf.sh [--image-only]
#
# Steps, each skipped when already done:
#   1. host packages: qemu-system-arm, qemu-user-static, mmdebstrap, the FAT
#      tools; the qemu-arm binfmt handler (flag F) for the image's maintainer
#      scripts;
#   2. the armhf package from build-armhf/ (scripts/cross-armhf.sh builds it);
#   3. the board image (kernel, initrd, ext4 root file system) made with
#      mmdebstrap from the host's apt source, cached in
#      ~/.cache/usb-media-service/board-armhf while its stamp matches
#      (USBMEDIA_BOARD_CACHE to put it elsewhere);
#   4. a FAT32 stick image of the demo stick's tagged MP3, WMA and WAV files;
#   5. tests/board/scenario.py: boot, install the package with apt as the
#      README's "On a device" section says, then plug, play, pull, crash and
#      stop the service, each step with its own time limit.
# Figures (image build, boot to READY, plug and pull to notification, idle
# RSS and CPU) are printed at the end.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

image_only=0
case "${1:-}" in
  --image-only) image_only=1 ;;
  "") ;;
  *) echo "usage: $0 [--image-only]" >&2; exit 2 ;;
esac

cache=${USBMEDIA_BOARD_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/usb-media-service/board-armhf}
builddir=${USBMEDIA_ARMHF_BUILD:-build-armhf}
suite=bookworm
SUDO=$([ "$(id -u)" -eq 0 ] || echo sudo)

stage_prefix=board
. "$root/scripts/stage-timer.sh"
fail() { echo "board: FAILED: $*" >&2; exit 1; }

# --- 1. host packages and the binfmt handler ----------------------------------
stage "host packages"
HOST_PACKAGES=(qemu-system-arm qemu-user-static mmdebstrap arch-test dosfstools mtools cpio e2fsprogs
               gstreamer1.0-tools python3-mutagen)
missing=()
for pkg in "${HOST_PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" || missing+=("$pkg")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "board: installing ${missing[*]}"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# dpkg inside the armhf image runs armhf maintainer scripts: the kernel must
# hand armhf programs to qemu-arm-static, opened at registration (flag F) so
# that it works inside the chroot. No systemd registers it on these machines.
binfmt=/proc/sys/fs/binfmt_misc
if [ ! -f "$binfmt/register" ]; then
  $SUDO mount -t binfmt_misc binfmt_misc "$binfmt"
fi
if [ ! -f "$binfmt/qemu-arm" ]; then
  $SUDO sh -c "cat /usr/lib/binfmt.d/qemu-arm.conf > $binfmt/register"
fi
grep -q '^flags:.*F' "$binfmt/qemu-arm" || fail "the qemu-arm binfmt handler lacks flag F: $(cat "$binfmt/qemu-arm")"

# --- 2. the package ----------------------------------------------------------
stage "armhf package"
if [ ! -f "$builddir/CMakeCache.txt" ]; then
  bash scripts/cross-armhf.sh --build-only
fi
cmake --build "$builddir" -j"$(nproc)" --target usb-media-service usb-media-ctl >/dev/null
rm -f "$builddir"/usb-media-service_*.deb
(cd "$builddir" && cpack -G DEB >/dev/null)
deb=$(ls "$builddir"/usb-media-service_*_armhf.deb) || fail "no armhf package in $builddir"
echo "board: $deb"
# The image holds what the package depends on, so apt installs it offline.
runtime=$(dpkg-deb -f "$deb" Depends | tr ',' '\n' | sed -E 's/\(.*\)//; s/\|.*//; s/[[:space:]]//g' |
          grep -v '^$' | sort -u | paste -sd, -)
echo "board: runtime packages $runtime"

# --- 3. the board image --------------------------------------------------------
# Small enough for a quick boot: minbase, the armmp-lpae kernel (the virt
# board's PCIe lies above 4 GiB), systemd and udev, the ALSA tools, and an
# initramfs with just the modules that find the root file system.
stage "board image"
BOARD_PACKAGES="systemd-sysv,udev,kmod,linux-image-armmp-lpae,alsa-utils,procps,$runtime"
stamp_text="$suite $BOARD_PACKAGES board-image-1"
image_seconds=""
if [ -f "$cache/stamp" ] && [ "$(cat "$cache/stamp")" = "$stamp_text" ]; then
  echo "board: reusing the image in $cache"
else
  image_start=$SECONDS
  echo "board: making the image in $cache"
  rm -rf "$cache.new"
  mkdir -p "$cache.new"
  # The host's apt source, first stanza and one suite (as the sysroot takes it):
  # mmdebstrap stops on any index error, and the security suite's armhf index
  # may be caught mid-sync.
  source_file=$(ls /etc/apt/sources.list.d/debian.sources /etc/apt/sources.list.d/*.sources 2>/dev/null | head -n1)
  [ -n "$source_file" ] || fail "no deb822 apt source in /etc/apt/sources.list.d"
  awk 'BEGIN { RS = ""; ORS = "\n" } NR == 1 { print; exit }' "$source_file" |
    sed -E "s/^Suites:.*/Suites: $suite/" > "$cache.new/sources"
  # A second try when the first fails: a mirror caught mid-sync heals in minutes.
  for try in 1 2; do
    rm -rf "$cache.new/rootfs"
    mmdebstrap --quiet --variant=minbase --architectures=armhf --include="$BOARD_PACKAGES" \
      --setup-hook="bash $root/tests/board/image-setup.sh \"\$1\"" \
      --customize-hook="bash $root/tests/board/image-customize.sh \"\$1\"" \
      "$suite" "$cache.new/rootfs" - < "$cache.new/sources" && break
    [ $try = 2 ] && fail "mmdebstrap could not make the image"
    echo "board: mmdebstrap failed; trying once more in 60 s"
    sleep 60
  done
  cp "$cache.new/rootfs/boot/vmlinuz-"* "$cache.new/vmlinuz"
  cp "$cache.new/rootfs/boot/initrd.img-"* "$cache.new/initrd.img"
  mke2fs -q -t ext4 -L board-root -d "$cache.new/rootfs" "$cache.new/root.img" 2G
  rm -rf "$cache.new/rootfs"
  echo "$stamp_text" > "$cache.new/stamp"
  rm -rf "$cache"
  mv "$cache.new" "$cache"
  image_seconds=$(( SECONDS - image_start ))
fi
if [ $image_only -eq 1 ]; then
  stage ""
  exit 0
fi

# --- 4. the stick --------------------------------------------------------------
stage "stick image"
work=$(mktemp -d /tmp/usbmedia-board-XXXXXX)
trap 'rm -rf "$work"' EXIT
bash scripts/make-demo-stick.sh "$work/media" >/dev/null
stick_files=$work/media/mnt/usb-stick1
mkfs.vfat -F 32 -n USBMEDIA -C "$work/stick.img" $(( 64 * 1024 )) >/dev/null
mcopy -s -i "$work/stick.img" "$stick_files"/* ::/
mdir -/ -b -i "$work/stick.img" ::/ | sed 's/^/board: stick /'
# And one the service cannot read: a minix file system.
dd if=/dev/zero of="$work/unsupported.img" bs=1M count=4 status=none
mkfs.minix "$work/unsupported.img" >/dev/null

# --- 5. boot and run the scenario ---------------------------------------------
stage "scenario on the emulated board"
status=0
/usr/bin/python3 tests/board/scenario.py --image "$cache" --deb "$deb" --stick "$work/stick.img" \
  --unsupported-stick "$work/unsupported.img" \
  --work "$work" --readme README.md ${image_seconds:+--image-seconds "$image_seconds"} || status=1
stage ""
[ $status -eq 0 ] && echo "=== board: all passed" || echo "=== board: FAILED"
exit $status
