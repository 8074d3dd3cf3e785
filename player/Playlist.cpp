#include "player/Playlist.h"

#include "player/Navigation.h"

#include <cstdlib>
#include <utility>

void CPlaylist::Clear()
{
    m_records.clear();
    m_standing = EStanding::kInForce;
}

void CPlaylist::Replace(std::vector<CFile> records, uint32_t index)
{
    m_records = std::move(records);
    m_standing = EStanding::kInForce;
    m_index = index;
}

void CPlaylist::FillAround(const std::vector<CFile>& source, const CFile& target,
                           const std::function<void(bool trueMatch)>& onMatch)
{
    SPlaylistMatch match = MatchPlaylist(source, target, onMatch);
    Replace(std::move(match.files), match.index);
}

void CPlaylist::Disown()
{
    if (m_standing == EStanding::kWithdrawn) {
        Clear();  // nothing readable and nothing counted
        return;
    }
    m_standing = EStanding::kDisowned;
}

void CPlaylist::Withdraw()
{
    if (m_standing == EStanding::kDisowned) {
        Clear();  // it counted as none already
        return;
    }
    m_standing = EStanding::kWithdrawn;
}

uint32_t CPlaylist::Count() const
{
    return m_standing == EStanding::kDisowned ? 0 : static_cast<uint32_t>(m_records.size());
}

uint32_t CPlaylist::ReadableCount() const
{
    return m_standing == EStanding::kWithdrawn ? 0 : static_cast<uint32_t>(m_records.size());
}

uint32_t CPlaylist::TrackNumber() const
{
    return Count() == 0 ? 0 : m_index + 1;
}

const CFile* CPlaylist::Current() const
{
    return m_index < ReadableCount() ? &m_records[m_index] : nullptr;
}

const CFile* CPlaylist::CurrentInForce() const
{
    return m_index < Count() ? Current() : nullptr;
}

uint32_t CPlaylist::Recount()
{
    if (m_standing == EStanding::kWithdrawn) {
        m_records.clear();
    }
    m_standing = EStanding::kInForce;
    return static_cast<uint32_t>(m_records.size());
}

const CFile* CPlaylist::MoveTo(uint32_t index)
{
    if (ReadableCount() == 0) {
        return nullptr;
    }
    m_index = index < ReadableCount() ? index : 0;
    return &m_records[m_index];
}

uint32_t CPlaylist::NextIndex(bool automatic)
{
    const SPlaylistPosition at{m_index, Count(), m_repeatMode, m_shuffle, m_shuffleIndex};
    const SNavigationStep step = NextPosition(at, m_shuffleOrder, automatic);
    m_shuffleIndex = step.shuffleIndex;
    return step.index;
}

uint32_t CPlaylist::PreviousIndex(bool automatic)
{
    const SPlaylistPosition at{m_index, Count(), m_repeatMode, m_shuffle, m_shuffleIndex};
    const SNavigationStep step = PreviousPosition(at, m_shuffleOrder, automatic);
    m_shuffleIndex = step.shuffleIndex;
    return step.index;
}

void CPlaylist::SetShuffle(bool enabled)
{
    m_shuffle = enabled;
    if (enabled) {
        Reshuffle();
    }
}

// Driven by the C library's rand(), so a seeded run repeats its order.
void CPlaylist::Reshuffle()
{
    m_shuffleOrder = MakeShuffleOrder(ReadableCount(), &std::rand);
    m_shuffleIndex = 0;
}

void CPlaylist::PutCurrentFirstInShuffle()
{
    MoveToFront(m_shuffleOrder, m_index);
}
