// What the pipeline's bus tells the daemon while real files play: tags and
// trackInfoNotification, cover art files, undecodable and vanished files.

#include "tests/integration/DeviceFixture.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <thread>

using device_test::CountNamed;
using device_test::DeviceTest;
using device_test::MakeMp3;
using device_test::MakeWav;
using device_test::MakeWma;
using device_test::TrackTags;
using testing_support::ReadFile;
using testing_support::kWireTimeoutMs;

namespace {
const TrackTags kSongTags{"Song One", "Artist One", "Album One", "", ""};

const Json::Value* FirstNamed(const std::vector<Json::Value>& notifications, const std::string& method)
{
    for (const Json::Value& notification : notifications) {
        if (notification["method"].asString() == method) {
            return &notification;
        }
    }
    return nullptr;
}

// A track without tags: titled with its file name, as any track is when
// it is loaded, and no artist or album.
void ExpectNoTagTexts(const Json::Value& info)
{
    EXPECT_EQ(info["trackTitle"].asString(), info["fileName"].asString()) << info.toStyledString();
    EXPECT_EQ(info["trackArtist"].asString(), "") << info.toStyledString();
    EXPECT_EQ(info["trackAlbum"].asString(), "") << info.toStyledString();
}

bool Exists(const std::string& path)
{
    return access(path.c_str(), F_OK) == 0;
}

class BusMessagesTest : public DeviceTest {
protected:
    // Plays one file to its end and returns every notification on the way.
    std::vector<Json::Value> PlayToEnd(const std::string& folder, const std::string& name)
    {
        StartDaemon();
        {
            const Json::Value reply = PlayFile(folder, name);
            EXPECT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
        }
        return NotificationsUntil("endOfPlayListNotification");
    }

    // Waits until the player runs a playlist of `count` tracks on `fileName`.
    bool WaitForPlaylist(const std::string& fileName, unsigned count)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kWireTimeoutMs);
        while (std::chrono::steady_clock::now() < deadline) {
            const Json::Value info = Call("getCurrentTrackInfoUSB")["result"]["trackInfo"];
            if (info["fileName"] == fileName && info["trackCount"].asUInt() == count &&
                info["isPlaying"].asBool()) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }
};
}  // namespace

TEST_F(BusMessagesTest, TaggedMp3SendsTrackInfoOnce)
{
    MakeMp3(Stick1() + "/tagged.mp3", 2.5, kSongTags);
    const std::vector<Json::Value> seen = PlayToEnd(Stick1(), "tagged.mp3");
    ASSERT_EQ(CountNamed(seen, "endOfPlayListNotification"), 1u);
    ASSERT_EQ(CountNamed(seen, "trackInfoNotification"), 1u);

    const Json::Value& info = (*FirstNamed(seen, "trackInfoNotification"))["params"]["trackInfo"];
    EXPECT_EQ(info["trackTitle"], "Song One") << info.toStyledString();
    EXPECT_EQ(info["trackArtist"], "Artist One") << info.toStyledString();
    EXPECT_EQ(info["trackAlbum"], "Album One") << info.toStyledString();
    EXPECT_EQ(info["fileName"], "tagged.mp3") << info.toStyledString();
    EXPECT_EQ(info["filePath"], Stick1()) << info.toStyledString();
    EXPECT_EQ(info["trackIndex"], 1) << info.toStyledString();
    EXPECT_EQ(info["trackCount"], 1) << info.toStyledString();
    EXPECT_TRUE(info["isPlaying"].asBool()) << info.toStyledString();
    // An MP3's duration may not be known yet when its second tag message comes.
    EXPECT_LE(info["trackDuration"].asUInt(), 2u) << info.toStyledString();
    EXPECT_TRUE(m_daemon->WaitForOutput("Got Artist data from gst", 1000));
    EXPECT_TRUE(m_daemon->WaitForOutput("Sending Out TrackInfo Notification since some info was updated", 1000));
}

TEST_F(BusMessagesTest, UntaggedMp3IsAnnouncedOnceWithoutArtistOrAlbum)
{
    MakeMp3(Stick1() + "/plain.mp3", 2.0);
    const std::vector<Json::Value> seen = PlayToEnd(Stick1(), "plain.mp3");
    ASSERT_EQ(CountNamed(seen, "endOfPlayListNotification"), 1u);
    ASSERT_EQ(CountNamed(seen, "trackInfoNotification"), 1u);
    const Json::Value& info = (*FirstNamed(seen, "trackInfoNotification"))["params"]["trackInfo"];
    ExpectNoTagTexts(info);
    EXPECT_EQ(info["fileName"], "plain.mp3") << info.toStyledString();
    EXPECT_EQ(info["filePath"], Stick1()) << info.toStyledString();
    EXPECT_TRUE(info["isPlaying"].asBool()) << info.toStyledString();
}

