// Next, previous and the advance at the end of a track, by repeat mode and
// shuffle, as a client sees them.

#include "tests/integration/PlayerTestSupport.h"

#include <cstdlib>

using namespace player_test;
using testing_support::MediaFactory;

namespace {
using Error = std::pair<int, std::string>;

// Album/01..03.mp3 of two seconds, indexed.
class TrackNavigationTest : public PlayerTest {
protected:
    void SetUp() override
    {
        for (const char* name : {"01.mp3", "02.mp3", "03.mp3"}) {
            PlaceOnStick(MediaFactory::Mp3(2), std::string("Album/") + name);
        }
        StartDaemon();
        IndexStick();
    }

    void SetRepeat(int mode)
    {
        Json::Value params;
        params["mode"] = mode;
        {
            const Json::Value reply = Result("setRepeatModeUSB", params);
            ASSERT_EQ(reply["mode"].asInt(), mode) << reply.toStyledString();
        }
    }

    void EnableShuffle(bool enabled)
    {
        Json::Value params;
        params["enable"] = enabled;
        {
            const Json::Value reply = Result("enableShuffleUSB", params);
            ASSERT_EQ(reply["enabled"].asBool(), enabled) << reply.toStyledString();
        }
    }

    // "nextUSB" or "previousUSB" that succeeds and plays `expected`.
    void Step(const std::string& method, const std::string& expected)
    {
        const Json::Value reply = Call(method);
        ASSERT_TRUE(reply["result"]["success"].asBool()) << method << " " << WireText(reply);
        std::vector<int> states;
        ASSERT_TRUE(WaitForState(kPlaying, &states));
        EXPECT_EQ(states, (std::vector<int>{kStopped, kPlaying}));
        EXPECT_EQ(CurrentFileName(), expected) << method;
    }

    std::string Folder() const { return Stick() + "/Album"; }

    // Long/01..03.mp3 of a minute, indexed: no track ends by itself while a
    // test steps through them.
    void PlaceLongTracks()
    {
        for (const std::string& name : kLongNames) {
            PlaceOnStick(MediaFactory::Mp3(60), "Long/" + name);
        }
        IndexStick();
    }

    const std::vector<std::string> kLongNames{"01.mp3", "02.mp3", "03.mp3"};
};
}  // namespace

TEST_F(TrackNavigationTest, NextAndPreviousMoveThroughThePlaylist)
{
    PlayFileAndWaitForPlaying(InStick("Album"), "01.mp3");
    Step("nextUSB", "02.mp3");
    Step("nextUSB", "03.mp3");
    Step("previousUSB", "02.mp3");
    {
        const Json::Value reply = TrackInfo();
        EXPECT_EQ(reply["trackIndex"].asUInt(), 2u) << reply.toStyledString();
    }
}

TEST_F(TrackNavigationTest, NextOnTheLastEntryWithoutRepeatEndsThePlaylist)
{
    PlayFileAndWaitForPlaying(InStick("Album"), "03.mp3");
    const Json::Value reply = Call("nextUSB");
    EXPECT_FALSE(reply["result"]["success"].asBool()) << reply.toStyledString();
    EXPECT_EQ(ErrorOf(reply), Error(-4, "E: No file selected to play - /")) << reply.toStyledString();
    EXPECT_FALSE(Next("endOfPlayListNotification").isNull());
    EXPECT_EQ(PlayerState(), kStopped);
    const Json::Value track = TrackInfo();
    EXPECT_EQ(track["trackCount"].asUInt(), 0u) << track.toStyledString();
    EXPECT_EQ(track["trackIndex"].asUInt(), 0u) << track.toStyledString();
    EXPECT_EQ(track["fileName"].asString(), "") << track.toStyledString();
    // Nothing to go to any more.
    {
        const Json::Value reply = Call("nextUSB");
        EXPECT_EQ(ErrorOf(reply), Error(-4, "E: No file selected to play - /")) << reply.toStyledString() << reply.toStyledString();
    }
    {
        const Json::Value reply = Call("previousUSB");
        EXPECT_EQ(ErrorOf(reply), Error(-4, "E: No file selected to play - /")) << reply.toStyledString() << reply.toStyledString();
    }
}

