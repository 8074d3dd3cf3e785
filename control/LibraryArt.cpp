#include "control/LibraryArt.h"

#include "library/AlbumCover.h"
#include "library/TagLibrary.h"

#include <sys/stat.h>
#include <unistd.h>

#include <utility>
#include <vector>

namespace {
// Beyond this many albums the remembered answers start over, so a stick of
// countless albums cannot grow the map without end.
constexpr size_t kMaxRemembered = 65536;
}  // namespace

CLibraryArt::CLibraryArt(std::string directory)
    : m_directory(directory), m_files(std::move(directory), kKeptFiles)
{
}

std::string CLibraryArt::PathOf(CTagLibrary& library, uint32_t albumId)
{
    const std::string databasePath = library.DatabasePath();
    if (databasePath != m_databasePath || m_paths.size() >= kMaxRemembered) {
        m_paths.clear();
        m_databasePath = databasePath;
    }
    const auto known = m_paths.find(albumId);
    if (known != m_paths.end() && (known->second.empty() || access(known->second.c_str(), F_OK) == 0)) {
        return known->second;
    }
    std::string path = Write(library, albumId);
    m_paths[albumId] = path;
    return path;
}

std::string CLibraryArt::Write(CTagLibrary& library, uint32_t albumId)
{
    const SAlbumArtSource source = library.Read([albumId](CTagStore& store) { return store.AlbumArtSource(albumId); });
    std::vector<uint8_t> image;
    if (!source.embeddedInFile.empty()) {
        const size_t slash = source.embeddedInFile.rfind('/');
        image = ReadEmbeddedCover(source.embeddedInFile.substr(0, slash), source.embeddedInFile.substr(slash + 1),
                                  CAlbumArtFiles::kMaxImageBytes);
    }
    if (image.empty() && !source.folder.empty()) {
        image = ReadFolderCover(source.folder, CAlbumArtFiles::kMaxImageBytes);
    }
    if (image.empty()) {
        return std::string();
    }
    // The folder lies inside the player's, which may not exist yet.
    const size_t parent = m_directory.rfind('/');
    if (parent != std::string::npos && parent > 0) {
        mkdir(m_directory.substr(0, parent).c_str(), 0770);
    }
    return m_files.Write(image);
}
