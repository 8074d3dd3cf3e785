#!/usr/bin/python3
"""Makes (once) and prints the path of a tree of tagged audio files for the
tag library benchmark: TRACKS tracks of real MP3, WMA and WAV audio of about
KIB KiB each, laid out Artist/Album/NN - Title.ext, with about one artist per
20 tracks, one album per 10 tracks, 20 genres, two-disc albums, compilations
("Various Artists") and non-ASCII names.

One short file of each format is encoded with gst-launch-1.0; every track is
a copy of one of them with tags of its own (ID3v2.3 UTF-16 or ID3v2.4 UTF-8
for MP3, ASF for WMA, RIFF INFO or an ID3v2 chunk for WAV), written with
mutagen through tests/support/tag_files.py. Making 10,000 files takes a
while, so the tree is kept under ~/.cache/usb-media-service/bench-tag-tree,
keyed by VERSION and the arguments; the same tree comes back next time.

Usage: make_tag_tree.py [--tracks N] [--kib K]   (defaults 10000, 40)
Runs with Debian's /usr/bin/python3 and python3-mutagen."""

import argparse
import os
import shutil
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True  # no __pycache__ left in the source tree
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "support"))
import tag_files  # noqa: E402  (beside this script's tree, not installed)

from mutagen.id3 import TALB, TCON, TDRC, TIT2, TPE1, TPE2, TPOS, TRCK  # noqa: E402
from mutagen.wave import WAVE  # noqa: E402

# Bump when the tree's contents change, so an old cache is not taken for it.
VERSION = 1
TRACKS_PER_ALBUM = 10
TRACKS_PER_ARTIST = 20
COMPILATION_EVERY = 25  # every 25th album is a "Various Artists" compilation
TWO_DISCS_EVERY = 7

FIRST = ["Anna", "Björn", "Chloé", "Dmitri", "Élodie", "Farid", "Günther", "Hana", "Ingrid", "José",
         "Kaito", "Léa", "Marek", "Nils", "Ольга", "Paco", "Søren", "Tomás", "さくら", "Zoë"]
LAST = ["Andersson", "Brontë", "Café", "Dvořák", "Eriksen", "Fontaine", "García", "Håkansson", "Ivanova",
        "Jensen", "Kowalski", "Lindqvist", "Müller", "Nguyễn", "Ødegaard", "Petrov", "Quintana", "Rossi",
        "Smith", "Tanaka", "Umarov", "Varga", "Wójcik", "Yılmaz", "Zhang"]
ADJECTIVES = ["Blue", "Silent", "Golden", "Broken", "Électrique", "Distant", "Midnight", "Lost", "Wild",
              "Frozen", "Hidden", "Burning", "Paper", "Velvet", "Neon", "Hollow", "Crystal", "Eternal",
              "Schöne", "Dernière", "Northern", "Última", "Quiet", "Scarlet", "Sunday", "Tired", "Urban",
              "Wandering", "Young", "Zero"]
NOUNS = ["Rivers", "Skies", "Hearts", "Roads", "Mirrors", "Gardens", "Trains", "Lights", "Cities",
         "Waves", "Dreams", "Stones", "Nächte", "Étoiles", "Horizons", "Shadows", "Summers", "Winters",
         "Islands", "Letters", "Bridges", "Machines", "Echoes", "Fires", "Colours", "Voices", "Years",
         "Windows", "Forests", "Songs", "Canções", "Песни", "Tides", "Signals", "Harbours", "Mountains",
         "Streets", "Clouds", "Storms", "Angels"]
GENRES = ["Rock", "Pop", "Jazz", "Blues", "Classical", "Électronique", "Hip-Hop", "Folk", "Metal",
          "Reggae", "Soul", "Funk", "Country", "Punk", "Ambient", "Musique Française", "Schlager",
          "Latin", "World", "Soundtrack"]
WORDS = ["Love", "Night", "Song", "Dance", "Rain", "Fire", "Home", "Time", "Light", "Heart", "Café",
         "Über", "Noël", "Sommar", "Tokyo", "Paris", "Road", "River", "Morning", "Ghost", "Gold", "Ice",
         "Moon", "Sun", "Star", "Sea", "Wind", "Dust", "Glass", "Smoke"]
FORMATS = ["mp3", "mp3", "mp3", "wma", "wav"]  # by album: 60 % MP3, 20 % WMA, 20 % WAV


def cache_root():
    base = os.environ.get("XDG_CACHE_HOME") or os.path.join(os.path.expanduser("~"), ".cache")
    return os.path.join(base, "usb-media-service", "bench-tag-tree")


def encode_seeds(folder, kib):
    """One untagged file per format, about `kib` KiB of real audio each
    (128 kbit/s MP3 and WMA, 8 kHz mono 16-bit WAV: 16,000 bytes a second)."""
    seconds = kib * 1024 / 16000.0
    stereo = "audio/x-raw,rate=44100,channels=2"
    pipelines = {
        "mp3": [stereo, "!", "audioconvert", "!", "lamemp3enc", "target=bitrate", "bitrate=128", "cbr=true",
                "!", "xingmux"],
        "wma": [stereo, "!", "audioconvert", "!", "avenc_wmav2", "bitrate=128000", "!", "avmux_asf"],
        "wav": ["audio/x-raw,format=S16LE,rate=8000,channels=1", "!", "wavenc"],
    }
    seeds = {}
    for kind, tail in pipelines.items():
        rate = 8000 if kind == "wav" else 44100
        buffers = max(1, int(seconds * rate / 1024))
        path = os.path.join(folder, "seed." + kind)
        subprocess.run(["gst-launch-1.0", "-q", "audiotestsrc", "wave=sine", "volume=0.2",
                        "num-buffers=%d" % buffers, "samplesperbuffer=1024", "!"] + tail
                       + ["!", "filesink", "location=" + path], check=True)
        with open(path, "rb") as seed:
            seeds[kind] = seed.read()
    return seeds


