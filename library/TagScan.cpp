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

// Folder by folder: each folder is opened once and its files are looked
// up in the store's run of that folder.
ETagScanEnd CTagScanPass::Run(const CStorageIndex& index)
{
    m_start = index.RootPath();
    m_confinedStart = ConfineToSticks(m_start);
    const uint32_t total = CountTracks(index);
    uint32_t scanned = 0;
    for (size_t folder = 0; folder < index.FolderCount(); ++folder) {
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
                folderFd = FolderDescriptor(index.FolderPath(folder));
                m_store.EnterFolder(index.FolderPath(folder));
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

int CTagScanPass::FolderDescriptor(const std::string& folder)
{
    if (folder == m_folder && m_folderFd >= 0) {
        return m_folderFd;
    }
    m_folder = folder;
    m_folderFd = -1;
    const std::optional<std::string> rest = RestBelowStart(folder);
    if (rest) {
        m_folderFd = OpenBelowStart(*rest);
        return m_folderFd;
    }
    const std::optional<SStickPath> confined = ConfineToSticks(folder);
    m_otherFolder = confined ? OpenConfinedFolder(*confined) : UniqueFd();
    m_folderFd = m_otherFolder.Get();
    return m_folderFd;
}

// A folder of the walk lies below its start, which was resolved once: the
// walk follows no link, so what follows the start in its path are real
// folders. None for any other folder, which is resolved on its own.
std::optional<std::string> CTagScanPass::RestBelowStart(const std::string& folder) const
{
    const std::string& start = m_start;
    if (!m_confinedStart || start.empty() || folder.compare(0, start.size(), start) != 0) {
        return std::nullopt;
    }
    if (start.back() != '/' && folder.size() > start.size() && folder[start.size()] != '/') {
        return std::nullopt;  // a sibling whose name merely begins like the start
    }
    const size_t rest = folder.find_first_not_of('/', start.size());
    return rest == std::string::npos ? std::string() : folder.substr(rest);
}

// Opens the folder `rest` below the start one name at a time, never following
// a link, from the deepest folder of the last one opened that it shares: the
// walk gives each folder's files together, so most folders cost one open.
int CTagScanPass::OpenBelowStart(const std::string& rest)
{
    if (m_chain.empty()) {
        UniqueFd start = OpenConfinedFolder(*m_confinedStart);
        if (!start.IsValid()) {
            return -1;
        }
        m_chain.push_back({std::string(), std::move(start)});
    }
    std::vector<std::string> names;
    for (size_t at = 0; at < rest.size();) {
        const size_t end = std::min(rest.find('/', at), rest.size());
        if (end > at) {
            names.push_back(rest.substr(at, end - at));
        }
        at = end + 1;
    }
    size_t shared = 0;
    while (shared < names.size() && shared + 1 < m_chain.size() && m_chain[shared + 1].name == names[shared]) {
        ++shared;
    }
    m_chain.resize(shared + 1);
    for (size_t i = shared; i < names.size(); ++i) {
        UniqueFd next(openat(m_chain.back().fd.Get(), names[i].c_str(),
                             O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!next.IsValid()) {
            return -1;
        }
        m_chain.push_back({names[i], std::move(next)});
    }
    return m_chain.back().fd.Get();
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
