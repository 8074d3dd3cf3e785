#pragma once

#include "player/AlbumArtFiles.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

class CTagLibrary;

// The covers of the tag library's albums, for "artFilePath": each album's
// image is written once into a folder of its own beside the player's covers
// and bounded like it (the newest kKeptFiles stay; one evicted is written
// again when asked for). Used by the request thread alone.
class CLibraryArt {
public:
    static constexpr size_t kKeptFiles = 256;

    explicit CLibraryArt(std::string directory);

    // The file of the album's cover, written at the first ask; "" when the
    // album has none.
    std::string PathOf(CTagLibrary& library, uint32_t albumId);

private:
    std::string Write(CTagLibrary& library, uint32_t albumId);

    const std::string m_directory;
    CAlbumArtFiles m_files;
    // Album -> its cover's file ("" when it has none), for the database the
    // library was in when they were found.
    std::string m_databasePath;
    std::map<uint32_t, std::string> m_paths;
};
