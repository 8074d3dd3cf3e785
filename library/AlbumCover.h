#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// The image of an album: the first picture embedded in a track (ID3v2 APIC in
// MP3 and WAV, WM/Picture in WMA, FLAC and MP4 covers), else a "cover.jpg"
// or "folder.jpg" beside the tracks. Images larger than `maxBytes` are not
// taken. Files are opened where the player would open them, never off the
// stick (TrackLocation). Empty when there is none.
std::vector<uint8_t> ReadEmbeddedCover(const std::string& folder, const std::string& name, size_t maxBytes);
std::vector<uint8_t> ReadFolderCover(const std::string& folder, size_t maxBytes);
