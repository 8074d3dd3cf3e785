#include "player/Navigation.h"

#include <algorithm>
#include <utility>

namespace {
constexpr int32_t kRepeatOne = 1;
constexpr int32_t kRepeatAll = 2;

// The playlist entry at a position of the shuffle order; none when the
// position lies outside the order.
uint32_t EntryAt(const std::vector<uint32_t>& order, int64_t position, uint32_t playlistSize)
{
    if (position < 0 || position >= static_cast<int64_t>(order.size())) {
        return playlistSize;
    }
    return order[static_cast<size_t>(position)];
}

uint32_t NextInOrder(const SPlaylistPosition& at, bool automatic)
{
    if (at.repeatMode == kRepeatOne) {
        return automatic ? at.index : at.index + 1;
    }
    const uint32_t next = at.index + 1;
    if (next < at.playlistSize) {
        return next;
    }
    return at.repeatMode == kRepeatAll ? 0 : next;
}

uint32_t PreviousInOrder(const SPlaylistPosition& at, bool automatic)
{
    if (at.repeatMode == kRepeatOne) {
        return automatic ? at.index : at.index - 1;
    }
    const uint32_t previous = at.index - 1;
    if (previous < at.playlistSize) {
        return previous;
    }
    return at.repeatMode == kRepeatAll ? at.playlistSize - 1 : previous;
}

SNavigationStep NextShuffled(const SPlaylistPosition& at, const std::vector<uint32_t>& order, bool automatic)
{
    const int64_t current = at.shuffleIndex;
    int64_t target = current + 1;
    if (current + 1 >= static_cast<int64_t>(order.size())) {
        if (at.repeatMode == kRepeatAll) {
            target = 0;
        } else if (at.repeatMode == kRepeatOne) {
            target = current;
        } else {
            return {at.playlistSize, at.shuffleIndex};
        }
    } else if (at.repeatMode == kRepeatOne && automatic) {
        target = current;
    }
    const uint32_t entry = EntryAt(order, target, at.playlistSize);
    const bool keep = target >= 0 && target < static_cast<int64_t>(at.playlistSize);
    return {entry, keep ? static_cast<int32_t>(target) : at.shuffleIndex};
}

SNavigationStep PreviousShuffled(const SPlaylistPosition& at, const std::vector<uint32_t>& order,
                                 bool automatic)
{
    const int64_t current = at.shuffleIndex;
    int64_t target = current - 1;
    if (current <= 0) {
        if (at.repeatMode == kRepeatAll) {
            target = static_cast<int64_t>(at.playlistSize) - 1;
        } else if (at.repeatMode == kRepeatOne) {
            target = current;
        } else {
            target = 0;
        }
    } else if (at.repeatMode == kRepeatOne && automatic) {
        target = current;
    }
    return {EntryAt(order, target, at.playlistSize), static_cast<int32_t>(target)};
}
}  // namespace

SNavigationStep NextPosition(const SPlaylistPosition& at, const std::vector<uint32_t>& shuffleOrder,
                             bool automatic)
{
    if (at.shuffle) {
        return NextShuffled(at, shuffleOrder, automatic);
    }
    return {NextInOrder(at, automatic), at.shuffleIndex};
}

SNavigationStep PreviousPosition(const SPlaylistPosition& at, const std::vector<uint32_t>& shuffleOrder,
                                 bool automatic)
{
    if (at.shuffle) {
        return PreviousShuffled(at, shuffleOrder, automatic);
    }
    return {PreviousInOrder(at, automatic), at.shuffleIndex};
}

std::vector<uint32_t> MakeShuffleOrder(uint32_t count, int (*random)())
{
    std::vector<uint32_t> order(count);
    for (uint32_t i = 0; i < count; ++i) {
        order[i] = i;
    }
    for (uint32_t i = 1; i < count; ++i) {
        const uint32_t j = static_cast<uint32_t>(random()) % (i + 1);
        std::swap(order[i], order[j]);
    }
    return order;
}

void MoveToFront(std::vector<uint32_t>& order, uint32_t value)
{
    const auto found = std::find(order.begin(), order.end(), value);
    if (found == order.end() || found == order.begin()) {
        return;
    }
    order.erase(found);
    order.insert(order.begin(), value);
}

SPlaylistMatch MatchPlaylist(const std::vector<CFile>& source, const CFile& target,
                             const std::function<void(bool trueMatch)>& onMatch)
{
    SPlaylistMatch match;
    const std::string targetKey = target.m_path + target.m_name;
    bool found = false;
    for (const CFile& file : source) {
        if (file.m_isFolder) {
            continue;
        }
        const auto position = static_cast<uint32_t>(match.files.size());
        if (file.m_id == target.m_id || file.m_path + file.m_name == targetKey) {
            match.index = position;
            found = true;
            onMatch(true);
        } else if (!found && file.m_name == target.m_name) {
            match.index = position;
            onMatch(false);
        }
        match.files.push_back(file);
    }
    return match;
}
