#!/usr/bin/env bash
# The layers of the service, checked on the sources: every project header a
# source includes (#include "dir/..."), and every project library its
# CMakeLists.txt links, must come from its own layer or one below it.
#
#   core  <-  library  <-  player  <-  control  (control/rpc: the transport, on core only)
#   tools: the command-line client, on the transport and core only
#
# core/main.cpp is the daemon's entry and sees every layer. The build enforces
# the same through per-target include roots (cmake/IncludeRoots.cmake); this
# check names the offending line. Usage: check-layers.sh [SOURCE_ROOT]
set -euo pipefail
root=${1:-$(dirname "$0")/..}
cd "$root"

# directory            allowed include prefixes                 allowed libraries
rules=(
  "core|core/|usbmedia_core"
  "library|core/ library/|usbmedia_core usbmedia_library usbmedia_tags"
  "player|core/ library/ player/|usbmedia_core usbmedia_library usbmedia_tags usbmedia_player"
  "control/rpc|core/ control/rpc/|usbmedia_core usbmedia_rpc"
  "control|core/ library/ player/ control/|usbmedia_core usbmedia_library usbmedia_tags usbmedia_player usbmedia_rpc usbmedia_control"
  "tools|core/ control/rpc/ tools/|usbmedia_core usbmedia_rpc usbmedia_cli"
)

status=0
fail() { echo "layers: $*" >&2; status=1; }

for rule in "${rules[@]}"; do
  IFS='|' read -r dir includes libraries <<<"$rule"
  [ -d "$dir" ] || { fail "$dir/ is missing"; continue; }
  # Sources of this directory alone: control/ leaves control/rpc/ to its own rule.
  while IFS= read -r file; do
    case "$file" in
      core/main.cpp) continue ;;
      control/rpc/*) [ "$dir" = control ] && continue ;;
    esac
    while IFS=: read -r line text; do
      header=$(sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([^"]*\)".*/\1/p' <<<"$text")
      [ -n "$header" ] || continue
      ok=0
      for prefix in $includes; do
        [[ $header == "$prefix"* ]] && ok=1
      done
      [ $ok = 1 ] || fail "$file:$line includes \"$header\", outside what $dir/ may use ($includes)"
    done < <(grep -n '^[[:space:]]*#[[:space:]]*include[[:space:]]*"' "$file" || true)
  done < <(find "$dir" -name '*.cpp' -o -name '*.h' | sort)

  # What the directory's library links: only project libraries of its layer or below.
  cmake_file="$dir/CMakeLists.txt"
  [ "$dir" = control/rpc ] && cmake_file=control/CMakeLists.txt
  [ -f "$cmake_file" ] || continue
  linked=$(awk '
    /target_link_libraries\(/ { collecting = 1; text = "" }
    collecting { text = text " " $0 }
    collecting && /\)/ { print text; collecting = 0 }' "$cmake_file")
  own=${libraries##* }
  while IFS= read -r statement; do
    target=$(sed -n 's/.*target_link_libraries([[:space:]]*\([^[:space:])]*\).*/\1/p' <<<"$statement")
    [ "$target" = "$own" ] || continue
    for used in $(grep -o 'usbmedia_[a-z_]*' <<<"${statement#*"$target"}" || true); do
      [[ " $libraries " == *" $used "* ]] || fail "$cmake_file: $own links $used, outside what $dir/ may use"
    done
  done <<<"$linked"
done

[ $status = 0 ] && echo "layers: ok"
exit $status
