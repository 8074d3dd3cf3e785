#!/usr/bin/python3
"""Writes tags into audio files, as many taggers in the wild do, so the tag
reader meets real ID3v1, ID3v2.3/2.4 (Latin-1, UTF-16, UTF-8 frames), ASF and
RIFF INFO tags.

Usage: tag_files.py MANIFEST.json
The manifest is a list of {"path": FILE, "format": FORMAT, "encoding": ENC,
"tags": {...}}; FORMAT is id3v1, id3v23, id3v24, asf or riff-info; ENC
(ID3v2 only) is latin1, utf16 or utf8. Tags: title, artist, albumartist,
album, genre, year, track ("3/12"), disc ("1/2"), compilation (true),
picture (true: a small PNG). Runs with Debian's /usr/bin/python3 and
python3-mutagen."""

import json
import struct
import sys

from mutagen.asf import ASF, ASFByteArrayAttribute
from mutagen.id3 import APIC, ID3, TALB, TCMP, TCON, TDRC, TIT2, TPE1, TPE2, TPOS, TRCK

# A 1x1 PNG: the smallest real picture.
PNG = bytes.fromhex(
    "89504e470d0a1a0a0000000d4948445200000001000000010806000000"
    "1f15c4890000000d49444154789c6360000002000154a24f5d0000000049454e44ae426082")

ID3V1_GENRES = {"Blues": 0, "Jazz": 8, "Pop": 13, "Rock": 17}
ID3_ENCODINGS = {"latin1": 0, "utf16": 1, "utf8": 3}


def id3v1(path, tags):
    def field(key, size):
        return str(tags.get(key, "")).encode("latin-1")[:size].ljust(size, b"\0")
    track = int(str(tags.get("track", "0")).split("/")[0] or 0)
    block = (b"TAG" + field("title", 30) + field("artist", 30) + field("album", 30) + field("year", 4)
             + b"\0" * 28 + b"\0" + bytes([track]) + bytes([ID3V1_GENRES.get(tags.get("genre"), 255)]))
    with open(path, "ab") as out:
        out.write(block)


def id3v2(path, tags, version, encoding):
    enc = ID3_ENCODINGS[encoding]
    frames = {"title": TIT2, "artist": TPE1, "albumartist": TPE2, "album": TALB, "genre": TCON,
              "year": TDRC, "track": TRCK, "disc": TPOS}
    tag = ID3()
    for key, frame in frames.items():
        if key in tags:
            tag.add(frame(encoding=enc, text=[str(tags[key])]))
    if tags.get("compilation"):
        tag.add(TCMP(encoding=enc, text=["1"]))
    if tags.get("picture"):
        tag.add(APIC(encoding=enc, mime="image/png", type=3, desc="cover", data=PNG))
    tag.save(path, v1=0, v2_version=version)


def asf_picture():
    mime = "image/png".encode("utf-16-le") + b"\0\0"
    description = b"\0\0"
    return bytes([3]) + struct.pack("<I", len(PNG)) + mime + description + PNG


def asf(path, tags):
    names = {"title": "Title", "artist": "Author", "albumartist": "WM/AlbumArtist", "album": "WM/AlbumTitle",
             "genre": "WM/Genre", "year": "WM/Year", "track": "WM/TrackNumber", "disc": "WM/PartOfSet"}
    audio = ASF(path)
    for key, name in names.items():
        if key in tags:
            audio[name] = [str(tags[key])]
    if tags.get("picture"):
        audio["WM/Picture"] = [ASFByteArrayAttribute(asf_picture())]
    audio.save()


def riff_info(path, tags):
    """Puts one LIST/INFO chunk with the tags in place of any the encoder
    wrote (GStreamer's wavenc writes an empty one, and readers take the first)."""
    ids = {"title": b"INAM", "artist": b"IART", "album": b"IPRD", "genre": b"IGNR", "year": b"ICRD",
           "track": b"IPRT"}
    body = b"INFO"
    for key, chunk_id in ids.items():
        if key in tags:
            text = str(tags[key]).encode("latin-1") + b"\0"
            body += chunk_id + struct.pack("<I", len(text)) + text + (b"\0" if len(text) % 2 else b"")
    info = b"LIST" + struct.pack("<I", len(body)) + body
    with open(path, "rb") as source:
        data = source.read()
    assert data[:4] == b"RIFF" and data[8:12] == b"WAVE", path
    chunks, at = [], 12
    while at + 8 <= len(data):
        chunk_id, size = data[at:at + 4], struct.unpack("<I", data[at + 4:at + 8])[0]
        chunk = data[at:at + 8 + size + (size % 2)]
        if not (chunk_id == b"LIST" and data[at + 8:at + 12] == b"INFO"):
            chunks.append((chunk_id, chunk))
        at += 8 + size + (size % 2)
    out, placed = b"", False
    for chunk_id, chunk in chunks:
        if chunk_id == b"data" and not placed:
            out, placed = out + info, True
        out += chunk
    if not placed:
        out += info
    with open(path, "wb") as target:
        target.write(b"RIFF" + struct.pack("<I", 4 + len(out)) + b"WAVE" + out)


def main():
    with open(sys.argv[1], encoding="utf-8") as manifest:
        entries = json.load(manifest)
    for entry in entries:
        kind, tags = entry["format"], entry.get("tags", {})
        if kind == "id3v1":
            id3v1(entry["path"], tags)
        elif kind in ("id3v23", "id3v24"):
            id3v2(entry["path"], tags, 3 if kind == "id3v23" else 4, entry.get("encoding", "utf8"))
        elif kind == "asf":
            asf(entry["path"], tags)
        elif kind == "riff-info":
            riff_info(entry["path"], tags)
        else:
            sys.exit("unknown format " + kind)


if __name__ == "__main__":
    main()
