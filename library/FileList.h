#pragma once

#include "core/Error.h"
#include "library/File.h"
#include "library/TreeWalk.h"

#include <cstdint>
#include <string>
#include <vector>

// A list of file records filled by walking a folder tree, sorted folders
// first, then files, each by name in byte order. A failure to open the root
// folder is reported through the list's own status.
class CFileList : public virtual CError {
public:
    CFileList() = default;
    CFileList(const CFileList&) = default;
    CFileList& operator=(const CFileList&) = default;

    // Destroys all records, forgets the root path, clears the status.
    void Clear();

    // Walks `path` and collects the audio files (IsAudioFileName: ".mp3",
    // ".wma", ".wav" in any case, unless USBMEDIA_FORMATS names others) whose
    // lower-cased name holds the lower-cased `searchText`, and the folders
    // that hold audio: all of them with `recursive` and `withFolders`, only
    // the first level without `recursive`. Hidden names, links, other
    // non-regular entries and unreadable subfolders are skipped, and so is a
    // folder the walk is already inside (a bind mount loop). Sorts the result
    // when the walk succeeded. The walk keeps its own stack, so any depth is
    // safe. `scope` says where it may start (see EWalkScope).
    bool Scan(const std::string& path, const std::string& searchText, bool recursive, bool withFolders,
              bool flag, int dirLevel = 0, EWalkScope scope = EWalkScope::kAnyFolder);

    // Folders first, then files, each run by name in byte order.
    void Sort();

    // A copy of the first record with `id`, or the root record.
    CFile FindById(uint32_t id) const;

    size_t Size() const { return m_files.size(); }
    bool Empty() const { return m_files.empty(); }

    std::vector<CFile> m_files;
    std::string m_rootPath;
    bool m_flag = false;
};
