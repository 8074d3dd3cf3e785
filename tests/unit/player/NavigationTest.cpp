// Next and previous by repeat mode and shuffle, the shuffle order, and the
// choice of the start entry of a playlist.

#include "player/Navigation.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {
constexpr uint32_t kNone = 0xFFFFFFFF;

SPlaylistPosition At(uint32_t index, uint32_t size, int32_t mode)
{
    SPlaylistPosition at;
    at.index = index;
    at.playlistSize = size;
    at.repeatMode = mode;
    return at;
}

SPlaylistPosition Shuffled(int32_t shuffleIndex, uint32_t size, int32_t mode)
{
    SPlaylistPosition at = At(0, size, mode);
    at.shuffle = true;
    at.shuffleIndex = shuffleIndex;
    return at;
}

uint32_t Next(const SPlaylistPosition& at, bool automatic)
{
    return NextPosition(at, {}, automatic).index;
}

uint32_t Previous(const SPlaylistPosition& at, bool automatic)
{
    return PreviousPosition(at, {}, automatic).index;
}
}  // namespace

TEST(NavigationTest, NextInOrderByRepeatMode)
{
    // index, size, mode, automatic -> expected
    struct Row {
        uint32_t index, size;
        int32_t mode;
        bool automatic;
        uint32_t expected;
    };
    const Row rows[] = {
        {0, 3, 0, false, 1}, {1, 3, 0, true, 2},  {2, 3, 0, false, 3}, {2, 3, 0, true, 3},
        {0, 3, 1, true, 0},  {2, 3, 1, true, 2},  {0, 3, 1, false, 1}, {2, 3, 1, false, 3},
        {1, 3, 2, false, 2}, {2, 3, 2, false, 0}, {2, 3, 2, true, 0},  {2, 3, 7, false, 3},
        {0, 0, 2, false, 0}, {kNone, 3, 0, false, 0},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(Next(At(row.index, row.size, row.mode), row.automatic), row.expected)
            << "index " << row.index << " size " << row.size << " mode " << row.mode << " automatic "
            << row.automatic;
    }
}

TEST(NavigationTest, PreviousInOrderByRepeatMode)
{
    struct Row {
        uint32_t index, size;
        int32_t mode;
        bool automatic;
        uint32_t expected;
    };
    const Row rows[] = {
        {2, 3, 0, false, 1}, {0, 3, 0, false, kNone}, {0, 3, 1, false, kNone}, {1, 3, 1, true, 1},
        {1, 3, 1, false, 0}, {0, 3, 2, false, 2},     {1, 3, 2, false, 0},     {0, 3, 9, false, kNone},
        {0, 0, 2, false, kNone},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(Previous(At(row.index, row.size, row.mode), row.automatic), row.expected)
            << "index " << row.index << " size " << row.size << " mode " << row.mode << " automatic "
            << row.automatic;
    }
}

TEST(NavigationTest, NextShuffledMovesThroughTheOrder)
{
    const std::vector<uint32_t> order{2, 0, 3, 1};
    SNavigationStep step = NextPosition(Shuffled(0, 4, 0), order, false);
    EXPECT_EQ(step.index, 0u);
    EXPECT_EQ(step.shuffleIndex, 1);
    step = NextPosition(Shuffled(2, 4, 0), order, true);
    EXPECT_EQ(step.index, 1u);
    EXPECT_EQ(step.shuffleIndex, 3);
}

TEST(NavigationTest, NextShuffledAtTheEndOfTheOrder)
{
    const std::vector<uint32_t> order{2, 0, 3, 1};
    // No repeat: none, the position stays.
    SNavigationStep step = NextPosition(Shuffled(3, 4, 0), order, false);
    EXPECT_EQ(step.index, 4u);
    EXPECT_EQ(step.shuffleIndex, 3);
    // Repeat all: back to the first shuffled entry.
    step = NextPosition(Shuffled(3, 4, 2), order, false);
    EXPECT_EQ(step.index, 2u);
    EXPECT_EQ(step.shuffleIndex, 0);
    // Repeat one: the same entry, also for a user's next.
    step = NextPosition(Shuffled(3, 4, 1), order, false);
    EXPECT_EQ(step.index, 1u);
    EXPECT_EQ(step.shuffleIndex, 3);
}

