// The art folder through the running daemon: however often a client asks
// for the cover, at most sixteen art files stay and the names go on in
// sequence, also across a restart; a cover too large is never written.

#include "tests/integration/DeviceFixture.h"
#include "tests/support/ArtFileNames.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include <memory>
#include <set>
#include <string>

using device_test::DeviceTest;
using device_test::MakeMp3;
using device_test::TrackTags;
using testing_support::ArtName;
using testing_support::ArtNames;
using testing_support::Describe;
using testing_support::FolderNames;
using testing_support::ReadFile;
using testing_support::WriteFile;
using testing_support::kWireTimeoutMs;

namespace {
constexpr size_t kKeptFiles = 16;

class AlbumArtFolderTest : public DeviceTest {
protected:
    // Starts the daemon and plays one long MP3 with the cover `coverPath`.
    void PlayCoveredTrack(const std::string& coverPath)
    {
        const std::string song = Stick1() + "/cover.mp3";
        if (access(song.c_str(), F_OK) != 0) {
            TrackTags tags{"Covered", "Artist", "Album", coverPath, ""};
            MakeMp3(song, device_test::kLongTrackSeconds, tags);
        }
        StartDaemon();
        const Json::Value reply = PlayFile(Stick1(), "cover.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
};
}  // namespace

TEST_F(AlbumArtFolderTest, ManyRequestsKeepSixteenFilesAndGoOnInSequence)
{
    ASSERT_NO_FATAL_FAILURE(PlayCoveredTrack(device_test::CoverJpeg()));
    EXPECT_EQ(RequestArt(), ArtDirectory() + "/art.dat");
    for (int n = 0; n < 39; ++n) {
        ASSERT_EQ(RequestArt(), ArtDirectory() + "/" + ArtName(n));
        ASSERT_LE(FolderNames(ArtDirectory()).size(), kKeptFiles) << Describe(FolderNames(ArtDirectory()));
    }
    EXPECT_EQ(FolderNames(ArtDirectory()), ArtNames(23, 38)) << Describe(FolderNames(ArtDirectory()));
    EXPECT_EQ(ReadFile(ArtDirectory() + "/art38.dat"), ReadFile(device_test::CoverJpeg()));
    EXPECT_EQ(Call("getBufferedAlbumArt")["result"]["albumArt"], ArtDirectory() + "/art38.dat");
}

TEST_F(AlbumArtFolderTest, AfterARestartStaleFilesAreTrimmedAndTheSequenceFollowsTheHighest)
{
    ASSERT_NO_FATAL_FAILURE(PlayCoveredTrack(device_test::CoverJpeg()));
    EXPECT_EQ(RequestArt(), ArtDirectory() + "/art.dat");
    EXPECT_EQ(RequestArt(), ArtDirectory() + "/art0.dat");
    ASSERT_EQ(m_daemon->Stop(SIGTERM, kWireTimeoutMs), 0) << m_daemon->Output();

    // Forty art files in all, as a run of a version that kept every file
    // leaves them, and files of someone else's.
    for (int n = 1; n < 39; ++n) {
        WriteFile(ArtDirectory() + "/" + ArtName(n), "stale");
    }
    ASSERT_EQ(FolderNames(ArtDirectory()).size(), 40u);
    WriteFile(ArtDirectory() + "/notes.txt", "not the service's");
    WriteFile(ArtDirectory() + "/art007.dat", "not the service's");

    ASSERT_NO_FATAL_FAILURE(PlayCoveredTrack(device_test::CoverJpeg()));
    EXPECT_EQ(RequestArt(), ArtDirectory() + "/art39.dat");
    std::set<std::string> expected = ArtNames(24, 39);
    expected.insert({"notes.txt", "art007.dat"});
    EXPECT_EQ(FolderNames(ArtDirectory()), expected) << Describe(FolderNames(ArtDirectory()));
    EXPECT_EQ(ReadFile(ArtDirectory() + "/notes.txt"), "not the service's");
    EXPECT_EQ(ReadFile(ArtDirectory() + "/art39.dat"), ReadFile(device_test::CoverJpeg()));
}

TEST_F(AlbumArtFolderTest, CoverOverSixteenMebibytesIsAnnouncedWithAnEmptyPathAndNotWritten)
{
    // A real JPEG padded past 16 MiB: GStreamer still types it as an image.
    const testing_support::TempDir images;
    const std::string cover = images / "large.jpg";
    const std::string jpeg = ReadFile(device_test::CoverJpeg());
    const size_t size = 16u * 1024u * 1024u + 4096u;
    WriteFile(cover, jpeg + std::string(size - jpeg.size(), '\0'));

    ASSERT_NO_FATAL_FAILURE(PlayCoveredTrack(cover));
    EXPECT_EQ(RequestArt(), "");
    EXPECT_TRUE(m_daemon->WaitForOutput("image size is: " + std::to_string(size), kWireTimeoutMs))
        << m_daemon->Output();
    EXPECT_NE(access(ArtDirectory().c_str(), F_OK), 0) << Describe(FolderNames(ArtDirectory()));
    EXPECT_EQ(Call("getBufferedAlbumArt")["result"]["albumArt"], "");
    EXPECT_EQ(Call("getCurrentTrackInfoUSB")["result"]["trackInfo"]["fileName"], "cover.mp3");
}
