#pragma once

// The repeat and shuffle rules of next and previous, and the shuffle order,
// computed from plain values so they can be checked on their own.

#include "library/File.h"

#include <cstdint>
#include <functional>
#include <vector>

// Where the player stands in its playlist.
struct SPlaylistPosition {
    uint32_t index = 0;         // current entry of the playlist
    uint32_t playlistSize = 0;  // entries in force; an index at or past it means none
    int32_t repeatMode = 0;     // 0 none, 1 one, 2 all; other values act like 0
    bool shuffle = false;
    int32_t shuffleIndex = 0;   // position of the current entry in the shuffle order
};

// The entry to go to (at or past playlistSize: there is none) and the
// position in the shuffle order to keep afterwards.
struct SNavigationStep {
    uint32_t index;
    int32_t shuffleIndex;
};

// `automatic` is true for the advance at the end of a track, false for a
// user's next or previous.
SNavigationStep NextPosition(const SPlaylistPosition& at, const std::vector<uint32_t>& shuffleOrder,
                             bool automatic);
SNavigationStep PreviousPosition(const SPlaylistPosition& at, const std::vector<uint32_t>& shuffleOrder,
                                 bool automatic);

// 0..count-1 shuffled the way the standard library's random_shuffle does
// with the C library's rand(): for i in 1..count-1 swap i with random() % (i + 1).
std::vector<uint32_t> MakeShuffleOrder(uint32_t count, int (*random)());

// Moves the first occurrence of `value` to the front, keeping the order of
// the others; nothing happens when it is absent.
void MoveToFront(std::vector<uint32_t>& order, uint32_t value);

// A playlist made of the files of a list (folders are skipped) and the
// position of the chosen file in it.
struct SPlaylistMatch {
    std::vector<CFile> files;
    uint32_t index = kNoEntryId;  // kNoEntryId: the chosen file is not there
};

// The chosen file is the last file that is `target` itself (same id, or
// same folder path + name); before such a match, a file of the same name
// stands in for it (the last one seen). `onMatch` hears of every match,
// with true for a true match.
SPlaylistMatch MatchPlaylist(const std::vector<CFile>& source, const CFile& target,
                             const std::function<void(bool trueMatch)>& onMatch);
