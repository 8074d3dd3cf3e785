#pragma once

#include "library/StickFolderOpener.h"
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
// end). The files are stamped first (CIndexStamps), unless the store has
// verified its known files during the walk (CTagStore::VerifyKnownFiles). A
// file to stat or read is opened from its folder, itself opened confined to
// the stick (CStickFolderOpener), without following a link, so a link put
// on the stick never leads the reader off it, and no file costs a path
// resolution of its own. `progress` hears the count done after each file. The pass ends early when `stop` is
// raised or the service terminates, and fails after kMaxReadErrorsInARow
// files in a row could not be read (a stick failing under the reader).
class CTagScanPass {
public:
    static constexpr uint32_t kMaxReadErrorsInARow = 20;
    using Progress = std::function<void(uint32_t scanned, uint32_t total)>;

    CTagScanPass(CTagStore& store, const std::atomic<bool>& stop, Progress progress);

    ETagScanEnd Run(const CStorageIndex& index);

    // The audio files of `index` (its records that are not folders).
    static uint32_t CountTracks(const CStorageIndex& index);

private:
    // Handles the file `name` of `folder`, stamped `stamp` (null when it
    // could not be stat'ed); false when the store failed.
    bool Feed(const std::string& folder, std::string_view name, const SFileStamp* stamp);
    bool Stopping() const;
    // The stamp of `name` in `folder` taken now; null when it cannot be
    // stat'ed as a regular file. Valid until the next call.
    const SFileStamp* StatNow(const std::string& folder, std::string_view name);

    CTagStore& m_store;
    const std::atomic<bool>& m_stop;
    const Progress m_progress;
    uint32_t m_errorsInARow = 0;
    std::optional<CStickFolderOpener> m_folders;  // for the index being run
    std::string m_name;  // the file being fed, NUL-terminated for the calls
    SFileStamp m_stamp;  // StatNow's
};
