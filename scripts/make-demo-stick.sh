#!/usr/bin/env bash
# Makes a small demo USB stick of generated audio under ROOT/mnt/usb-stick1:
# a few folders of tagged ".mp3", ".wma" and ".wav" files; "Welcome.mp3" carries
# a cover image, so that album art can be tried.
# Usage: scripts/make-demo-stick.sh ROOT
set -euo pipefail

root=${1:?usage: make-demo-stick.sh ROOT}
stick="$root/mnt/usb-stick1"
mkdir -p "$stick" "$root/mnt/usb-stick2" "$root/home/root"

# encode FILE SECONDS FREQ WAVE TITLE ARTIST ALBUM
encode() {
  local file=$1 seconds=$2 freq=$3 wave=$4 title=$5 artist=$6 album=$7
  [ -s "$file" ] && return 0
  mkdir -p "$(dirname "$file")"
  local buffers=$(( seconds * 44100 / 1024 ))
  # gst-launch takes the pipeline as separate words; a word with blanks is
  # one property value.
  local source=(audiotestsrc num-buffers=$buffers freq=$freq wave=$wave volume=0.3 ! audioconvert)
  local tags=(taginject "tags=\"title=\\\"$title\\\",artist=\\\"$artist\\\",album=\\\"$album\\\"\"")
  local sink=(filesink "location=\"$file\"")
  case "$file" in
    *.mp3) gst-launch-1.0 -q "${source[@]}" ! lamemp3enc ! "${tags[@]}" ! id3v2mux ! "${sink[@]}" ;;
    *.wav) gst-launch-1.0 -q "${source[@]}" ! "${tags[@]}" ! wavenc ! "${sink[@]}" ;;
    *.wma)
      # The ASF muxer drops tags; Debian's mutagen writes them afterwards.
      gst-launch-1.0 -q "${source[@]}" ! avenc_wmav2 ! avmux_asf ! "${sink[@]}"
      /usr/bin/python3 - "$file" "$title" "$artist" "$album" <<'PY'
import sys
from mutagen.asf import ASF
media = ASF(sys.argv[1])
media["Title"], media["Author"], media["WM/AlbumTitle"] = sys.argv[2], sys.argv[3], sys.argv[4]
media.save()
PY
      ;;
  esac
}

# add_cover FILE.mp3: embeds a small generated JPEG as the front cover (ID3
# APIC frame, with Debian's mutagen), unless the file has one.
add_cover() {
  local file=$1 cover
  cover=$(mktemp --suffix=.jpg)
  gst-launch-1.0 -q videotestsrc num-buffers=1 pattern=smpte ! video/x-raw,width=96,height=96 ! jpegenc ! \
    filesink "location=$cover"
  /usr/bin/python3 - "$file" "$cover" <<'PY'
import sys
from mutagen.id3 import ID3, APIC
tags = ID3(sys.argv[1])
if not tags.getall("APIC"):
    with open(sys.argv[2], "rb") as image:
        tags.add(APIC(encoding=3, mime="image/jpeg", type=3, desc="Cover", data=image.read()))
    tags.save(sys.argv[1])
PY
  rm -f "$cover"
}

encode "$stick/Jazz/Blue Hour.mp3"        20 440 sine     "Blue Hour"     "The Demo Trio"  "Late Set"
encode "$stick/Jazz/Night Walk.mp3"       20 523 sine     "Night Walk"    "The Demo Trio"  "Late Set"
encode "$stick/Jazz/Slow Rain.wma"        20 392 triangle "Slow Rain"     "The Demo Trio"  "Late Set"
encode "$stick/Rock/Engine Room.mp3"      20 330 square   "Engine Room"   "Test Pattern"   "Full Volume"
encode "$stick/Rock/Live/Encore.wav"      15 660 saw      "Encore"        "Test Pattern"   "Live"
encode "$stick/Spoken/Intro.wav"          10 220 sine     "Intro"         "Narrator"       "Chapters"
encode "$stick/Welcome.mp3"               10 880 sine     "Welcome"       "USB Media"      "Demo"
add_cover "$stick/Welcome.mp3"
echo "demo stick ready: $stick"
find "$stick" -type f | sort
