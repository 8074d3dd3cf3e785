// Starting playback of files, folders, ids and the whole stick, and the
// play / pause / stop / restart transport, as a client sees them.

#include "tests/integration/PlayerTestSupport.h"

#include <unistd.h>

using namespace player_test;
using testing_support::MediaFactory;

namespace {
// Album/01..03.mp3 of three seconds, indexed.
class PlaybackTest : public PlayerTest {
protected:
    void SetUp() override
    {
        PlaceOnStick(MediaFactory::Mp3(3, "One", "Artist", "Album"), "Album/01.mp3");
        PlaceOnStick(MediaFactory::Mp3(3, "Two", "Artist", "Album"), "Album/02.mp3");
        PlaceOnStick(MediaFactory::Mp3(3, "Three", "Artist", "Album"), "Album/03.mp3");
        StartDaemon();
        IndexStick();
    }
};

using Error = std::pair<int, std::string>;
}  // namespace

TEST_F(PlaybackTest, PlayFileStartsItAndReportsTheTrack)
{
    const Json::Value reply = PlayFile(InStick("Album"), "02.mp3");
    EXPECT_TRUE(reply["result"]["success"].asBool()) << WireText(reply);
    EXPECT_FALSE(reply.isMember("error")) << reply.toStyledString();
    std::vector<int> states;
    ASSERT_TRUE(WaitForState(kPlaying, &states));
    // From a fresh start the stop changes nothing visible: only 4 is sent.
    EXPECT_EQ(states, std::vector<int>{kPlaying});
    const Json::Value track = TrackInfo();
    EXPECT_EQ(track["fileName"].asString(), "02.mp3") << track.toStyledString();
    EXPECT_EQ(track["filePath"].asString(), Stick() + "/Album") << track.toStyledString();
    EXPECT_EQ(track["trackIndex"].asUInt(), 2u) << track.toStyledString();
    EXPECT_EQ(track["trackCount"].asUInt(), 3u) << track.toStyledString();
    EXPECT_TRUE(track["isPlaying"].asBool()) << track.toStyledString();
    EXPECT_EQ(PlayerState(), kPlaying);
}

