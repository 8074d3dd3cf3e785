#pragma once

// A stick of tagged audio for the tag library's tests: real MP3, WMA and WAV
// files from MediaFactory, tagged at test time by tests/support/tag_files.py
// (mutagen) the way common taggers write them.

#include "tests/support/TempDir.h"

#include <map>
#include <string>
#include <vector>

namespace testing_support {

struct STaggedFile {
    std::string relativePath;  // below the stick
    std::string format;        // id3v1, id3v23, id3v24, asf, riff-info, or "" for no tag
    std::string encoding;      // of ID3v2 frames: latin1, utf16, utf8
    std::map<std::string, std::string> tags;  // see tag_files.py; "compilation", "picture": "true"
};

// The corpus below: every form of tag the reader must know, two discs, a
// compilation, one album name by two artists, non-ASCII names, no tags.
const std::vector<STaggedFile>& Corpus();

// Makes the files of `files` below `root` and tags them; a file whose
// format is "corrupt" gets bytes no reader can parse. Fails the test (fatal)
// when the tagger fails.
void MakeTaggedFiles(const std::string& root, const std::vector<STaggedFile>& files);

// Every file below `root` with an audio extension, sorted.
std::vector<std::string> AudioFilesBelow(const std::string& root);

}  // namespace testing_support