TEST(NavigationTest, NextShuffledRepeatOneReplaysOnlyAutomatically)
{
    const std::vector<uint32_t> order{2, 0, 3, 1};
    EXPECT_EQ(NextPosition(Shuffled(1, 4, 1), order, true).index, 0u);
    const SNavigationStep step = NextPosition(Shuffled(1, 4, 1), order, false);
    EXPECT_EQ(step.index, 3u);
    EXPECT_EQ(step.shuffleIndex, 2);
}

TEST(NavigationTest, NextShuffledKeepsAPositionPastThePlaylist)
{
    // An order longer than the playlist in force (the stick was removed):
    // the new position is kept only when it lies inside the playlist.
    const std::vector<uint32_t> order{2, 0, 3, 1};
    const SNavigationStep step = NextPosition(Shuffled(1, 2, 0), order, false);
    EXPECT_EQ(step.index, 3u);
    EXPECT_EQ(step.shuffleIndex, 1);
}

TEST(NavigationTest, PreviousShuffled)
{
    const std::vector<uint32_t> order{2, 0, 3, 1};
    SNavigationStep step = PreviousPosition(Shuffled(2, 4, 0), order, false);
    EXPECT_EQ(step.index, 0u);
    EXPECT_EQ(step.shuffleIndex, 1);
    // At the start: no repeat replays the first shuffled entry.
    step = PreviousPosition(Shuffled(0, 4, 0), order, false);
    EXPECT_EQ(step.index, 2u);
    EXPECT_EQ(step.shuffleIndex, 0);
    // Repeat all goes to the last position.
    step = PreviousPosition(Shuffled(0, 4, 2), order, false);
    EXPECT_EQ(step.index, 1u);
    EXPECT_EQ(step.shuffleIndex, 3);
    // Repeat one stays at the start, and replays automatically elsewhere.
    step = PreviousPosition(Shuffled(0, 4, 1), order, false);
    EXPECT_EQ(step.index, 2u);
    EXPECT_EQ(step.shuffleIndex, 0);
    EXPECT_EQ(PreviousPosition(Shuffled(2, 4, 1), order, true).index, 3u);
}

TEST(NavigationTest, ShuffledWithoutAnOrderFindsNothing)
{
    EXPECT_EQ(NextPosition(Shuffled(0, 3, 2), {}, false).index, 3u);
    EXPECT_EQ(PreviousPosition(Shuffled(0, 3, 2), {}, false).index, 3u);
}

namespace {
// The order the standard library's random_shuffle gives with rand().
std::vector<uint32_t> ReferenceShuffle(uint32_t count)
{
    std::vector<uint32_t> order;
    for (uint32_t i = 0; i < count; ++i) {
        order.push_back(i);
    }
    for (uint32_t i = 1; i < count; ++i) {
        std::swap(order[i], order[static_cast<uint32_t>(std::rand()) % (i + 1)]);
    }
    return order;
}

int g_fakeRandom = 0;
int CountingRandom()
{
    return g_fakeRandom++;
}
}  // namespace

TEST(NavigationTest, ShuffleOrderFollowsTheRandSequence)
{
    std::srand(1);
    const std::vector<uint32_t> expected = ReferenceShuffle(12);
    std::srand(1);
    EXPECT_EQ(MakeShuffleOrder(12, &std::rand), expected);
}

TEST(NavigationTest, ShuffleOrderSwapsEachEntryWithAnEarlierOne)
{
    // random() gives 0, 1, 2, 3: i=1 swaps with 0, i=2 with 1, i=3 with 2, i=4 with 3.
    g_fakeRandom = 0;
    EXPECT_EQ(MakeShuffleOrder(5, &CountingRandom), (std::vector<uint32_t>{1, 2, 3, 4, 0}));
}

