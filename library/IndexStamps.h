#pragma once

#include "library/StickFolderOpener.h"
#include "library/StorageIndex.h"
#include "library/TagStore.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// The stamps (size and modification time) of every audio file of a storage
// index. On a stick scanned before, a stat per file is most of a scan, and
// stats spread over cores well: with more than one core, a second thread on
// another core can take runs of folders beside the calling one. Each folder is
// opened once, confined to its stick (CStickFolderOpener), and its files are
// stat'ed from it without following a link. Stopping early leaves the rest
// unstamped.
class CIndexStamps {
public:
    // Stamps the files of `index` before returning, on two cores when
    // `spread` (a stick scanned before: a first scan reads every file, and
    // its stats are nothing beside the reads); a raised `stop` or a service
    // termination ends the work early.
    CIndexStamps(const CStorageIndex& index, const std::atomic<bool>& stop, bool spread);

    // The stamp of the record at `position`; null when it could not be
    // stat'ed as a regular file of its folder (or was left unstamped).
    const SFileStamp* At(size_t position) const { return m_taken[position] != 0 ? &m_stamps[position] : nullptr; }

private:
    static constexpr size_t kFoldersPerRun = 64;

    // Called on each thread; the runs are shared through `nextRun`.
    void StampRuns(const CStorageIndex& index, std::atomic<size_t>& nextRun, const std::atomic<bool>& stop);
    void StampFolder(const CStorageIndex& index, size_t folder, CStickFolderOpener& opener, std::string& name);

    std::vector<SFileStamp> m_stamps;  // by record position
    std::vector<uint8_t> m_taken;      // 1 where m_stamps holds a stamp
};
