#pragma once

#include "core/PosixHandles.h"
#include "library/StickPaths.h"
#include "library/StorageIndex.h"
#include "library/TagStore.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

enum class ETagScanEnd { kComplete, kStopped, kFailed };

// One pass of a tag scan: every audio file of `index`, folder by folder in
// path order, goes to `store` (whose scan the caller has begun and will
// end). Each folder is opened once, confined to its stick (ConfineToSticks,
// OpenConfinedFolder), and its files are stat'ed and opened from it without
// following a link, so a link put on the stick never leads the reader off
// it, and no file costs a path resolution of its own. `progress` hears the
// count done after each file. The pass ends early when `stop` is raised or the service
// terminates, and fails after kMaxReadErrorsInARow files in a row could not
// be read (a stick failing under the reader).
class CTagScanPass {
public:
    static constexpr uint32_t kMaxReadErrorsInARow = 20;
    using Progress = std::function<void(uint32_t scanned, uint32_t total)>;

    CTagScanPass(CTagStore& store, const std::atomic<bool>& stop, Progress progress);

    ETagScanEnd Run(const CStorageIndex& index);

    // The audio files of `index` (its records that are not folders).
    static uint32_t CountTracks(const CStorageIndex& index);

private:
    // Handles the file `name` of the folder open on `folder` (-1 when it
    // could not be opened); false when the store failed.
    bool Feed(int folder, std::string_view name);
    bool Stopping() const;
    // The open folder `folder`, opened anew when it is not the last one.
    int FolderDescriptor(const std::string& folder);
    std::optional<std::string> RestBelowStart(const std::string& folder) const;
    int OpenBelowStart(const std::string& rest);

    CTagStore& m_store;
    const std::atomic<bool>& m_stop;
    const Progress m_progress;
    uint32_t m_errorsInARow = 0;
    std::string m_start;  // where the index's walk started, and that resolved
    std::optional<SStickPath> m_confinedStart;
    // The folders open from the start down to the last folder below it (the
    // start's own entry has no name), and the last folder outside it.
    struct SOpenFolder {
        std::string name;
        UniqueFd fd;
    };
    std::vector<SOpenFolder> m_chain;
    UniqueFd m_otherFolder;
    std::string m_folder;  // the folder of the last file, open on m_folderFd
    int m_folderFd = -1;
    std::string m_name;  // the file being fed, NUL-terminated for the calls
};
