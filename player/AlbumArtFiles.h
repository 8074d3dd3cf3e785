#pragma once

#include "core/Mutex.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

// The folder of cover image files. Names follow one sequence, art.dat, then
// art0.dat, art1.dat, ...; only the newest kKeptFiles of them stay, so a
// client that asks for art again and again cannot fill the device's storage.
//
// The next number is kept in memory: the folder is read once, at the first
// write (which also removes what an earlier run left beyond the newest
// kKeptFiles), and then every write costs one create and at most one unlink
// however many images came before. Files that do not bear one of these names
// are never touched; a name someone else created meanwhile is skipped, and
// that file is left alone too.
class CAlbumArtFiles {
public:
    static constexpr size_t kKeptFiles = 16;
    // Larger images are not written at all: a cover of tens of MiB would
    // cost the device that much storage and time per request.
    static constexpr size_t kMaxImageBytes = 16u * 1024u * 1024u;

    // `keptFiles` bounds the folder (kKeptFiles for the player's covers).
    explicit CAlbumArtFiles(std::string directory, size_t keptFiles = kKeptFiles);

    CAlbumArtFiles(const CAlbumArtFiles&) = delete;
    CAlbumArtFiles& operator=(const CAlbumArtFiles&) = delete;

    // Writes `bytes` to the next name and returns its path; "" when the
    // image is too large or no file could be created there. A missing folder
    // is created (mode 0770).
    std::string Write(const std::vector<uint8_t>& bytes) EXCLUDES(m_mutex);

    // The name of the `sequence`-th file: 0 is "art.dat", n is "art<n-1>.dat".
    static std::string FileName(uint64_t sequence);
    // The sequence number of one of these names; false for any other name
    // (including "art007.dat", which the sequence never makes).
    static bool ParseFileName(const std::string& name, uint64_t& sequence);

private:
    bool LearnFolderLocked() REQUIRES(m_mutex);
    bool CreateNextLocked(const std::vector<uint8_t>& bytes, std::string& path) REQUIRES(m_mutex);
    void RemoveBeyondKeptLocked() REQUIRES(m_mutex);
    std::string PathOf(uint64_t sequence) const;

    const std::string m_directory;
    const size_t m_keptFiles;

    // Guards what the service knows of the folder (below), and so serialises
    // the writers: two workers never pick the same name. A leaf lock.
    CMutex m_mutex;
    bool m_learned GUARDED_BY(m_mutex) = false;  // the folder was read
    uint64_t m_next GUARDED_BY(m_mutex) = 0;     // sequence number of the next name to try
    // Sequence numbers of the files kept, oldest first.
    std::deque<uint64_t> m_kept GUARDED_BY(m_mutex);
};