TEST_F(PlaybackTest, PlayingAnotherFileSendsStoppedThenPlaying)
{
    PlayFileAndWaitForPlaying(InStick("Album"), "01.mp3");
    {
        const Json::Value reply = PlayFile(InStick("Album"), "03.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    std::vector<int> states;
    ASSERT_TRUE(WaitForState(kPlaying, &states));
    EXPECT_EQ(states, (std::vector<int>{kStopped, kPlaying}));
    EXPECT_EQ(CurrentFileName(), "03.mp3");
}

TEST_F(PlaybackTest, PlayWhilePlayingRestartsTheTrackFromZero)
{
    PlayFileAndWaitForPlaying(InStick("Album"), "01.mp3");
    ASSERT_GE(WaitForTime([](long t) { return t >= 1; }), 1);
    {
        const Json::Value reply = Call("playUSB");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    std::vector<int> states;
    ASSERT_TRUE(WaitForState(kPlaying, &states));
    EXPECT_EQ(states, (std::vector<int>{kStopped, kPlaying}));
    EXPECT_LE(NextTime(), 1);
    EXPECT_EQ(CurrentFileName(), "01.mp3");
}

TEST_F(PlaybackTest, PlayWithNothingToPlayRepliesErrorAndResult)
{
    ASSERT_TRUE(m_client.SendRaw(R"({"jsonrpc":"2.0","method":"playUSB","id":41})"));
    std::string line;
    ASSERT_TRUE(m_client.ReadLine(line, kWireTimeoutMs));
    EXPECT_EQ(line, R"({"error":{"code":-1,"message":"E: No Song to play!"},"id":41,"jsonrpc":"2.0","result":{"success":false}})");
}

TEST_F(PlaybackTest, PauseReportsTheTimeThenPausedAndPlayResumes)
{
    PlayFileAndWaitForPlaying(InStick("Album"), "01.mp3");
    Json::Value reported = Next("trackTimeNotification");
    while (!reported.isNull() && reported["params"]["trackTime"].asUInt() < 1) {
        reported = Next("trackTimeNotification");
    }
    ASSERT_FALSE(reported.isNull());
    const Json::Value reply = Call("pauseUSB");
    EXPECT_TRUE(reply["result"]["success"].asBool()) << WireText(reply);
    // The pause's own time report comes last before the paused state; it
    // repeats the duration reported last.
    std::vector<Json::Value> times{reported};
    Json::Value notification = Next("");
    while (notification["method"].asString() == "trackTimeNotification") {
        times.push_back(notification);
        notification = Next("");
    }
    ASSERT_EQ(notification["method"].asString(), "playerStateChangedNotification") << WireText(notification);
    EXPECT_EQ(notification["params"]["playerState"].asInt(), kPaused) << notification.toStyledString();
    ASSERT_GE(times.size(), 2u);
    const Json::Value& pause = times.back()["params"];
    EXPECT_EQ(pause["trackDuration"], times[times.size() - 2]["params"]["trackDuration"]) << pause.toStyledString();
    const long pausedAt = pause["trackTime"].asInt();
    EXPECT_GE(pausedAt, 1);
    // Paused: the progress thread is silent.
    EXPECT_EQ(NextTime(2500), -1);
    EXPECT_EQ(PlayerState(), kPaused);

    {
        const Json::Value reply = Call("playUSB");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForState(kPlaying));
    EXPECT_GE(NextTime(), pausedAt);
}

TEST_F(PlaybackTest, PauseWhenNotPlayingFails)
{
    const Json::Value reply = Call("pauseUSB");
    EXPECT_FALSE(reply["result"]["success"].asBool()) << reply.toStyledString();
    EXPECT_EQ(ErrorOf(reply), Error(-1, "E: No Song to pause!")) << reply.toStyledString();
}

TEST_F(PlaybackTest, StopEndsPlaybackAndEmptiesTheTrack)
{
    PlayFileAndWaitForPlaying(InStick("Album"), "02.mp3");
    const Json::Value reply = Call("stopPlayingUSB");
    EXPECT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    EXPECT_FALSE(reply.isMember("error")) << reply.toStyledString();
    ASSERT_TRUE(WaitForState(kStopped));
    const Json::Value track = TrackInfo();
    EXPECT_EQ(track["fileName"].asString(), "") << track.toStyledString();
    EXPECT_EQ(track["filePath"].asString(), "") << track.toStyledString();
    EXPECT_EQ(track["trackTitle"].asString(), "") << track.toStyledString();
    EXPECT_EQ(track["trackTime"].asUInt(), 0u) << track.toStyledString();
    EXPECT_FALSE(track["isPlaying"].asBool()) << track.toStyledString();
    // The playlist stays: play starts nothing, as no pipeline is left.
    EXPECT_EQ(track["trackCount"].asUInt(), 3u) << track.toStyledString();
    {
        const Json::Value reply = Call("playUSB");
        EXPECT_EQ(ErrorOf(reply), Error(-1, "E: No Song to play!")) << reply.toStyledString() << reply.toStyledString();
    }
}

TEST_F(PlaybackTest, RestartWhilePlayingStartsOver)
{
    PlayFileAndWaitForPlaying(InStick("Album"), "01.mp3");
    ASSERT_GE(WaitForTime([](long t) { return t >= 1; }), 1);
    const Json::Value reply = Call("restartSongUSB");
    EXPECT_TRUE(reply["result"]["success"].asBool()) << WireText(reply);
    std::vector<int> states;
    ASSERT_TRUE(WaitForState(kPlaying, &states));
    EXPECT_EQ(states, (std::vector<int>{kStopped, kPlaying}));
    EXPECT_LE(NextTime(), 1);
    EXPECT_EQ(CurrentFileName(), "01.mp3");
}

TEST_F(PlaybackTest, RestartWhilePausedEndsPausedAndThePlayStartsFromTheBeginning)
{
    PlayFileAndWaitForPlaying(InStick("Album"), "01.mp3");
    ASSERT_GE(WaitForTime([](long t) { return t >= 1; }), 1);
    {
        const Json::Value reply = Call("pauseUSB");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForState(kPaused));

    const Json::Value reply = Call("restartSongUSB");
    EXPECT_FALSE(reply["result"]["success"].asBool()) << reply.toStyledString();
    EXPECT_EQ(ErrorOf(reply), Error(-1, "E: No Song to pause!")) << reply.toStyledString();
    std::vector<int> states;
    ASSERT_TRUE(WaitForState(kPaused, &states));
    EXPECT_EQ(states, (std::vector<int>{kStopped, kPaused}));
    EXPECT_EQ(PlayerState(), kPaused);
    EXPECT_EQ(CurrentFileName(), "01.mp3");

    {
        const Json::Value reply = Call("playUSB");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForState(kPlaying));
    EXPECT_LE(NextTime(), 1);
}

TEST_F(PlaybackTest, RestartWithNothingLoadedFails)
{
    const Json::Value reply = Call("restartSongUSB");
    EXPECT_FALSE(reply["result"]["success"].asBool()) << reply.toStyledString();
    EXPECT_EQ(ErrorOf(reply), Error(-4, "E: No file selected to play - /")) << reply.toStyledString();
    EXPECT_EQ(PlayerState(), kStopped);
}

TEST_F(PlaybackTest, StateIsStoppedBeforeAnythingPlays)
{
    EXPECT_EQ(PlayerState(), kStopped);
    EXPECT_EQ(PlayerState(), kStopped);
}

TEST_F(PlaybackTest, TrackInfoWithNothingLoadedIsComplete)
{
    const Json::Value reply = Call("getCurrentTrackInfoUSB");
    EXPECT_FALSE(reply.isMember("error")) << WireText(reply);
    const Json::Value& track = reply["result"]["trackInfo"];
    for (const char* key : {"trackTitle", "trackArtist", "trackAlbum", "filePath", "fileName"}) {
        EXPECT_TRUE(track[key].isString()) << key;
    }
    for (const char* key : {"trackIndex", "trackCount", "trackTime", "trackDuration"}) {
        EXPECT_TRUE(track[key].isUInt()) << key;
        EXPECT_EQ(track[key].asUInt(), 0u) << key;
    }
    EXPECT_TRUE(track["ID"].isUInt()) << track.toStyledString();
    EXPECT_EQ(track["isPlaying"], Json::Value(false)) << track.toStyledString();
    EXPECT_EQ(track["trackTitle"].asString(), "") << track.toStyledString();
    EXPECT_EQ(track["fileName"].asString(), "") << track.toStyledString();
    EXPECT_EQ(track.size(), 11u);
}

TEST_F(PlaybackTest, PlayFileIndexPlaysTheRecordWithThatId)
{
    PlayFileAndWaitForPlaying(InStick("Album"), "02.mp3");
    const Json::Value id = TrackInfo()["ID"];
    PlayFileAndWaitForPlaying(InStick("Album"), "01.mp3");

    Json::Value params;
    params["index"] = id;
    {
        const Json::Value reply = Call("playFileIndex", params);
        EXPECT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    std::vector<int> states;
    ASSERT_TRUE(WaitForState(kPlaying, &states));
    EXPECT_EQ(states, (std::vector<int>{kStopped, kPlaying}));
    EXPECT_EQ(CurrentFileName(), "02.mp3");
    // The current file again: nothing happens.
    {
        const Json::Value reply = Call("playFileIndex", params);
        EXPECT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    EXPECT_TRUE(StatesWithin(800).empty());
}

TEST_F(PlaybackTest, PlayFileIndexWithAnUnknownIdPlaysEverythingBelowTheMountRoot)
{
    PlaceOnStick(MediaFactory::Mp3(3), "Other/00.mp3");
    Json::Value params;
    params["index"] = 12345;
    {
        const Json::Value reply = Call("playFileIndex", params);
        EXPECT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForState(kPlaying));
    const Json::Value track = TrackInfo();
    EXPECT_EQ(track["trackCount"].asUInt(), 4u) << track.toStyledString();
    EXPECT_EQ(track["fileName"].asString(), "00.mp3") << track.toStyledString();
}

TEST_F(PlaybackTest, MissingFileMakesTheWholeStickPlay)
{
    ASSERT_EQ(unlink((Stick() + "/Album/02.mp3").c_str()), 0);
    const Json::Value reply = PlayFile(InStick("Album"), "02.mp3");
    EXPECT_TRUE(reply["result"]["success"].asBool()) << WireText(reply);
    ASSERT_TRUE(WaitForState(kPlaying));
    const Json::Value track = TrackInfo();
    EXPECT_EQ(track["fileName"].asString(), "01.mp3") << track.toStyledString();
    EXPECT_EQ(track["trackCount"].asUInt(), 2u) << track.toStyledString();
}

TEST_F(PlaybackTest, PlayFolderPlaysEveryFileBelowItFromTheFirst)
{
    PlaceOnStick(MediaFactory::Mp3(3), "Album/Disc 2/00.mp3");
    const Json::Value reply = PlayFolder(Stick(), "Album");
    EXPECT_TRUE(reply["result"]["success"].asBool()) << WireText(reply);
    ASSERT_TRUE(WaitForState(kPlaying));
    const Json::Value track = TrackInfo();
    EXPECT_EQ(track["trackCount"].asUInt(), 4u) << track.toStyledString();
    EXPECT_EQ(track["trackIndex"].asUInt(), 1u) << track.toStyledString();
    EXPECT_EQ(track["fileName"].asString(), "00.mp3") << track.toStyledString();
    EXPECT_EQ(track["filePath"].asString(), Stick() + "/Album/Disc 2") << track.toStyledString();
}

TEST_F(PlaybackTest, PlayFolderWithoutAudioFails)
{
    testing_support::WriteFile(Stick() + "/Empty/notes.txt", "no audio here");
    const Json::Value reply = PlayFolder(Stick(), "Empty");
    EXPECT_FALSE(reply["result"]["success"].asBool()) << reply.toStyledString();
    EXPECT_EQ(ErrorOf(reply), Error(-2, "E: No media files found")) << reply.toStyledString();
    EXPECT_EQ(PlayerState(), kStopped);
}

TEST_F(PlaybackTest, PlayFolderThatCannotBeOpenedFails)
{
    const Json::Value reply = PlayFolder(Stick(), "Gone");
    EXPECT_FALSE(reply["result"]["success"].asBool()) << reply.toStyledString();
    EXPECT_EQ(ErrorOf(reply), Error(-1, "E: While opendir " + Stick() + "/Gone")) << reply.toStyledString();
}

TEST_F(PlaybackTest, PlayAllSongsPlaysTheFirstFolderOfTheIndex)
{
    PlaceOnStick(MediaFactory::Mp3(3), "Zeta/00.mp3");
    IndexStick();
    Json::Value params;
    params["usbRootPath"] = Stick();
    const Json::Value reply = Call("playAllSongsUSB", params);
    EXPECT_TRUE(reply["result"]["success"].asBool()) << WireText(reply);
    ASSERT_TRUE(WaitForState(kPlaying));
    const Json::Value track = TrackInfo();
    EXPECT_EQ(track["fileName"].asString(), "01.mp3") << track.toStyledString();
    EXPECT_EQ(track["trackCount"].asUInt(), 3u) << track.toStyledString();
}

TEST_F(PlaybackTest, PlayAllSongsWithAnEmptyIndexFails)
{
    testing_support::MakeDirs(Root() + "/empty");
    Index(Root() + "/empty");
    const Json::Value reply = Call("playAllSongsUSB");
    EXPECT_FALSE(reply["result"]["success"].asBool()) << reply.toStyledString();
    EXPECT_EQ(ErrorOf(reply), Error(-6, "E: No Songs on USB!")) << reply.toStyledString();
}

TEST_F(PlaybackTest, RequestIdsOfEveryTypeAreEchoed)
{
    for (const std::string& id : {std::string("7"), std::string("\"abc\""), std::string("null"), std::string("-2.5")}) {
        ASSERT_TRUE(m_client.SendRaw(R"({"jsonrpc":"2.0","method":"getRepeatModeUSB","id":)" + id + "}"));
        std::string line;
        ASSERT_TRUE(m_client.ReadLine(line, kWireTimeoutMs));
        EXPECT_EQ(line, R"({"id":)" + id + R"(,"jsonrpc":"2.0","result":{"mode":0}})");
    }
}

TEST_F(PlaybackTest, ResultShapes)
{
    EXPECT_TRUE(Result("getTrackAlbumArt").isBool());
    EXPECT_TRUE(Result("seekForward").isBool());
    EXPECT_TRUE(Result("seekBackward").isBool());
    EXPECT_TRUE(Result("seek").isBool());
    {
        const Json::Value reply = Result("getBufferedAlbumArt");
        EXPECT_TRUE(reply["albumArt"].isString()) << reply.toStyledString();
    }
    {
        const Json::Value reply = Result("getCurrentPlayerState");
        EXPECT_TRUE(reply["playerState"].isInt()) << reply.toStyledString();
    }
    {
        const Json::Value reply = Result("isShuffleEnabledUSB");
        EXPECT_TRUE(reply["enabled"].isBool()) << reply.toStyledString();
    }
    {
        const Json::Value reply = Result("getRepeatModeUSB");
        EXPECT_TRUE(reply["mode"].isInt()) << reply.toStyledString();
    }
    {
        const Json::Value reply = Result("stopPlayingUSB");
        EXPECT_TRUE(reply["success"].isBool()) << reply.toStyledString();
    }
}

TEST_F(PlaybackTest, MissingParamsReadAsZeroFalseOrEmpty)
{
    Json::Value mode;
    mode["mode"] = 2;
    {
        const Json::Value reply = Result("setRepeatModeUSB", mode);
        ASSERT_EQ(reply["mode"].asInt(), 2) << reply.toStyledString();
    }
    {
        const Json::Value reply = Result("setRepeatModeUSB");
        EXPECT_EQ(reply["mode"].asInt(), 0) << reply.toStyledString();
    }
    {
        const Json::Value reply = Result("getRepeatModeUSB");
        EXPECT_EQ(reply["mode"].asInt(), 0) << reply.toStyledString();
    }

    Json::Value enable;
    enable["enable"] = true;
    {
        const Json::Value reply = Result("enableShuffleUSB", enable);
        ASSERT_TRUE(reply["enabled"].asBool()) << reply.toStyledString();
    }
    {
        const Json::Value reply = Result("enableShuffleUSB");
        EXPECT_FALSE(reply["enabled"].asBool()) << reply.toStyledString();
    }
    {
        const Json::Value reply = Result("isShuffleEnabledUSB");
        EXPECT_FALSE(reply["enabled"].asBool()) << reply.toStyledString();
    }
}

TEST_F(PlaybackTest, SeekWithoutParamsSeeksToZero)
{
    PlayFileAndWaitForPlaying(InStick("Album"), "01.mp3");
    ASSERT_GE(WaitForTime([](long t) { return t >= 1; }), 1);
    EXPECT_EQ(Result("seek"), Json::Value(true));
    EXPECT_EQ(WaitForTime([](long t) { return t == 0; }), 0);
}

TEST_F(PlaybackTest, WavAndWmaPlayOneAfterTheOther)
{
    PlaceOnStick(MediaFactory::Wav(2), "Mixed/a.wav");
    PlaceOnStick(MediaFactory::Wma(2), "Mixed/b.wma");
    PlayFileAndWaitForPlaying(InStick("Mixed"), "a.wav");
    {
        const Json::Value reply = TrackInfo();
        EXPECT_EQ(reply["trackCount"].asUInt(), 2u) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForState(kStopped));
    ASSERT_TRUE(WaitForState(kPlaying));
    EXPECT_EQ(CurrentFileName(), "b.wma");
    ASSERT_FALSE(Next("endOfPlayListNotification").isNull());
    EXPECT_EQ(PlayerState(), kStopped);
}

// A container with a video stream and two audio streams, named like an
// audio file: the first audio stream plays, the others stay unlinked.
TEST_F(PlaybackTest, OnlyTheFirstAudioStreamOfAFileIsPlayed)
{
    const std::string audio = "audiotestsrc num-buffers=200 samplesperbuffer=441 ! "
                              "audio/x-raw,rate=44100,channels=2 ! audioconvert ! lamemp3enc ! queue ! mux.";
    std::vector<std::string> description;
    const std::string text = "videotestsrc num-buffers=50 ! video/x-raw,width=64,height=48,framerate=25/1 ! "
                             "jpegenc ! queue ! mux.video_0 " +
                             audio + "audio_0 " + audio + "audio_1 matroskamux name=mux ! filesink";
    size_t start = 0;
    for (size_t space = text.find(' '); ; space = text.find(' ', start)) {
        description.push_back(text.substr(start, space - start));
        if (space == std::string::npos) {
            break;
        }
        start = space + 1;
    }
    PlaceOnStick(MediaFactory::Launch("video-and-two-audio.mkv", description), "Film/clip.wma");
    PlayFileAndWaitForPlaying(InStick("Film"), "clip.wma");
    EXPECT_GE(WaitForTime([](long t) { return t >= 1; }), 1);
    // It plays to its end (an error would have ended it at once).
    ASSERT_FALSE(Next("endOfPlayListNotification").isNull());
    EXPECT_EQ(Daemon().Output().find("E: "), std::string::npos) << Daemon().Output();
}

TEST_F(PlaybackTest, TrackInfoWithNothingLoadedIsEmpty)
{
    const Json::Value track = TrackInfo();
    for (const char* key : {"trackTitle", "trackArtist", "trackAlbum", "filePath", "fileName"}) {
        EXPECT_EQ(track[key].asString(), "") << key;
    }
    for (const char* key : {"trackIndex", "trackCount", "trackTime", "trackDuration"}) {
        EXPECT_EQ(track[key].asUInt(), 0u) << key;
    }
    EXPECT_FALSE(track["isPlaying"].asBool()) << track.toStyledString();
}

TEST_F(PlaybackTest, PlaylistBuiltAtMaximumDepthTakesInTheSubfolders)
{
    PlaceOnStick(MediaFactory::Mp3(3), "Album/Disc2/04.mp3");
    PlaceOnStick(MediaFactory::Mp3(3), "Album/Disc2/Bonus/05.mp3");
    {
        const Json::Value reply = Browse(InStick("Album"), 10, 0, true);
        ASSERT_TRUE(reply["result"].isMember("filelist")) << reply.toStyledString();
    }
    PlayFileAndWaitForPlaying(InStick("Album"), "02.mp3");
    const Json::Value track = TrackInfo();
    EXPECT_EQ(track["trackCount"].asUInt(), 5u) << track.toStyledString();
    EXPECT_EQ(track["fileName"].asString(), "02.mp3") << track.toStyledString();
    EXPECT_EQ(track["trackIndex"].asUInt(), 2u) << track.toStyledString();
}

TEST_F(PlaybackTest, PlaylistBuiltBelowMaximumDepthKeepsToTheFolder)
{
    PlaceOnStick(MediaFactory::Mp3(3), "Album/Disc2/04.mp3");
    {
        const Json::Value reply = Browse(InStick("Album"), 10, 0, false);
        ASSERT_TRUE(reply["result"].isMember("filelist")) << reply.toStyledString();
    }
    PlayFileAndWaitForPlaying(InStick("Album"), "02.mp3");
    {
        const Json::Value reply = TrackInfo();
        EXPECT_EQ(reply["trackCount"].asUInt(), 3u) << reply.toStyledString();
    }
}
