#include "library/TagScan.h"

#include "library/IndexStamps.h"
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

// The stamps first (on two cores when there are), unless the store checked
// its known files while the walk went on; then folder by folder: the files
// are looked up in the store's run of their folder, and a folder is opened
// again only for a file to stat or read.
ETagScanEnd CTagScanPass::Run(const CStorageIndex& index)
{
    const bool verified = m_store.KnownFilesVerified();
    std::optional<CIndexStamps> stamps;
    if (!verified) {
        stamps.emplace(index, m_stop, m_store.KnowsFiles());
    }
    m_folders.emplace(index.RootPath());
    const uint32_t total = CountTracks(index);
    uint32_t scanned = 0;
    for (size_t folder = 0; folder < index.FolderCount(); ++folder) {
        const std::string& path = index.FolderPath(folder);
        bool entered = false;
        for (const uint32_t position : index.FolderRecords(folder)) {
            if (index.IsFolderAt(position)) {
                continue;
            }
            if (Stopping()) {
                return ETagScanEnd::kStopped;
            }
            if (!entered) {
                m_store.EnterFolder(path);
                entered = true;
            }
            const std::string_view name = index.NameAt(position);
            if (verified && m_store.SeeVerifiedFile(name)) {
                m_errorsInARow = 0;
            } else if (!Feed(path, name, stamps ? stamps->At(position) : StatNow(path, name))) {
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

const SFileStamp* CTagScanPass::StatNow(const std::string& folder, std::string_view name)
{
    m_name.assign(name);
    const int folderFd = m_folders->Open(folder);
    struct stat info {};
    if (folderFd < 0 || fstatat(folderFd, m_name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(info.st_mode)) {
        return nullptr;
    }
    m_stamp = FileStampOf(info);
    return &m_stamp;
}

bool CTagScanPass::Feed(const std::string& folder, std::string_view name, const SFileStamp* stamp)
{
    // A file that could not be stat'ed as a regular file of its folder is
    // still stored (titled by its name, never matching a later stamp) and
    // counts as a read error.
    bool unreadable = stamp == nullptr;
    const auto read = [&] {
        m_name.assign(name);
        const int folderFd = unreadable ? -1 : m_folders->Open(folder);
        UniqueFd opened(folderFd < 0 ? -1 : openat(folderFd, m_name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        const STrackTags tags = ReadTagsOfOpenFile(std::move(opened), m_name);
        unreadable = tags.unreadable;
        return tags;
    };
    if (m_store.AddFile(name, unreadable ? SFileStamp{} : *stamp, read) == CTagStore::EAddOutcome::Failed) {
        return false;
    }
    m_errorsInARow = unreadable ? m_errorsInARow + 1 : 0;
    return true;
}
