#!/bin/sh
# Runs an armhf program under qemu-arm (user mode) with the sysroot's
# libraries and GStreamer plugins:  qemu-armhf.sh SYSROOT PROGRAM [ARGUMENT...]
#
# qemu's -L redirects the guest's opens into the sysroot but not its stats,
# so GStreamer's plugin scan is pointed at the sysroot's plugin directory and
# done in-process. Host programs the guest starts (gst-launch-1.0 making test
# media) must not see these variables: USBMEDIA_GUEST_ENV names them and the
# test support unsets them before it starts one.
set -e
sysroot=$1
shift
export GST_REGISTRY_FORK=no
plugins=$sysroot/usr/lib/arm-linux-gnueabihf/gstreamer-1.0   # Debian's layout
[ -d "$plugins" ] || plugins=$sysroot/usr/lib/gstreamer-1.0   # Yocto's, Buildroot's
export GST_PLUGIN_SYSTEM_PATH="$plugins"
export USBMEDIA_GUEST_ENV="GST_REGISTRY_FORK GST_PLUGIN_SYSTEM_PATH USBMEDIA_GUEST_ENV"
exec qemu-arm -L "$sysroot" "$@"
