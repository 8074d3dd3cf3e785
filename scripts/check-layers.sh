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

# directory | allowed include prefixes | allowed libraries | the directory's own libraries
# (library/ has two: usbmedia_tags, the tag library, beside usbmedia_library)
rules=(
  "core|core/|usbmedia_core|usbmedia_core"
  "library|core/ library/|usbmedia_core usbmedia_library usbmedia_tags|usbmedia_library usbmedia_tags"
  "player|core/ library/ player/|usbmedia_core usbmedia_library usbmedia_tags usbmedia_player|usbmedia_player"
  "control/rpc|core/ control/rpc/|usbmedia_core usbmedia_rpc|usbmedia_rpc"
  "control|core/ library/ player/ control/|usbmedia_core usbmedia_library usbmedia_tags usbmedia_player usbmedia_rpc usbmedia_control|usbmedia_control"
  "tools|core/ control/rpc/ tools/|usbmedia_core usbmedia_rpc usbmedia_cli|usbmedia_cli"
)

status=0
fail() { echo "layers: $*" >&2; status=1; }

for rule in "${rules[@]}"; do
  IFS='|' read -r dir includes libraries own_libraries <<<"$rule"
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
  # The libraries named here as the directory's own exist, so a renamed
  # target does not leave the link check behind.
  for own in $own_libraries; do
    grep -q "add_library($own\b" "$cmake_file" || fail "$cmake_file: defines no library $own"
  done
  while IFS= read -r statement; do
    target=$(sed -n 's/.*target_link_libraries([[:space:]]*\([^[:space:])]*\).*/\1/p' <<<"$statement")
    [[ " $own_libraries " == *" $target "* ]] || continue
    for used in $(grep -o 'usbmedia_[a-z_]*' <<<"${statement#*"$target"}" || true); do
      [[ " $libraries " == *" $used "* ]] || fail "$cmake_file: $target links $used, outside what $dir/ may use"
    done
  done <<<"$linked"
done

# Every project library of the layers has a rule: one added to a directory
# without a place in the table above would have its links go unchecked.
all_own=""
for rule in "${rules[@]}"; do
  all_own+=" ${rule##*|}"
done
for rule in "${rules[@]}"; do
  dir=${rule%%|*}
  [ -f "$dir/CMakeLists.txt" ] || continue
  for defined in $(sed -n 's/^[[:space:]]*add_library(\(usbmedia_[a-z_]*\).*/\1/p' "$dir/CMakeLists.txt"); do
    [[ " $all_own " == *" $defined "* ]] || fail "$dir/CMakeLists.txt: library $defined has no layer in check-layers.sh"
  done
done

[ $status = 0 ] && echo "layers: ok"
exit $status