TEST_F(BusMessagesTest, WmaIsAnnouncedOnce)
{
    MakeWma(Stick1() + "/Slow Rain.wma", 2.0, {"Slow Rain", "The Demo Trio", "Late Set", "", ""});
    const std::vector<Json::Value> seen = PlayToEnd(Stick1(), "Slow Rain.wma");
    ASSERT_EQ(CountNamed(seen, "endOfPlayListNotification"), 1u);
    ASSERT_EQ(CountNamed(seen, "trackInfoNotification"), 1u);
    const Json::Value& info = (*FirstNamed(seen, "trackInfoNotification"))["params"]["trackInfo"];
    EXPECT_EQ(info["fileName"], "Slow Rain.wma") << info.toStyledString();
    EXPECT_EQ(info["trackIndex"], 1) << info.toStyledString();
    EXPECT_TRUE(info["isPlaying"].asBool()) << info.toStyledString();
}

TEST_F(BusMessagesTest, WavWithOneTagMessageSendsTrackInfoAfterIt)
{
    MakeWav(Stick1() + "/tagged.wav", 2.5, true);
    const std::vector<Json::Value> seen = PlayToEnd(Stick1(), "tagged.wav");
    ASSERT_EQ(CountNamed(seen, "endOfPlayListNotification"), 1u);
    ASSERT_EQ(CountNamed(seen, "trackInfoNotification"), 1u);
    const Json::Value& info = (*FirstNamed(seen, "trackInfoNotification"))["params"]["trackInfo"];
    EXPECT_EQ(info["trackTitle"], "WaveTitle") << info.toStyledString();
    EXPECT_EQ(info["trackArtist"], "WaveArtist") << info.toStyledString();
    EXPECT_EQ(info["trackAlbum"], "WaveAlbum") << info.toStyledString();
    EXPECT_EQ(info["trackDuration"], 2) << info.toStyledString();
}

TEST_F(BusMessagesTest, UntaggedWavIsAnnouncedWithoutArtistOrAlbum)
{
    MakeWav(Stick1() + "/plain.wav", 1.0, false);
    const std::vector<Json::Value> seen = PlayToEnd(Stick1(), "plain.wav");
    ASSERT_EQ(CountNamed(seen, "endOfPlayListNotification"), 1u);
    // One for each of the first three tag messages, however many there are.
    const size_t count = CountNamed(seen, "trackInfoNotification");
    EXPECT_GE(count, 1u);
    EXPECT_LE(count, 3u);
    for (const Json::Value& notification : seen) {
        if (notification["method"] == "trackInfoNotification") {
            ExpectNoTagTexts(notification["params"]["trackInfo"]);
            EXPECT_EQ(notification["params"]["trackInfo"]["fileName"], "plain.wav") << notification.toStyledString();
        }
    }
}

