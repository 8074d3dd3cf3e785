#pragma once

#include "library/File.h"

#include <cstdint>
#include <functional>
#include <vector>

// The tracks being played and where playback stands in them: the records,
// the current entry, the repeat mode, shuffle and its order, and the rules
// that pick the next and the previous entry. Plain state with no lock: the
// player guards it with its own.
//
// "How many entries count" is derived from the records and their standing,
// never kept as a second number: after a stick removal the records stay
// readable but count as no playlist (Disown), and a play that fails leaves
// the count and position clients read as they were while its records are
// gone (Withdraw). The next jump (GoTo) counts the records again.
class CPlaylist {
public:
    // No records; the current index is left as it was.
    void Clear();
    // The playlist becomes `records`, `index` the current entry (kNoEntryId:
    // none was chosen).
    void Replace(std::vector<CFile> records, uint32_t index);
    // The files of `source` (folders skipped) around `target`, which becomes
    // the current entry (see MatchPlaylist in player/Navigation.h).
    void FillAround(const std::vector<CFile>& source, const CFile& target,
                    const std::function<void(bool trueMatch)>& onMatch);
    // The stick of the current track went away: the records stay, a restart
    // still reads the current one, but they count as no playlist.
    void Disown();
    // A play is starting over: the records are gone, the count stays what
    // clients last read until the new list is in place or a jump recounts.
    void Withdraw();

    // Entries in force; 0 means no playlist.
    uint32_t Count() const;
    uint32_t Index() const { return m_index; }
    // The 1-based number clients read: 0 without a playlist.
    uint32_t TrackNumber() const;
    // The current record, or null when the index lies past the readable
    // records; CurrentInForce also asks that it counts.
    const CFile* Current() const;
    const CFile* CurrentInForce() const;

    // A jump counts the records again: a disowned or withdrawn list ends
    // here. Returns the new count.
    uint32_t Recount();
    // Makes `index` current, the first entry for an index past the records;
    // returns its record, null when there are no records.
    const CFile* MoveTo(uint32_t index);
    // Where next and previous lead by the repeat mode and shuffle; an index
    // at or past Count() means there is none. `automatic` is the advance at
    // the end of a track. Both move the shuffle position.
    uint32_t NextIndex(bool automatic);
    uint32_t PreviousIndex(bool automatic);

    int32_t RepeatMode() const { return m_repeatMode; }
    // Any value is kept as given; other than 0, 1 and 2 it acts like 0.
    void SetRepeatMode(int32_t mode) { m_repeatMode = mode; }
    bool IsShuffle() const { return m_shuffle; }
    // Switching on shuffles anew; switching off restores nothing, playback
    // goes on in list order from the current entry.
    void SetShuffle(bool enabled);
    // A new shuffle order of the readable records, from its first position.
    void Reshuffle();
    // The current entry goes first in the shuffle order, so the order plays
    // it before the others (called once a chosen track has started).
    void PutCurrentFirstInShuffle();

private:
    enum class EStanding { kInForce, kDisowned, kWithdrawn };

    uint32_t ReadableCount() const;

    std::vector<CFile> m_records;
    EStanding m_standing = EStanding::kInForce;
    uint32_t m_index = 0;
    int32_t m_repeatMode = 0;
    bool m_shuffle = false;
    std::vector<uint32_t> m_shuffleOrder;
    int32_t m_shuffleIndex = 0;
};
