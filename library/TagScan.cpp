#include "library/TagScan.h"

#include "library/ScanStop.h"
#include "library/StickPaths.h"
#include "library/TagReader.h"

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

bool CTagScanPass::Feed(const CFile& file)
{
    // A file that cannot be located or stat'ed is still stored (titled by
    // its name, never matching a later stamp) and counts as a read error.
    const std::optional<std::string> location = TrackLocation(file.m_path, file.m_name);
    SFileStamp stamp;
    bool unreadable = !location || !ReadFileStamp(*location, stamp);
    const auto read = [&](const std::string&) {
        STrackTags tags = location && !unreadable ? ReadTags(*location) : STrackTags{};
        if (!location || unreadable) {
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