TEST(NavigationTest, ShuffleOfOneOrNoTrack)
{
    g_fakeRandom = 0;
    EXPECT_EQ(MakeShuffleOrder(1, &CountingRandom), std::vector<uint32_t>{0});
    EXPECT_TRUE(MakeShuffleOrder(0, &CountingRandom).empty());
    EXPECT_EQ(g_fakeRandom, 0) << "no random number is drawn for fewer than two tracks";
}

TEST(NavigationTest, MoveToFrontKeepsTheOthersInOrder)
{
    std::vector<uint32_t> order{3, 1, 4, 0, 2};
    MoveToFront(order, 4);
    EXPECT_EQ(order, (std::vector<uint32_t>{4, 3, 1, 0, 2}));
    MoveToFront(order, 4);
    EXPECT_EQ(order, (std::vector<uint32_t>{4, 3, 1, 0, 2}));
    MoveToFront(order, 9);
    EXPECT_EQ(order, (std::vector<uint32_t>{4, 3, 1, 0, 2}));
}

namespace {
CFile File(uint32_t id, const std::string& name, const std::string& path)
{
    return CFile(id, name, path, false);
}

SPlaylistMatch Match(const std::vector<CFile>& source, const CFile& target, std::string* matches = nullptr)
{
    return MatchPlaylist(source, target, [matches](bool trueMatch) {
        if (matches != nullptr) {
            *matches += trueMatch ? 'T' : 'N';
        }
    });
}
}  // namespace

TEST(NavigationTest, PlaylistSkipsFoldersAndFindsTheFileByPath)
{
    const std::vector<CFile> source{CFile(1, "Sub", "/s", true), File(2, "a.mp3", "/s"), File(3, "b.mp3", "/s")};
    std::string matches;
    const SPlaylistMatch match = Match(source, File(kNone, "b.mp3", "/s"), &matches);
    ASSERT_EQ(match.files.size(), 2u);
    EXPECT_EQ(match.files[0].m_name, "a.mp3");
    EXPECT_EQ(match.index, 1u);
    EXPECT_EQ(matches, "T");
}

TEST(NavigationTest, PlaylistFindsTheFileById)
{
    const std::vector<CFile> source{File(2, "a.mp3", "/s"), File(3, "b.mp3", "/s")};
    EXPECT_EQ(Match(source, File(3, "other.mp3", "/elsewhere")).index, 1u);
}

TEST(NavigationTest, SameNameFirstWinsWhenItIsTheTrueFile)
{
    const std::vector<CFile> source{File(2, "x.mp3", "/s/A"), File(3, "x.mp3", "/s/B")};
    std::string matches;
    EXPECT_EQ(Match(source, File(kNone, "x.mp3", "/s/A"), &matches).index, 0u);
    EXPECT_EQ(matches, "T");
}

TEST(NavigationTest, SameNameTrueFileLaterOverridesTheNameMatch)
{
    const std::vector<CFile> source{File(2, "x.mp3", "/s/A"), File(3, "x.mp3", "/s/B")};
    std::string matches;
    EXPECT_EQ(Match(source, File(kNone, "x.mp3", "/s/B"), &matches).index, 1u);
    EXPECT_EQ(matches, "NT");
}

TEST(NavigationTest, NameOnlyMatchesLaterOneOverrides)
{
    const std::vector<CFile> source{File(2, "x.mp3", "/s/A"), File(3, "x.mp3", "/s/B"), File(4, "y.mp3", "/s/B")};
    std::string matches;
    EXPECT_EQ(Match(source, File(kNone, "x.mp3", "/s/gone"), &matches).index, 1u);
    EXPECT_EQ(matches, "NN");
}

TEST(NavigationTest, MissingFileIsNotFound)
{
    const std::vector<CFile> source{File(2, "a.mp3", "/s")};
    const SPlaylistMatch match = Match(source, File(kNone, "gone.mp3", "/s"));
    EXPECT_EQ(match.index, kNone);
    EXPECT_EQ(match.files.size(), 1u);
}
