# Installation (GNUInstallDirs) and the Debian package (CPack DEB):
#   cmake --install build            daemon, client, units, udev rule, tmpfiles entry, docs
#   cd build && cpack -G DEB         usb-media-service_<version>_<arch>.deb
# Debian keeps a package's documents under its own name.
set(CMAKE_INSTALL_DOCDIR share/doc/usb-media-service CACHE PATH "Documentation directory")
include(GNUInstallDirs)

install(TARGETS usb-media-service usb-media-ctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# systemd's and udev's directories from their pkg-config files when present.
set(unit_dir "${CMAKE_INSTALL_PREFIX}/lib/systemd/system")
set(tmpfiles_dir "${CMAKE_INSTALL_PREFIX}/lib/tmpfiles.d")
set(udev_dir "${CMAKE_INSTALL_PREFIX}/lib/udev")
pkg_check_modules(SYSTEMD_PC QUIET systemd)
if(SYSTEMD_PC_FOUND)
  pkg_get_variable(unit_dir systemd systemdsystemunitdir)
  pkg_get_variable(tmpfiles_dir systemd tmpfilesdir)
endif()
pkg_check_modules(UDEV_PC QUIET udev)
if(UDEV_PC_FOUND)
  pkg_get_variable(udev_dir udev udevdir)
elseif(unit_dir MATCHES "^(.*)/systemd/system$")
  set(udev_dir "${CMAKE_MATCH_1}/udev")  # udev lives beside systemd (/lib/udev)
endif()
# In a cross build pkg-config puts the sysroot before the paths it reports;
# the package installs on the device, where they have none.
foreach(dir unit_dir tmpfiles_dir udev_dir)
  if(CMAKE_SYSROOT)
    string(FIND "${${dir}}" "${CMAKE_SYSROOT}/" at)
    if(at EQUAL 0)
      string(LENGTH "${CMAKE_SYSROOT}" length)
      string(SUBSTRING "${${dir}}" ${length} -1 ${dir})
    endif()
  endif()
endforeach()
set(USBMEDIA_SYSTEMD_UNIT_DIR "${unit_dir}" CACHE PATH "Where the systemd unit is installed")
set(USBMEDIA_TMPFILES_DIR "${tmpfiles_dir}" CACHE PATH "Where the tmpfiles.d entry is installed")
set(USBMEDIA_UDEV_RULES_DIR "${udev_dir}/rules.d" CACHE PATH "Where the udev rule is installed")

set(dist ${CMAKE_SOURCE_DIR}/dist)
# The unit and the rule name the installed binaries, so they are written at
# install time, for the prefix in force then (cpack installs under /usr).
# The copies in the build tree (for the tests) name the configured prefix.
configure_file(${dist}/systemd/usb-media-service.service.in ${CMAKE_BINARY_DIR}/dist/usb-media-service.service @ONLY)
configure_file(${dist}/udev/90-usb-media-service.rules.in ${CMAKE_BINARY_DIR}/dist/90-usb-media-service.rules @ONLY)
set(stick_units usb-media-stick@.service usb-media-stick-unsupported@.service)
foreach(unit IN LISTS stick_units)
  configure_file(${dist}/systemd/${unit}.in ${CMAKE_BINARY_DIR}/dist/${unit} @ONLY)
endforeach()
install(CODE "
  set(CMAKE_INSTALL_FULL_BINDIR \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
  set(CMAKE_INSTALL_FULL_DOCDIR \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DOCDIR}\")
  configure_file(${dist}/systemd/usb-media-service.service.in
                 ${CMAKE_BINARY_DIR}/dist/installed/usb-media-service.service @ONLY)
  configure_file(${dist}/udev/90-usb-media-service.rules.in
                 ${CMAKE_BINARY_DIR}/dist/installed/90-usb-media-service.rules @ONLY)
  foreach(unit ${stick_units})
    configure_file(${dist}/systemd/\${unit}.in ${CMAKE_BINARY_DIR}/dist/installed/\${unit} @ONLY)
  endforeach()
")
install(FILES ${CMAKE_BINARY_DIR}/dist/installed/usb-media-service.service DESTINATION ${USBMEDIA_SYSTEMD_UNIT_DIR})
foreach(unit IN LISTS stick_units)
  install(FILES ${CMAKE_BINARY_DIR}/dist/installed/${unit} DESTINATION ${USBMEDIA_SYSTEMD_UNIT_DIR})
endforeach()
install(FILES ${CMAKE_BINARY_DIR}/dist/installed/90-usb-media-service.rules DESTINATION ${USBMEDIA_UDEV_RULES_DIR})
# The art folder, made at boot (and by the package's postinst) for the
# service's user, which cannot make folders below /home itself.
install(FILES ${dist}/tmpfiles.d/usb-media-service.conf DESTINATION ${USBMEDIA_TMPFILES_DIR})
install(FILES ${CMAKE_SOURCE_DIR}/docs/protocol/openrpc.json DESTINATION ${CMAKE_INSTALL_DATADIR}/usb-media-service)
install(FILES ${CMAKE_SOURCE_DIR}/README.md ${CMAKE_SOURCE_DIR}/docs/protocol/openrpc.json
              ${dist}/systemd/mnt-usb-stick1.mount.example
        DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(CPACK_PACKAGE_NAME usb-media-service)
set(CPACK_PACKAGE_VERSION 1.0.0)
set(CPACK_PACKAGE_CONTACT "USB media service developers <usb-media@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "USB media player daemon with a JSON-RPC control port")
set(CPACK_PACKAGE_DESCRIPTION
    "Plays .mp3, .wma and .wav files from USB sticks through GStreamer, controlled\n"
    "by local clients over JSON-RPC 2.0 on 127.0.0.1:8885. Includes the\n"
    "command-line client usb-media-ctl, a systemd unit and a udev rule. The\n"
    "service runs as the system user usbmedia, made by the package.")
set(CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
# The decoders and sinks are plugins, loaded at run time: no shared-library
# dependency names them.
# The postinst makes the service's user with adduser.
set(plugin_depends
    "gstreamer1.0-plugins-base, gstreamer1.0-plugins-good, gstreamer1.0-plugins-ugly, gstreamer1.0-libav, gstreamer1.0-alsa, adduser")
if(NOT CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "${plugin_depends}")
else()
  # dpkg-shlibdeps reads the host's package database, which knows no armhf
  # library: a cross build names its libraries as Debian 12 packages them
  # (override for another distribution's sysroot).
  set(USBMEDIA_DEB_LIBRARY_DEPENDS
      "libc6 (>= 2.36), libgcc-s1, libstdc++6 (>= 12), libglib2.0-0 (>= 2.74), libgstreamer1.0-0 (>= 1.22), libjsoncpp25 (>= 1.9.5), libsystemd0, zlib1g (>= 1:1.2.13)"
      CACHE STRING "Depends of the cross-built package's binaries")
  set(library_depends "${USBMEDIA_DEB_LIBRARY_DEPENDS}")
  # The stick's tag library: TagLib reads the tags, SQLite keeps them. A cache
  # variable of its own: a build tree configured before keeps its older list
  # above and still gets these.
  if(TARGET usbmedia_tags)
    set(USBMEDIA_DEB_TAG_LIBRARY_DEPENDS "libtag1v5 (>= 1.13), libsqlite3-0 (>= 3.40)"
        CACHE STRING "Depends of the cross-built package's tag library")
    string(APPEND library_depends ", ${USBMEDIA_DEB_TAG_LIBRARY_DEPENDS}")
  endif()
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "${library_depends}, ${plugin_depends}")
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
  endif()
endif()
set(CPACK_STRIP_FILES ON)
# The postinst makes the service's user and its art folder, and has systemd
# and udev reread their files; the unit is left for the device's own set-up
# to enable (systemctl enable --now usb-media-service).
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${dist}/debian/postinst ${dist}/debian/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
