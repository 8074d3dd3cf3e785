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
        tracks += index.At(position).m_isFolder ? 0 : 1;
    }
    return tracks;
}

bool CTagScanPass::Stopping() const
{
    return m_stop.load(std::memory_order_relaxed) || ScanStopRequested();
}

ETagScanEnd CTagScanPass::Run(const CStorageIndex& index)
{
    m_start = index.RootPath();
    m_confinedStart = ConfineToSticks(m_start);
    const uint32_t total = CountTracks(index);
    uint32_t scanned = 0;
    for (size_t position = 0; position < index.Size(); ++position) {
        if (Stopping()) {
            return ETagScanEnd::kStopped;
        }
        const CFile file = index.At(position);
        if (file.m_isFolder) {
            continue;
        }
        if (!Feed(file)) {
            return ETagScanEnd::kFailed;
        }
        if (m_errorsInARow >= kMaxReadErrorsInARow) {
            return ETagScanEnd::kFailed;
        }
        m_progress(++scanned, total);
    }
    return ETagScanEnd::kComplete;
}

int CTagScanPass::FolderDescriptor(const std::string& folder)
{
    if (folder == m_folder && m_folderFd.IsValid()) {
        return m_folderFd.Get();
    }
    m_folder = folder;
    m_folderFd = UniqueFd();
    const std::optional<SStickPath> confined = Confined(folder);
    if (confined) {
        m_folderFd = OpenConfinedFolder(*confined);
    }
    return m_folderFd.Get();
}

// A folder of the walk lies below its start, which was resolved once: the
// walk follows no link, so the rest of the path is made of real folders,
// which OpenConfinedFolder opens one by one without following links. Any
// other folder is resolved on its own.
std::optional<SStickPath> CTagScanPass::Confined(const std::string& folder) const
{
    const std::string& start = m_start;
    if (!m_confinedStart || folder.compare(0, start.size(), start) != 0) {
        return ConfineToSticks(folder);
    }
    if (!start.empty() && start.back() != '/' && folder.size() > start.size() && folder[start.size()] != '/') {
        return ConfineToSticks(folder);  // a sibling whose name merely begins like the start
    }
    const size_t rest = folder.find_first_not_of('/', start.size());
    SStickPath below = *m_confinedStart;
    if (rest != std::string::npos) {
        below.resolved += "/" + folder.substr(rest);
    }
    return below;
}

bool CTagScanPass::Feed(const CFile& file)
{
    // A file that cannot be stat'ed as a regular file of its folder is still
    // stored (titled by its name, never matching a later stamp) and counts
    // as a read error.
    const int folder = FolderDescriptor(file.m_path);
    struct stat info {};
    bool unreadable = folder < 0 || fstatat(folder, file.m_name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 ||
                      !S_ISREG(info.st_mode);
    const SFileStamp stamp = unreadable ? SFileStamp{} : FileStampOf(info);
    const auto read = [&](const std::string&) {
        STrackTags tags;
        const UniqueFd opened(unreadable ? -1
                                         : openat(folder, file.m_name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        if (opened.IsValid()) {
            tags = ReadTagsOfOpenFile(opened.Get(), file.m_name);
        } else {
            tags.unreadable = true;
        }
        unreadable = tags.unreadable;
        return tags;
    };
    const CTagStore::EAddOutcome outcome = m_store.AddFile(file.m_path, file.m_name, stamp, read);
    if (outcome == CTagStore::EAddOutcome::Failed) {
        return false;
    }
    m_errorsInARow = unreadable ? m_errorsInARow + 1 : 0;
    return true;
}
