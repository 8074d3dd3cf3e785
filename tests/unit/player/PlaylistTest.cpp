// The playlist on its own: building around a chosen file, next and previous
// by repeat mode and shuffle, the end of the list, a stick removal and a
// play that fails, each step as the player takes it.
#include "player/Playlist.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

namespace {
constexpr uint32_t kNone = 0xFFFFFFFF;
constexpr int32_t kRepeatNone = 0;
constexpr int32_t kRepeatOne = 1;
constexpr int32_t kRepeatAll = 2;

CFile Track(uint32_t id, const std::string& name)
{
    return CFile(id, name, "/mnt/usb-stick1/Album", false);
}

std::vector<CFile> Tracks(uint32_t count)
{
    std::vector<CFile> tracks;
    for (uint32_t i = 0; i < count; ++i) {
        tracks.push_back(Track(100 + i, "t" + std::to_string(i) + ".mp3"));
    }
    return tracks;
}

// A playlist of `count` tracks standing on `index`.
CPlaylist PlaylistAt(uint32_t count, uint32_t index)
{
    CPlaylist playlist;
    playlist.Replace(Tracks(count), index);
    return playlist;
}

// What the player does with an index from next or previous: a jump when
// it lies in the list.
uint32_t Jump(CPlaylist& playlist, uint32_t index)
{
    playlist.Recount();
    const CFile* entry = playlist.MoveTo(index);
    return entry == nullptr ? kNone : playlist.Index();
}
}  // namespace

TEST(PlaylistTest, EmptyPlaylistHasNoCurrentEntryAndNumberZero)
{
    CPlaylist playlist;
    EXPECT_EQ(playlist.Count(), 0u);
    EXPECT_EQ(playlist.TrackNumber(), 0u);
    EXPECT_EQ(playlist.Current(), nullptr);
    EXPECT_EQ(playlist.Recount(), 0u);
    EXPECT_EQ(playlist.MoveTo(0), nullptr);
    EXPECT_GE(playlist.NextIndex(false), playlist.Count());
    EXPECT_GE(playlist.PreviousIndex(false), playlist.Count());
}

TEST(PlaylistTest, FillAroundMakesTheChosenFileCurrentAndSkipsFolders)
{
    std::vector<CFile> source = Tracks(3);
    source.insert(source.begin(), CFile(7, "Sub", "/mnt/usb-stick1/Album", true));
    CPlaylist playlist;
    std::vector<bool> matches;
    playlist.FillAround(source, source[2], [&matches](bool trueMatch) { matches.push_back(trueMatch); });
    EXPECT_EQ(playlist.Count(), 3u);
    EXPECT_EQ(playlist.Index(), 1u);
    EXPECT_EQ(playlist.TrackNumber(), 2u);
    ASSERT_NE(playlist.Current(), nullptr);
    EXPECT_EQ(playlist.Current()->m_name, "t1.mp3");
    EXPECT_EQ(matches, std::vector<bool>{true});
}

TEST(PlaylistTest, FillAroundAMissingFileLeavesNoEntryChosen)
{
    CPlaylist playlist;
    playlist.FillAround(Tracks(2), Track(999, "gone.mp3"), [](bool) {});
    EXPECT_EQ(playlist.Index(), kNone);
    EXPECT_EQ(playlist.Current(), nullptr);
    EXPECT_EQ(playlist.CurrentInForce(), nullptr);
    EXPECT_EQ(playlist.Count(), 2u);
}

TEST(PlaylistTest, RepeatNoneEndsAfterTheLastAndBeforeTheFirst)
{
    CPlaylist playlist = PlaylistAt(3, 2);
    EXPECT_GE(playlist.NextIndex(false), playlist.Count());
    EXPECT_GE(playlist.NextIndex(true), playlist.Count());
    playlist.MoveTo(0);
    EXPECT_GE(playlist.PreviousIndex(false), playlist.Count());
    playlist.MoveTo(1);
    EXPECT_EQ(playlist.NextIndex(false), 2u);
    EXPECT_EQ(playlist.PreviousIndex(false), 0u);
}

TEST(PlaylistTest, RepeatOneReplaysAtTheEndButUserStepsMove)
{
    CPlaylist playlist = PlaylistAt(3, 1);
    playlist.SetRepeatMode(kRepeatOne);
    EXPECT_EQ(playlist.NextIndex(true), 1u);
    EXPECT_EQ(playlist.NextIndex(false), 2u);
    EXPECT_EQ(playlist.PreviousIndex(false), 0u);
    playlist.MoveTo(0);
    EXPECT_GE(playlist.PreviousIndex(false), playlist.Count());
}

TEST(PlaylistTest, RepeatAllWrapsBothWays)
{
    CPlaylist playlist = PlaylistAt(3, 2);
    playlist.SetRepeatMode(kRepeatAll);
    EXPECT_EQ(playlist.NextIndex(false), 0u);
    EXPECT_EQ(playlist.NextIndex(true), 0u);
    playlist.MoveTo(0);
    EXPECT_EQ(playlist.PreviousIndex(false), 2u);
}

TEST(PlaylistTest, OtherRepeatValuesAreKeptAndActLikeNone)
{
    CPlaylist playlist = PlaylistAt(3, 2);
    playlist.SetRepeatMode(7);
    EXPECT_EQ(playlist.RepeatMode(), 7);
    EXPECT_GE(playlist.NextIndex(false), playlist.Count());
}