TEST_F(TrackNavigationTest, EndOfATrackPlaysTheNextEntry)
{
    PlayFileAndWaitForPlaying(InStick("Album"), "01.mp3");
    std::vector<int> states;
    ASSERT_TRUE(WaitForState(kPlaying, &states));
    EXPECT_EQ(states, (std::vector<int>{kStopped, kPlaying}));
    EXPECT_EQ(CurrentFileName(), "02.mp3");
}

TEST_F(TrackNavigationTest, EndOfTheLastTrackWithoutRepeatEndsThePlaylistWithoutError)
{
    PlayFileAndWaitForPlaying(InStick("Album"), "03.mp3");
    ASSERT_TRUE(WaitForState(kStopped));
    const Json::Value end = Next("endOfPlayListNotification");
    ASSERT_FALSE(end.isNull());
    EXPECT_EQ(end["params"]["isEndOfPlaylist"], Json::Value(true)) << end.toStyledString();
    EXPECT_EQ(PlayerState(), kStopped);
    {
        const Json::Value reply = TrackInfo();
        EXPECT_EQ(reply["trackCount"].asUInt(), 0u) << reply.toStyledString();
    }
    EXPECT_EQ(Daemon().Output().find("E: "), std::string::npos) << Daemon().Output();
}

TEST_F(TrackNavigationTest, RepeatOneReplaysTheTrackButNextMovesOn)
{
    SetRepeat(1);
    PlayFileAndWaitForPlaying(InStick("Album"), "01.mp3");
    std::vector<int> states;
    ASSERT_TRUE(WaitForState(kPlaying, &states));
    EXPECT_EQ(states, (std::vector<int>{kStopped, kPlaying}));
    EXPECT_EQ(CurrentFileName(), "01.mp3");
    Step("nextUSB", "02.mp3");
    Step("previousUSB", "01.mp3");
}

TEST_F(TrackNavigationTest, RepeatAllWrapsAroundBothWays)
{
    SetRepeat(2);
    PlayFileAndWaitForPlaying(InStick("Album"), "03.mp3");
    Step("nextUSB", "01.mp3");
    Step("previousUSB", "03.mp3");
}

TEST_F(TrackNavigationTest, RepeatAllPlaysTheFirstEntryAfterTheLastEnds)
{
    SetRepeat(2);
    PlayFileAndWaitForPlaying(InStick("Album"), "03.mp3");
    ASSERT_TRUE(WaitForState(kStopped));
    ASSERT_TRUE(WaitForState(kPlaying));
    EXPECT_EQ(CurrentFileName(), "01.mp3");
}

TEST_F(TrackNavigationTest, PreviousOnTheFirstEntryFailsAndKeepsPlaying)
{
    for (int mode : {0, 1}) {
        SetRepeat(mode);
        PlayFileAndWaitForPlaying(InStick("Album"), "01.mp3");
        const Json::Value reply = Call("previousUSB");
        EXPECT_FALSE(reply["result"]["success"].asBool()) << reply.toStyledString();
        EXPECT_EQ(ErrorOf(reply), Error(-4, "E: No file selected to play - " + Folder() + "/01.mp3")) << mode << ": " << reply.toStyledString();
        EXPECT_EQ(PlayerState(), kPlaying);
        EXPECT_EQ(CurrentFileName(), "01.mp3");
    }
}

