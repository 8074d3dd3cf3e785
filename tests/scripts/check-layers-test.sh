#!/usr/bin/env bash
# scripts/check-layers.sh passes the tree as it is and fails, naming the
# line, on an include or a link that crosses the layers upwards.
set -euo pipefail
src=${1:?usage: check-layers-test.sh SOURCE_ROOT}
check="$src/scripts/check-layers.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fresh() {
  rm -rf "$work/tree" && mkdir "$work/tree"
  cp -r "$src/core" "$src/library" "$src/player" "$src/control" "$src/tools" "$work/tree/"
}
expect_failure() {
  local what=$1 pattern=$2 output
  if output=$(bash "$check" "$work/tree" 2>&1); then
    echo "not caught: $what"; exit 1
  fi
  grep -qF -- "$pattern" <<<"$output" || { echo "$what: message lacks '$pattern':"; echo "$output"; exit 1; }
}

fresh
bash "$check" "$work/tree" >/dev/null || { echo "the tree as it is fails"; bash "$check" "$work/tree"; exit 1; }

fresh
echo '#include "control/rpc/TcpServer.h"' >>"$work/tree/player/Navigation.cpp"
expect_failure "player including the transport" 'player/Navigation.cpp:'

fresh
echo '#include "player/UsbMediaPlayer.h"' >>"$work/tree/library/File.h"
expect_failure "library including the player" 'library/File.h:'

fresh
echo '#  include "control/UsbMediaRequestHandler.h"' >>"$work/tree/control/rpc/Server.cpp"
expect_failure "transport including the handler" 'control/rpc/Server.cpp:'

fresh
sed -i 's/target_link_libraries(usbmedia_player PUBLIC/target_link_libraries(usbmedia_player PUBLIC usbmedia_rpc/' \
  "$work/tree/player/CMakeLists.txt"
grep -q 'usbmedia_player PUBLIC usbmedia_rpc' "$work/tree/player/CMakeLists.txt"
expect_failure "player linking the transport" 'usbmedia_player links usbmedia_rpc'

fresh
sed -i 's/PRIVATE PkgConfig::TAGLIB/PRIVATE usbmedia_player PkgConfig::TAGLIB/' "$work/tree/library/CMakeLists.txt"
grep -q 'PRIVATE usbmedia_player PkgConfig::TAGLIB' "$work/tree/library/CMakeLists.txt"
expect_failure "the tag library linking the player" 'usbmedia_tags links usbmedia_player'

fresh
printf 'add_library(usbmedia_extra STATIC Extra.cpp)\ntarget_link_libraries(usbmedia_extra PUBLIC usbmedia_control)\n' \
  >>"$work/tree/library/CMakeLists.txt"
expect_failure "a library without a layer" 'library usbmedia_extra has no layer'

echo "check-layers: ok"
