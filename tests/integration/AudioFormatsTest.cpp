// USBMEDIA_FORMATS through the running daemon: a ".flac" file made by the
// test is listed, indexed and played when the setting names it, and the same
// stick without the setting shows only the three usual formats.

#include "tests/integration/PlayerTestSupport.h"

#include <string>
#include <vector>

using namespace player_test;
using testing_support::DaemonProcess;
using testing_support::MediaFactory;

namespace {

// Album/01.mp3 and Album/02.flac; Lossless/ holds FLAC alone.
class AudioFormatsTest : public PlayerTest {
protected:
    void SetUp() override
    {
        PlaceOnStick(MediaFactory::Mp3(3, "One"), "Album/01.mp3");
        PlaceOnStick(MediaFactory::Flac(3, "Two"), "Album/02.flac");
        PlaceOnStick(MediaFactory::Flac(3, "Two"), "Lossless/Only.FLAC");
    }

    // Starts the daemon with USBMEDIA_FORMATS set to `formats` (left out
    // when empty) and builds the stick's index.
    void StartWithFormats(const std::string& formats)
    {
        DaemonProcess::Options options;
        if (!formats.empty()) {
            options.environment["USBMEDIA_FORMATS"] = formats;
        }
        StartDaemonWith(options);
        IndexStick();
    }

    std::vector<std::string> Names(const std::string& folder)
    {
        const Json::Value reply = Browse(folder);
        std::vector<std::string> names;
        for (const Json::Value& entry : reply["result"]["filelist"]) {
            names.push_back(entry["name"].asString());
        }
        if (names.empty()) {
            ADD_FAILURE() << "empty listing of " << folder << ": " << WireText(reply);
        }
        return names;
    }
};

}  // namespace

TEST_F(AudioFormatsTest, NamedFlacIsListedAndPlays)
{
    StartWithFormats("mp3,wma,wav,flac");
    EXPECT_EQ(Names(Stick()), (std::vector<std::string>{"Album", "Lossless"}));
    EXPECT_EQ(Names(InStick("Album")), (std::vector<std::string>{"01.mp3", "02.flac"}));
    EXPECT_EQ(Names(InStick("Lossless")), (std::vector<std::string>{"Only.FLAC"}));

    PlayFileAndWaitForPlaying(InStick("Album"), "02.flac");
    const Json::Value track = TrackInfo();
    EXPECT_EQ(track["fileName"].asString(), "02.flac") << WireText(track);
    EXPECT_EQ(track["trackIndex"].asUInt(), 2u) << WireText(track);
    EXPECT_EQ(track["trackCount"].asUInt(), 2u) << WireText(track);
    // Decoded for real: the clock runs past the first second.
    EXPECT_GE(WaitForTime([](long time) { return time >= 1; }), 1);
}

TEST_F(AudioFormatsTest, FolderOfFlacAlonePlaysWhenNamed)
{
    StartWithFormats(" FLAC , mp3 ");
    {
        const Json::Value reply = PlayFolder(Stick(), "Lossless");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << WireText(reply);
    }
    ASSERT_TRUE(WaitForState(kPlaying));
    EXPECT_EQ(CurrentFileName(), "Only.FLAC");
}

TEST_F(AudioFormatsTest, WithoutTheSettingFlacIsNotListed)
{
    StartWithFormats("");
    EXPECT_EQ(Names(Stick()), (std::vector<std::string>{"Album"}));
    EXPECT_EQ(Names(InStick("Album")), (std::vector<std::string>{"01.mp3"}));
    const Json::Value reply = Browse(InStick("Lossless"));
    EXPECT_EQ(reply["result"]["totalCount"].asInt(), 0) << WireText(reply);
}

TEST_F(AudioFormatsTest, BogusEntriesAreIgnoredWithOneWarning)
{
    StartWithFormats("mp3,fl@c,flac,toolongname");
    EXPECT_TRUE(Daemon().WaitForOutput(
        "USBMEDIA_FORMATS: ignored \"fl@c\", \"toolongname\" (up to 16 extensions of 1 to 8 letters or digits); "
        "audio files: mp3,flac\n",
        kWireTimeoutMs))
        << Daemon().Output();
    EXPECT_EQ(Names(InStick("Album")), (std::vector<std::string>{"01.mp3", "02.flac"}));
    // One line, at start-up: the walks of the index and the listing add none.
    const std::string output = Daemon().Output();
    EXPECT_EQ(output.find("USBMEDIA_FORMATS"), output.rfind("USBMEDIA_FORMATS")) << output;
}

TEST_F(AudioFormatsTest, PlayAllTakesTheNamedFormatsAlone)
{
    StartWithFormats("flac");
    const Json::Value reply = Call("playAllSongsUSB");
    ASSERT_TRUE(reply["result"]["success"].asBool()) << WireText(reply);
    ASSERT_TRUE(WaitForState(kPlaying));
    // The index's first folder, Album, without its MP3.
    const Json::Value track = TrackInfo();
    EXPECT_EQ(track["fileName"].asString(), "02.flac") << WireText(track);
    EXPECT_EQ(track["trackCount"].asUInt(), 1u) << WireText(track);
}

TEST_F(AudioFormatsTest, FlacTrackIsAnnouncedWithItsTitle)
{
    StartWithFormats("mp3,wma,wav,flac");
    {
        const Json::Value reply = PlayFile(InStick("Album"), "02.flac");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << WireText(reply);
    }
    const Json::Value notification = Next("trackInfoNotification");
    ASSERT_FALSE(notification.isNull()) << Daemon().Output();
    const Json::Value& info = notification["params"]["trackInfo"];
    EXPECT_EQ(info["trackTitle"], "Two") << WireText(notification);
    EXPECT_EQ(info["fileName"], "02.flac") << WireText(notification);
}