TEST_F(TrackNavigationTest, NextWhilePausedEndsPausedOnTheNextEntry)
{
    PlayFileAndWaitForPlaying(InStick("Album"), "01.mp3");
    {
        const Json::Value reply = Call("pauseUSB");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForState(kPaused));
    {
        const Json::Value reply = Call("nextUSB");
        EXPECT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    std::vector<int> states;
    ASSERT_TRUE(WaitForState(kPaused, &states));
    EXPECT_EQ(states, (std::vector<int>{kStopped, kPlaying, kPaused}));
    EXPECT_EQ(CurrentFileName(), "02.mp3");
    EXPECT_EQ(PlayerState(), kPaused);
}

// Another mode value is kept as given and acts like no repeat for next,
// but the end of the last track jumps past the list, which plays entry 0.
TEST_F(TrackNavigationTest, UnknownRepeatModeWrapsOnlyAtTheEndOfAStream)
{
    SetRepeat(7);
    {
        const Json::Value reply = Result("getRepeatModeUSB");
        EXPECT_EQ(reply["mode"].asInt(), 7) << reply.toStyledString();
    }
    PlayFileAndWaitForPlaying(InStick("Album"), "03.mp3");
    ASSERT_TRUE(WaitForState(kStopped));
    ASSERT_TRUE(WaitForState(kPlaying));
    EXPECT_EQ(CurrentFileName(), "01.mp3");
    PlayFileAndWaitForPlaying(InStick("Album"), "03.mp3");
    {
        const Json::Value reply = Call("nextUSB");
        EXPECT_EQ(ErrorOf(reply), Error(-4, "E: No file selected to play - /")) << reply.toStyledString() << reply.toStyledString();
    }
}

TEST_F(TrackNavigationTest, SetRepeatModeNotifiesEveryTime)
{
    SetRepeat(1);
    SetRepeat(1);
    for (int i = 0; i < 2; ++i) {
        const Json::Value notification = Next("repeatModeChangedNotification");
        ASSERT_FALSE(notification.isNull()) << i;
        EXPECT_EQ(notification["params"]["mode"], Json::Value(1)) << notification.toStyledString();
    }
}

namespace {
// The first order a fresh process's rand() gives.
std::vector<uint32_t> FirstRandOrder(uint32_t count)
{
    std::srand(1);
    std::vector<uint32_t> order;
    for (uint32_t i = 0; i < count; ++i) {
        order.push_back(i);
    }
    for (uint32_t i = 1; i < count; ++i) {
        std::swap(order[i], order[static_cast<uint32_t>(std::rand()) % (i + 1)]);
    }
    return order;
}

// The same with the chosen entry moved to the front, as the daemon builds
// it when a file is played with shuffle on.
std::vector<uint32_t> FirstShuffleOrder(uint32_t count, uint32_t chosen)
{
    std::vector<uint32_t> order = FirstRandOrder(count);
    for (auto it = order.begin(); it != order.end(); ++it) {
        if (*it == chosen) {
            order.erase(it);
            break;
        }
    }
    order.insert(order.begin(), chosen);
    return order;
}
}  // namespace

TEST_F(TrackNavigationTest, FirstShuffleAfterStartUpFollowsTheRandSequence)
{
    const std::vector<std::string> names{"01.mp3", "02.mp3", "03.mp3", "04.mp3", "05.mp3", "06.mp3"};
    for (size_t i = 3; i < names.size(); ++i) {
        PlaceOnStick(MediaFactory::Mp3(2), "Album/" + names[i]);
    }
    IndexStick();
    EnableShuffle(true);
    const Json::Value notification = Next("shuffleModeChangedNotification");
    EXPECT_EQ(notification["params"]["enabled"], Json::Value(true)) << notification.toStyledString();

    const std::vector<uint32_t> order = FirstShuffleOrder(6, 1);
    PlayFileAndWaitForPlaying(InStick("Album"), "02.mp3");
    EXPECT_EQ(CurrentFileName(), "02.mp3");
    for (size_t position = 1; position < order.size(); ++position) {
        Step("nextUSB", names[order[position]]);
    }
    // At the end of the order without repeat the playlist ends.
    {
        const Json::Value reply = Call("nextUSB");
        EXPECT_EQ(ErrorOf(reply), Error(-4, "E: No file selected to play - /")) << reply.toStyledString() << reply.toStyledString();
    }
    EXPECT_FALSE(Next("endOfPlayListNotification").isNull());
}

TEST_F(TrackNavigationTest, ShuffleOffGoesOnInPlaylistOrder)
{
    EnableShuffle(true);
    PlayFileAndWaitForPlaying(InStick("Album"), "02.mp3");
    EnableShuffle(false);
    Step("nextUSB", "03.mp3");
}

TEST_F(TrackNavigationTest, ShuffledPreviousAtTheStartReplaysTheFirstShuffledEntry)
{
    EnableShuffle(true);
    PlayFileAndWaitForPlaying(InStick("Album"), "02.mp3");
    Step("previousUSB", "02.mp3");
}

TEST_F(TrackNavigationTest, ShuffleWithOneTrack)
{
    PlaceOnStick(MediaFactory::Mp3(2), "Single/only.mp3");
    EnableShuffle(true);
    {
        const Json::Value reply = PlayFolder(Stick(), "Single");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForState(kPlaying));
    {
        const Json::Value reply = Call("nextUSB");
        EXPECT_EQ(ErrorOf(reply), Error(-4, "E: No file selected to play - /")) << reply.toStyledString() << reply.toStyledString();
    }
    EXPECT_FALSE(Next("endOfPlayListNotification").isNull());
}

TEST_F(TrackNavigationTest, ShuffleTurnedOnMidPlaylistFollowsTheNewOrderFromItsStart)
{
    PlaceLongTracks();
    PlayFileAndWaitForPlaying(InStick("Long"), "01.mp3");
    EnableShuffle(true);
    // The current entry is not moved to the front: next goes to the order's
    // second position.
    const std::vector<uint32_t> order = FirstRandOrder(3);
    Step("nextUSB", kLongNames[order[1]]);
    Step("nextUSB", kLongNames[order[2]]);
    {
        const Json::Value reply = Call("nextUSB");
        EXPECT_EQ(ErrorOf(reply), Error(-4, "E: No file selected to play - /")) << reply.toStyledString() << reply.toStyledString();
    }
    EXPECT_FALSE(Next("endOfPlayListNotification").isNull());
}

TEST_F(TrackNavigationTest, ShuffleWithRepeatOneStaysOnTheLastShuffledEntry)
{
    PlaceLongTracks();
    EnableShuffle(true);
    SetRepeat(1);
    PlayFileAndWaitForPlaying(InStick("Long"), "02.mp3");
    const std::vector<uint32_t> order = FirstShuffleOrder(3, 1);
    Step("nextUSB", kLongNames[order[1]]);
    Step("nextUSB", kLongNames[order[2]]);
    // At the end of the order a next replays the entry there.
    Step("nextUSB", kLongNames[order[2]]);
    {
        const Json::Value reply = TrackInfo();
        EXPECT_EQ(reply["trackCount"].asUInt(), 3u) << reply.toStyledString();
    }
}

TEST_F(TrackNavigationTest, ShuffleWithRepeatAllStartsTheOrderAgain)
{
    PlaceLongTracks();
    EnableShuffle(true);
    SetRepeat(2);
    PlayFileAndWaitForPlaying(InStick("Long"), "02.mp3");
    const std::vector<uint32_t> order = FirstShuffleOrder(3, 1);
    Step("nextUSB", kLongNames[order[1]]);
    Step("nextUSB", kLongNames[order[2]]);
    Step("nextUSB", "02.mp3");
    Step("nextUSB", kLongNames[order[1]]);
}

TEST_F(TrackNavigationTest, EveryNextAfterTheEndSendsEndOfPlaylistAgain)
{
    PlaceLongTracks();
    PlayFileAndWaitForPlaying(InStick("Long"), "03.mp3");
    for (int i = 0; i < 3; ++i) {
        {
            const Json::Value reply = Call("nextUSB");
            EXPECT_EQ(ErrorOf(reply), Error(-4, "E: No file selected to play - /")) << i << ": " << reply.toStyledString() << reply.toStyledString();
        }
        const Json::Value end = Next("endOfPlayListNotification");
        ASSERT_FALSE(end.isNull()) << i;
        EXPECT_EQ(end["params"]["isEndOfPlaylist"], Json::Value(true)) << end.toStyledString();
    }
    EXPECT_EQ(PlayerState(), kStopped);
}
