#include "library/TagScan.h"

#include "library/ScanStop.h"
#include "library/StickPaths.h"
#include "library/TagReader.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <optional>
#include <string>
#include <utility>

CTagScanPass::CTagScanPass(CTagStore& store, const std::atomic<bool>& stop, Progress progress)
    : m_store(store), m_stop(stop), m_progress(std::move(progress))
{
}

uint32_t CTagScanPass::CountTracks(const CStorageIndex& index)
{
    uint32_t tracks = 0;
    for (size_t position = 0; position < index.Size(); ++position) {
        tracks += index.IsFolderAt(position) ? 0 : 1;
    }
    return tracks;
}

bool CTagScanPass::Stopping() const
{
    return m_stop.load(std::memory_order_relaxed) || ScanStopRequested();
}

// Folder by folder: each folder is opened once, and its files are looked
// up in the store's run of that folder.
ETagScanEnd CTagScanPass::Run(const CStorageIndex& index)
{
    m_folders.emplace(index.RootPath());
    const uint32_t total = CountTracks(index);
    uint32_t scanned = 0;
    for (size_t folder = 0; folder < index.FolderCount(); ++folder) {
        const std::string& path = index.FolderPath(folder);
        int folderFd = -1;
        bool entered = false;
        for (const uint32_t position : index.FolderRecords(folder)) {
            if (index.IsFolderAt(position)) {
                continue;
            }
            if (Stopping()) {
                return ETagScanEnd::kStopped;
            }
            if (!entered) {
                folderFd = m_folders->Open(path);
                m_store.EnterFolder(path);
                entered = true;
            }
            if (!Feed(folderFd, index.NameAt(position))) {
                return ETagScanEnd::kFailed;
            }
            if (m_errorsInARow >= kMaxReadErrorsInARow) {
                return ETagScanEnd::kFailed;
            }
            m_progress(++scanned, total);
        }
    }
    return ETagScanEnd::kComplete;
}

bool CTagScanPass::Feed(int folder, std::string_view name)
{
    // A file that cannot be stat'ed as a regular file of its folder is still
    // stored (titled by its name, never matching a later stamp) and counts
    // as a read error.
    m_name.assign(name);
    struct stat info {};
    bool unreadable = folder < 0 || fstatat(folder, m_name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 ||
                      !S_ISREG(info.st_mode);
    const SFileStamp stamp = unreadable ? SFileStamp{} : FileStampOf(info);
    const auto read = [&] {
        UniqueFd opened(unreadable ? -1 : openat(folder, m_name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        const STrackTags tags = ReadTagsOfOpenFile(std::move(opened), m_name);
        unreadable = tags.unreadable;
        return tags;
    };
    if (m_store.AddFile(name, stamp, read) == CTagStore::EAddOutcome::Failed) {
        return false;
    }
    m_errorsInARow = unreadable ? m_errorsInARow + 1 : 0;
    return true;
}
