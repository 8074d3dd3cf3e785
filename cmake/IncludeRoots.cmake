# Per-target include roots. Sources include headers by their path from the
# top of the tree ("player/UsbMediaPlayer.h"), but no target sees the whole
# tree: each library exposes only its own directory, through an include root
# of its own in the build tree that holds a link to that directory, and passes
# it on PUBLIC to what links it. A header from a library a target does not
# link is therefore not found at compile time; scripts/check-layers.sh checks
# the same rules on the sources.
#
#   usbmedia_include_root(<target> <directory from the top of the tree>)
function(usbmedia_include_root target dir)
  set(root "${CMAKE_BINARY_DIR}/include-roots/${target}")
  get_filename_component(parent "${root}/${dir}" DIRECTORY)
  file(MAKE_DIRECTORY "${parent}")
  file(CREATE_LINK "${CMAKE_SOURCE_DIR}/${dir}" "${root}/${dir}" SYMBOLIC)
  target_include_directories(${target} PUBLIC "${root}")
endfunction()
