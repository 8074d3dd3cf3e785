#!/usr/bin/env bash
# scripts/check-architecture.sh fails on a page that names a file, a function
# or a name the sources no longer have, and passes one that names what is there.
set -euo pipefail
src=${1:?usage: check-architecture-test.sh SOURCE_ROOT}
check="$src/scripts/check-architecture.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

echo 'See `player/UsbMediaPlayer.h`, `control/*Methods.cpp`, `CUsbMediaPlayer::PlayListLocked` and `CFile`.' >"$work/good.md"
bash "$check" "$src" "$work/good.md" >/dev/null || { echo "a true page fails"; exit 1; }

for wrong in '`player/Gone.cpp`' '`control/*Gone.cpp`' '`CUsbMediaPlayer::NoSuchOperation`' '`NoSuchName`'; do
  echo "Names $wrong." >"$work/wrong.md"
  if bash "$check" "$src" "$work/wrong.md" >/dev/null 2>&1; then
    echo "not caught: $wrong"; exit 1
  fi
done
echo "check-architecture: ok"