TEST_F(BusMessagesTest, CoverArtIsWrittenToNewFilesInACreatedDirectory)
{
    TrackTags tags = kSongTags;
    tags.coverPath = device_test::CoverJpeg();
    MakeMp3(Stick1() + "/cover.mp3", 8.0, tags);
    ASSERT_FALSE(Exists(ArtDirectory()));
    StartDaemon();
    {
        const Json::Value reply = PlayFile(Stick1(), "cover.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    Json::Value notification;
    ASSERT_TRUE(NextNotification(notification, "trackInfoNotification"));
    {
        const Json::Value reply = Call("getBufferedAlbumArt");
        EXPECT_EQ(reply["result"]["albumArt"], "") << reply.toStyledString();
    }

    const std::string first = RequestArt();
    EXPECT_EQ(first, ArtDirectory() + "/art.dat");
    EXPECT_EQ(ReadFile(first), ReadFile(tags.coverPath));
    struct stat info {};
    ASSERT_EQ(stat(ArtDirectory().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0770u);
    {
        const Json::Value reply = Call("getBufferedAlbumArt");
        EXPECT_EQ(reply["result"]["albumArt"], first) << reply.toStyledString();
    }
    EXPECT_TRUE(m_daemon->WaitForOutput("image width is: 32", 1000));
    EXPECT_TRUE(m_daemon->WaitForOutput("image height is: 24", 1000));

    const std::string second = RequestArt();
    EXPECT_EQ(second, ArtDirectory() + "/art0.dat");
    EXPECT_EQ(ReadFile(second), ReadFile(tags.coverPath));
    {
        const Json::Value reply = Call("getBufferedAlbumArt");
        EXPECT_EQ(reply["result"]["albumArt"], second) << reply.toStyledString();
    }

    Call("stopPlayingUSB");
    {
        const Json::Value reply = Call("getBufferedAlbumArt");
        EXPECT_EQ(reply["result"]["albumArt"], "") << reply.toStyledString();
    }
}

TEST_F(BusMessagesTest, CoverArtNeverOverwritesAFile)
{
    TrackTags tags = kSongTags;
    tags.coverPath = device_test::CoverJpeg();
    MakeMp3(Stick1() + "/cover.mp3", 8.0, tags);
    testing_support::WriteFile(ArtDirectory() + "/art.dat", "older");
    testing_support::WriteFile(ArtDirectory() + "/art0.dat", "older");
    StartDaemon();
    {
        const Json::Value reply = PlayFile(Stick1(), "cover.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }

    // Asked at once, maybe before the tags are read: served once the image is known.
    EXPECT_EQ(RequestArt(), ArtDirectory() + "/art1.dat");
    EXPECT_EQ(ReadFile(ArtDirectory() + "/art.dat"), "older");
    EXPECT_EQ(ReadFile(ArtDirectory() + "/art0.dat"), "older");
}

TEST_F(BusMessagesTest, ArtRequestForTrackWithoutImageStaysPending)
{
    MakeMp3(Stick1() + "/plain.mp3", 4.0, kSongTags);
    StartDaemon();
    {
        const Json::Value reply = PlayFile(Stick1(), "plain.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    {
        const Json::Value reply = Call("getTrackAlbumArt");
        EXPECT_TRUE(reply["result"].asBool()) << reply.toStyledString();
    }
    EXPECT_TRUE(NoNotification("trackAlbumArtNotification", 2500));
    EXPECT_FALSE(Exists(ArtDirectory()));
}

TEST_F(BusMessagesTest, UndecodableFileIsSkipped)
{
    device_test::MakeCorruptFile(Stick1() + "/mix/a.mp3", 20000);
    MakeMp3(Stick1() + "/mix/b.mp3", 4.0);
    StartDaemon();
    PlayFile(Stick1() + "/mix", "a.mp3");
    EXPECT_TRUE(WaitForPlayingFile("b.mp3"));
    const Json::Value info = Call("getCurrentTrackInfoUSB")["result"]["trackInfo"];
    EXPECT_EQ(info["trackIndex"], 2) << info.toStyledString();
    EXPECT_EQ(info["trackCount"], 2) << info.toStyledString();
}

TEST_F(BusMessagesTest, VanishedFileRestartsStickOnceThenReportsIt)
{
    const std::string music = Stick1() + "/music";
    MakeMp3(music + "/a.mp3", 3.0);
    MakeMp3(music + "/b.mp3", 1.0);
    MakeMp3(music + "/c.mp3", 1.0);
    StartDaemon();
    {
        const Json::Value reply = Index(Stick1());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    {
        const Json::Value reply = PlayFile(music, "a.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForPlaylist("a.mp3", 3));

    // b is gone when a ends: the stick is played again from its root.
    ASSERT_EQ(unlink((music + "/b.mp3").c_str()), 0);
    ASSERT_TRUE(WaitForPlaylist("a.mp3", 2));
    EXPECT_TRUE(NoNotification("usbConnectionNotification", 100));

    // c is gone too: a second miss reports the stick.
    ASSERT_EQ(unlink((music + "/c.mp3").c_str()), 0);
    Json::Value notification;
    ASSERT_TRUE(NextNotification(notification, "usbConnectionNotification"));
    Json::Value expected;
    expected["usbDeviceName"] = "usb1";
    expected["connected"] = false;
    expected["errorCode"] = "fileNotFound";
    EXPECT_EQ(notification["params"], expected) << notification.toStyledString();
    EXPECT_EQ(PlayerState(), 0);
    Json::Value device;
    device["deviceName"] = "usb1";
    {
        const Json::Value reply = Call("isUSBconnected", device);
        EXPECT_EQ(reply["result"]["errorCode"], "fileNotFound") << reply.toStyledString();
    }
}

namespace {
// Puts a link to `target` in place of the listed file `path`.
void SwapForLink(const std::string& path, const std::string& target)
{
    ASSERT_EQ(unlink(path.c_str()), 0);
    ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0);
}
}  // namespace

// A listed file swapped for a link out of the stick (here to the daemon's
// own memory, unreadable at offset 0) is never opened: it plays as a file
// that vanished. Read errors of the stick's own files are StickFaultTest's.
TEST_F(BusMessagesTest, FileSwappedForALinkOutOfTheStickPlaysAsAVanishedOne)
{
    const std::string music = Stick1() + "/music";
    MakeMp3(music + "/a.mp3", 3.0);
    MakeMp3(music + "/b.mp3", 1.0);
    MakeMp3(music + "/c.mp3", 1.0);
    StartDaemon();
    {
        const Json::Value reply = Index(Stick1());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    {
        const Json::Value reply = PlayFile(music, "a.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForPlaylist("a.mp3", 3));

    ASSERT_NO_FATAL_FAILURE(SwapForLink(music + "/b.mp3", "/proc/self/mem"));
    ASSERT_TRUE(WaitForPlaylist("a.mp3", 2));
    EXPECT_TRUE(NoNotification("usbConnectionNotification", 100));

    ASSERT_NO_FATAL_FAILURE(SwapForLink(music + "/c.mp3", "/proc/self/mem"));
    Json::Value notification;
    ASSERT_TRUE(NextNotification(notification, "usbConnectionNotification"));
    EXPECT_EQ(notification["params"]["errorCode"], "fileNotFound") << notification.toStyledString();
    EXPECT_EQ(PlayerState(), 0);
    EXPECT_EQ(m_daemon->Output().find("Unreadable resource"), std::string::npos) << m_daemon->Output();
}

// A link on the second stick to a file of the first is not followed either.
TEST_F(BusMessagesTest, FileSwappedForALinkToTheOtherStickIsNotPlayed)
{
    MakeMp3(Stick2() + "/a.mp3", 2.0);
    MakeMp3(Stick2() + "/b.mp3", 1.0);
    MakeMp3(Stick1() + "/other.mp3", 30.0);
    StartDaemon();
    {
        const Json::Value reply = PlayFile(Stick2(), "a.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForPlaylist("a.mp3", 2));
    ASSERT_NO_FATAL_FAILURE(SwapForLink(Stick2() + "/b.mp3", Stick1() + "/other.mp3"));

    // b is not found: the stick is played again from its root, where no
    // index lists anything.
    ASSERT_TRUE(m_daemon->WaitForOutput("No Songs on USB!", kWireTimeoutMs)) << m_daemon->Output();
    const Json::Value track = Call("getCurrentTrackInfoUSB")["result"]["trackInfo"];
    EXPECT_NE(track["trackDuration"], 30) << track.toStyledString();
    EXPECT_EQ(m_daemon->Output().find("Unreadable resource"), std::string::npos) << m_daemon->Output();
}

TEST_F(BusMessagesTest, Utf8TagTextArrivesUnchangedInNotificationAndReply)
{
    MakeMp3(Stick1() + "/cafe.mp3", 6.0, {"Caf\xC3\xA9", "Bj\xC3\xB6rk", "\xC3\x89t\xC3\xA9", "", ""});
    StartDaemon();
    {
        const Json::Value reply = PlayFile(Stick1(), "cafe.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    Json::Value notification;
    ASSERT_TRUE(NextNotification(notification, "trackInfoNotification"));
    const Json::Value& sent = notification["params"]["trackInfo"];
    EXPECT_EQ(sent["trackTitle"], "Caf\xC3\xA9") << sent.toStyledString();
    EXPECT_EQ(sent["trackArtist"], "Bj\xC3\xB6rk") << sent.toStyledString();
    EXPECT_EQ(sent["trackAlbum"], "\xC3\x89t\xC3\xA9") << sent.toStyledString();

    const Json::Value replied = Call("getCurrentTrackInfoUSB")["result"]["trackInfo"];
    EXPECT_EQ(replied["trackTitle"], "Caf\xC3\xA9") << replied.toStyledString();
    EXPECT_EQ(replied["trackArtist"], "Bj\xC3\xB6rk") << replied.toStyledString();
    EXPECT_EQ(replied["trackAlbum"], "\xC3\x89t\xC3\xA9") << replied.toStyledString();
}

TEST_F(BusMessagesTest, Latin1FileNameArrivesAsUtf8InNotificationAndReply)
{
    // "été.mp3" in ISO8859-1 on the stick.
    MakeMp3(Stick1() + "/music/\xE9t\xE9.mp3", 6.0, kSongTags);
    StartDaemon();
    {
        const Json::Value reply = PlayFile(Stick1() + "/music", "\xC3\xA9t\xC3\xA9.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    Json::Value notification;
    ASSERT_TRUE(NextNotification(notification, "trackInfoNotification"));
    const Json::Value& sent = notification["params"]["trackInfo"];
    EXPECT_EQ(sent["fileName"].asString(), "\xC3\xA9t\xC3\xA9.mp3") << sent.toStyledString();
    EXPECT_EQ(sent["filePath"].asString(), Stick1() + "/music") << sent.toStyledString();

    const Json::Value replied = Call("getCurrentTrackInfoUSB")["result"]["trackInfo"];
    EXPECT_EQ(replied["fileName"].asString(), "\xC3\xA9t\xC3\xA9.mp3") << replied.toStyledString();
    EXPECT_EQ(replied["filePath"].asString(), Stick1() + "/music") << replied.toStyledString();
    EXPECT_EQ(replied["trackTitle"].asString(), "Song One") << replied.toStyledString();
}

TEST_F(BusMessagesTest, PreviewImageTakesPriorityOverImage)
{
    TrackTags tags = kSongTags;
    tags.coverPath = device_test::CoverJpeg();
    tags.previewPath = device_test::IconJpeg();
    MakeMp3(Stick1() + "/both.mp3", 8.0, tags);
    StartDaemon();
    {
        const Json::Value reply = PlayFile(Stick1(), "both.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    const std::string art = RequestArt();
    EXPECT_EQ(ReadFile(art), ReadFile(tags.previewPath));
    EXPECT_TRUE(m_daemon->WaitForOutput("image width is: 16", 1000));
}

TEST_F(BusMessagesTest, DemuxErrorTakesTheReadErrorPath)
{
    device_test::MakeBrokenHeaderWav(Stick1() + "/broken.wav");
    StartDaemon();
    PlayFile(Stick1(), "broken.wav");

    // GStreamer does not always report this header the same way: mostly as
    // error code 9, at times (depending on how its threads meet) as another
    // stream error, which skips the track instead. The path for code 9 is
    // what is checked here; a real read error pins it in StickFaultTest.
    bool readError = false;
    bool skipped = false;
    for (int turn = 0; turn < 300 && !readError && !skipped; ++turn) {
        readError = m_daemon->WaitForOutput("Unreadable resource", 50);
        skipped = !readError && m_daemon->WaitForOutput("endOfPlayListNotification sent", 50);
    }
    if (skipped) {
        GTEST_SKIP() << "GStreamer reported the broken header as another error this time: the track was skipped";
    }
    ASSERT_TRUE(readError) << m_daemon->Output();
    ASSERT_NO_FATAL_FAILURE(ExpectBadFileNotifications());
    EXPECT_EQ(PlayerState(), 0);
}

TEST_F(BusMessagesTest, NotFoundCountSurvivesLaterTracks)
{
    const std::string music = Stick1() + "/music";
    MakeMp3(music + "/a.mp3", 3.0);
    MakeMp3(music + "/b.mp3", 1.0);
    MakeMp3(music + "/c.mp3", 1.0);
    MakeMp3(music + "/d.mp3", 3.0);
    MakeMp3(music + "/e.mp3", 1.0);
    StartDaemon();
    {
        const Json::Value reply = Index(Stick1());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    {
        const Json::Value reply = PlayFile(music, "a.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForPlaylist("a.mp3", 5));

    // The first miss plays the stick again from its root...
    ASSERT_EQ(unlink((music + "/b.mp3").c_str()), 0);
    ASSERT_TRUE(WaitForPlaylist("a.mp3", 4));
    // ...whose tracks then play through, a, c and d, without a report...
    ASSERT_TRUE(WaitForPlaylist("d.mp3", 4));
    ASSERT_EQ(unlink((music + "/e.mp3").c_str()), 0);
    // ...until the next miss, which is the second: the stick is reported.
    Json::Value notification;
    ASSERT_TRUE(NextNotification(notification, "usbConnectionNotification"));
    EXPECT_EQ(notification["params"]["errorCode"], "fileNotFound") << notification.toStyledString();
    EXPECT_EQ(PlayerState(), 0);
}