TEST(PlaylistTest, JumpPastTheListGoesToTheFirstEntry)
{
    CPlaylist playlist = PlaylistAt(3, 1);
    EXPECT_EQ(Jump(playlist, 9), 0u);
    EXPECT_EQ(Jump(playlist, 2), 2u);
}

TEST(PlaylistTest, ShuffleSwitchedOnMidListPlaysTheCurrentFirstThenTheOrder)
{
    std::srand(1);
    CPlaylist playlist = PlaylistAt(5, 3);
    playlist.SetShuffle(true);
    playlist.PutCurrentFirstInShuffle();
    // The order is a permutation that starts with the current entry; the
    // steps walk it and end after its last position.
    std::vector<uint32_t> seen{playlist.Index()};
    for (;;) {
        const uint32_t next = playlist.NextIndex(false);
        if (next >= playlist.Count()) {
            break;
        }
        seen.push_back(Jump(playlist, next));
    }
    ASSERT_EQ(seen.size(), 5u);
    EXPECT_EQ(seen.front(), 3u);
    std::vector<uint32_t> sorted = seen;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, (std::vector<uint32_t>{0, 1, 2, 3, 4}));
    // Back from the last position walks the order in reverse.
    EXPECT_EQ(playlist.PreviousIndex(false), seen[3]);
}

TEST(PlaylistTest, ShuffleRepeatsTheSameOrderForTheSameSeed)
{
    std::srand(42);
    CPlaylist first = PlaylistAt(8, 0);
    first.SetShuffle(true);
    std::srand(42);
    CPlaylist second = PlaylistAt(8, 0);
    second.SetShuffle(true);
    for (int step = 0; step < 7; ++step) {
        EXPECT_EQ(first.NextIndex(false), second.NextIndex(false));
    }
}

TEST(PlaylistTest, ShufflePreviousAtTheStartReplaysTheFirstShuffledEntry)
{
    CPlaylist playlist = PlaylistAt(1, 0);
    playlist.SetShuffle(true);
    EXPECT_EQ(playlist.PreviousIndex(false), 0u);
    EXPECT_GE(playlist.NextIndex(false), playlist.Count());
}

TEST(PlaylistTest, ShuffleOffGoesOnInListOrderFromTheCurrentEntry)
{
    CPlaylist playlist = PlaylistAt(4, 2);
    playlist.SetShuffle(true);
    playlist.SetShuffle(false);
    EXPECT_FALSE(playlist.IsShuffle());
    EXPECT_EQ(playlist.NextIndex(false), 3u);
}

TEST(PlaylistTest, RemovalKeepsTheRecordsReadableButCountsNone)
{
    CPlaylist playlist = PlaylistAt(3, 1);
    playlist.Disown();
    EXPECT_EQ(playlist.Count(), 0u);
    EXPECT_EQ(playlist.TrackNumber(), 0u);
    ASSERT_NE(playlist.Current(), nullptr);  // a restart still loads it
    EXPECT_EQ(playlist.Current()->m_name, "t1.mp3");
    EXPECT_EQ(playlist.CurrentInForce(), nullptr);
    EXPECT_GE(playlist.NextIndex(false), playlist.Count());
    // A jump counts the records again.
    EXPECT_EQ(playlist.Recount(), 3u);
    EXPECT_EQ(playlist.TrackNumber(), 2u);
}

TEST(PlaylistTest, FailedPlayKeepsTheCountButNoRecordIsRead)
{
    CPlaylist playlist = PlaylistAt(3, 2);
    playlist.Withdraw();
    EXPECT_EQ(playlist.Count(), 3u);
    EXPECT_EQ(playlist.TrackNumber(), 3u);
    EXPECT_EQ(playlist.Current(), nullptr);
    EXPECT_EQ(playlist.CurrentInForce(), nullptr);
    // Shuffling now orders nothing.
    playlist.SetShuffle(true);
    EXPECT_GE(playlist.NextIndex(false), playlist.Count());
    // The next jump finds the list empty.
    EXPECT_EQ(playlist.Recount(), 0u);
    EXPECT_EQ(playlist.MoveTo(0), nullptr);
}

TEST(PlaylistTest, WithdrawAfterRemovalCountsNoneAndReadsNothing)
{
    CPlaylist playlist = PlaylistAt(3, 1);
    playlist.Disown();
    playlist.Withdraw();
    EXPECT_EQ(playlist.Count(), 0u);
    EXPECT_EQ(playlist.Current(), nullptr);
    EXPECT_EQ(playlist.Recount(), 0u);
}

TEST(PlaylistTest, EndOfThePlaylistEmptiesItUntilANewOneIsBuilt)
{
    CPlaylist playlist = PlaylistAt(2, 1);
    playlist.Clear();
    EXPECT_EQ(playlist.Count(), 0u);
    EXPECT_EQ(playlist.TrackNumber(), 0u);
    EXPECT_EQ(playlist.Current(), nullptr);
    playlist.Replace(Tracks(4), 0);
    EXPECT_EQ(playlist.Count(), 4u);
    EXPECT_EQ(playlist.TrackNumber(), 1u);
}
