#pragma once

#include "core/PosixHandles.h"

#include <cstdint>
#include <string>

// What the tag library keeps of one audio file's tags. Texts are UTF-8; an
// absent tag is "" or 0.
struct STrackTags {
    std::string title;
    std::string artist;
    std::string albumArtist;
    std::string album;
    std::string genre;
    uint32_t year = 0;
    uint32_t trackNumber = 0;
    uint32_t trackCount = 0;  // the "12" of "3/12"
    uint32_t discNumber = 0;
    uint32_t discCount = 0;
    uint32_t durationSeconds = 0;  // whole seconds, truncated
    bool compilation = false;      // tagged as part of a compilation
    bool hasPicture = false;       // an embedded cover image
    // The file could not be opened or parsed: `title` is then its file name
    // and nothing else is set, so it still lists and plays as a track.
    bool unreadable = false;
};

// Reads the tags of the file at `path` with TagLib: ID3v1 and ID3v2 (MP3),
// ASF (WMA), and for WAV the ID3v2 chunk, with the first RIFF LIST/INFO
// chunk filling what ID3v2 leaves empty. Never throws.
STrackTags ReadTags(const std::string& path);

// The same for the file open on `file` (closed here) whose name is `name`:
// its extension picks the format, else its content does. The scan reads the
// files it opened itself, without following a link. A file whose ID3v2 tag,
// ASF header or WAV tag chunk claims more than kMaxTagBlockBytes is not read
// (unreadable): TagLib would allocate all of it.
STrackTags ReadTagsOfOpenFile(UniqueFd file, const std::string& name);

constexpr uint64_t kMaxTagBlockBytes = 16u * 1024u * 1024u;

// The leading number of `text` and the one after its "/" ("3/12" gives 3
// and 12, "7" gives 7 and 0, "" or "x" gives 0 and 0).
void ParseNumberPair(const std::string& text, uint32_t& number, uint32_t& count);