def artist_name(index):
    name = FIRST[index % len(FIRST)] + " " + LAST[(index // len(FIRST)) % len(LAST)]
    cycle = index // (len(FIRST) * len(LAST))
    return name if cycle == 0 else "%s %d" % (name, cycle + 1)


def album_name(index):
    name = ADJECTIVES[index % len(ADJECTIVES)] + " " + NOUNS[(index // len(ADJECTIVES)) % len(NOUNS)]
    cycle = index // (len(ADJECTIVES) * len(NOUNS))
    return name if cycle == 0 else "%s %s" % (name, "I" * (cycle + 1))


def track_title(album, track):
    first = WORDS[(album * 7 + track * 3) % len(WORDS)]
    second = WORDS[(album * 11 + track * 5 + 1) % len(WORDS)]
    return "%s %s" % (first, second) if first != second else first


def safe(name):
    return name.replace("/", "-")


def album_tracks(album, artists, tracks_left):
    """The tags and relative path of each track of album number `album`."""
    count = min(TRACKS_PER_ALBUM, tracks_left)
    compilation = album % COMPILATION_EVERY == COMPILATION_EVERY - 1
    artist = artist_name(album % artists)
    album_artist = "Various Artists" if compilation else artist
    discs = 2 if album % TWO_DISCS_EVERY == 3 and count > 1 else 1
    per_disc = (count + discs - 1) // discs
    name = album_name(album)
    folder = os.path.join(safe(album_artist), safe(name))
    kind = FORMATS[album % len(FORMATS)]
    for number in range(count):
        disc, track = number // per_disc + 1, number % per_disc + 1
        title = track_title(album, number)
        tags = {
            "title": title,
            "artist": artist_name((album * 13 + number) % artists) if compilation else artist,
            "albumartist": album_artist,
            "album": name,
            "genre": GENRES[album % len(GENRES)],
            "year": str(1960 + (album * 7) % 60),
            "track": "%d/%d" % (track, min(per_disc, count - (disc - 1) * per_disc)),
            "disc": "%d/%d" % (disc, discs),
        }
        file_name = "%d%02d - %s.%s" % (disc, track, safe(title), kind) if discs > 1 else \
            "%02d - %s.%s" % (track, safe(title), kind)
        yield os.path.join(folder, file_name), kind, tags


def latin1(tags):
    try:
        for value in tags.values():
            value.encode("latin-1")
        return True
    except UnicodeEncodeError:
        return False


def wav_id3(path, tags):
    frames = {"title": TIT2, "artist": TPE1, "albumartist": TPE2, "album": TALB, "genre": TCON,
              "year": TDRC, "track": TRCK, "disc": TPOS}
    audio = WAVE(path)
    audio.add_tags()
    for key, frame in frames.items():
        audio.tags.add(frame(encoding=3, text=[tags[key]]))
    audio.save()


def write_track(path, kind, tags, seeds, album):
    with open(path, "wb") as out:
        out.write(seeds[kind])
    if kind == "mp3":
        version, encoding = (3, "utf16") if album % 3 == 0 else (4, "utf8")
        tag_files.id3v2(path, tags, version, encoding)
    elif kind == "wma":
        tag_files.asf(path, tags)
    elif latin1(tags) and album % 2 == 0:
        tag_files.riff_info(path, tags)
    else:
        wav_id3(path, tags)


def make_tree(target, tracks, kib):
    work = tempfile.mkdtemp(prefix="tag-tree-", dir=os.path.dirname(target))
    try:
        seeds = encode_seeds(work, kib)
        tree = os.path.join(work, "tree")
        artists = max(1, tracks // TRACKS_PER_ARTIST)
        made, album = 0, 0
        while made < tracks:
            for relative, kind, tags in album_tracks(album, artists, tracks - made):
                path = os.path.join(tree, relative)
                os.makedirs(os.path.dirname(path), exist_ok=True)
                write_track(path, kind, tags, seeds, album)
                made += 1
            album += 1
            if album % 500 == 0:
                print("make_tag_tree: %d of %d tracks" % (made, tracks), file=sys.stderr)
        os.rename(tree, target)
    finally:
        shutil.rmtree(work, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tracks", type=int, default=10000)
    parser.add_argument("--kib", type=int, default=40)
    args = parser.parse_args()
    target = os.path.join(cache_root(), "v%d-%d-tracks-%d-kib" % (VERSION, args.tracks, args.kib))
    if not os.path.isdir(target):
        os.makedirs(cache_root(), exist_ok=True)
        print("make_tag_tree: making %d tracks of about %d KiB in %s" % (args.tracks, args.kib, target),
              file=sys.stderr)
        make_tree(target, args.tracks, args.kib)
    print(target)


if __name__ == "__main__":
    main()
