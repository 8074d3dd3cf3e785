# Cross build for the 32-bit ARM head unit (Debian armhf: ARMv7, hard float)
# with Debian's cross compiler and a sysroot of armhf packages
# (scripts/cross-armhf.sh makes one). Test programs run under qemu-arm.
#
#   cmake -S . -B build-armhf -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake \
#         -DUSBMEDIA_SYSROOT=/path/to/sysroot
#
# USBMEDIA_SYSROOT (cache or environment variable): the target's root file
# system with the development files; default ~/.cache/usb-media-service/sysroot-armhf.
# USBMEDIA_CROSS_PREFIX: the compiler prefix (default arm-linux-gnueabihf-).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

if(NOT USBMEDIA_SYSROOT)
  if(DEFINED ENV{USBMEDIA_SYSROOT})
    set(USBMEDIA_SYSROOT "$ENV{USBMEDIA_SYSROOT}")
  elseif(DEFINED ENV{XDG_CACHE_HOME})
    set(USBMEDIA_SYSROOT "$ENV{XDG_CACHE_HOME}/usb-media-service/sysroot-armhf")
  else()
    set(USBMEDIA_SYSROOT "$ENV{HOME}/.cache/usb-media-service/sysroot-armhf")
  endif()
endif()
set(USBMEDIA_SYSROOT "${USBMEDIA_SYSROOT}" CACHE PATH "armhf sysroot")
if(NOT DEFINED USBMEDIA_CROSS_PREFIX)
  set(USBMEDIA_CROSS_PREFIX arm-linux-gnueabihf-)
endif()
set(USBMEDIA_MULTIARCH arm-linux-gnueabihf)
# try_compile projects see the same settings.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES USBMEDIA_SYSROOT USBMEDIA_CROSS_PREFIX)

set(CMAKE_SYSROOT "${USBMEDIA_SYSROOT}")
set(CMAKE_C_COMPILER ${USBMEDIA_CROSS_PREFIX}gcc)
set(CMAKE_CXX_COMPILER ${USBMEDIA_CROSS_PREFIX}g++)

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config reads the target's .pc files only and prefixes their paths.
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${CMAKE_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR}
    "${CMAKE_SYSROOT}/usr/lib/${USBMEDIA_MULTIARCH}/pkgconfig:${CMAKE_SYSROOT}/usr/lib/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# ctest, gtest_discover_tests and the integration tests (which start the
# daemon and the client) run target programs through this.
set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/qemu-armhf.sh;${CMAKE_SYSROOT}")

# GCC's notes that the ARM parameter passing of some types changed in GCC 7.1
# concern only mixing objects built by GCC older than 7; everything here is
# built by one compiler.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")
