// File and track records: slash stripping, the root record, track loading
// and clearing.
#include "library/File.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

TEST(FileTest, ConstructorStripsTrailingSlashesFromNameAndPath)
{
    const CFile file(7, "Music/", "/mnt/usb-stick1//", true);
    EXPECT_EQ(file.m_name, "Music");
    EXPECT_EQ(file.m_path, "/mnt/usb-stick1");
    EXPECT_TRUE(file.m_isFolder);
    EXPECT_EQ(file.GetId(), 7u);
}

TEST(FileTest, SingleSlashPathIsKept)
{
    const CFile file(1, "a.mp3", "/", false);
    EXPECT_EQ(file.m_path, "/");
    const CFile slashes(1, "a.mp3", "///", false);
    EXPECT_EQ(slashes.m_path, "/");
}

TEST(FileTest, SettersStripTrailingSlashes)
{
    CFile file(1, "x", "y", false);
    file.SetName("Album//");
    file.SetPath("/mnt/usb-stick1/");
    EXPECT_EQ(file.GetName(), "Album");
    EXPECT_EQ(file.GetPath(), "/mnt/usb-stick1");
    file.SetPath("/");
    EXPECT_EQ(file.GetPath(), "/");
}

TEST(FileTest, RootRecordIsTheMntFolderWithoutId)
{
    unsetenv("USBMEDIA_ROOT");
    const CFile root = CFile::Root();
    EXPECT_EQ(root.m_id, kNoEntryId);
    EXPECT_EQ(root.m_id, 0xFFFFFFFFu);
    EXPECT_EQ(root.m_name, "");
    EXPECT_EQ(root.m_path, "/mnt");
    EXPECT_TRUE(root.m_isFolder);
}

TEST(FileTest, RootRecordFollowsTheSystemRoot)
{
    setenv("USBMEDIA_ROOT", "/tmp/some-root/", 1);
    EXPECT_EQ(CFile::Root().m_path, "/tmp/some-root/mnt");
    unsetenv("USBMEDIA_ROOT");
}

TEST(FileTest, RecordsCopyByValue)
{
    std::vector<CFile> files{CFile(1, "a.mp3", "/p", false), CFile(2, "B", "/p", true)};
    std::vector<CFile> copy = files;
    copy[0].SetName("changed.mp3");
    EXPECT_EQ(files[0].m_name, "a.mp3");
    EXPECT_EQ(copy[1].m_id, 2u);
}

TEST(TrackInfoTest, DefaultTrackIsTheRootRecordWithUntitledArtist)
{
    unsetenv("USBMEDIA_ROOT");
    const CTrackInfo track;
    EXPECT_EQ(track.m_id, kNoEntryId);
    EXPECT_EQ(track.m_name, "");
    EXPECT_EQ(track.m_path, "/mnt");
    EXPECT_TRUE(track.m_isFolder);
    EXPECT_EQ(track.m_title, "");
    EXPECT_EQ(track.m_artist, "Untitled");
    EXPECT_EQ(track.m_album, "");
    EXPECT_EQ(track.m_duration, 0u);
    EXPECT_EQ(track.m_extra, "");
}

TEST(TrackInfoTest, SetFromFileTakesTheFileAndTitlesItWithItsName)
{
    CTrackInfo track;
    track.m_artist = "Band";
    track.m_album = "Record";
    track.m_duration = 42;
    track.m_extra = "x";
    ASSERT_TRUE(track.SetFromFile(CFile(99, "Song.mp3", "/mnt/usb-stick1/Music", false)));
    EXPECT_EQ(track.m_name, "Song.mp3");
    EXPECT_EQ(track.m_path, "/mnt/usb-stick1/Music");
    EXPECT_FALSE(track.m_isFolder);
    EXPECT_EQ(track.m_title, "Song.mp3");
    EXPECT_EQ(track.m_id, 99u);
    EXPECT_EQ(track.m_artist, "Band");
    EXPECT_EQ(track.m_album, "Record");
    EXPECT_EQ(track.m_duration, 42u);
    EXPECT_EQ(track.m_extra, "x");
}

TEST(TrackInfoTest, SetFromFileRefusesAFolderAndKeepsTheTrack)
{
    CTrackInfo track;
    ASSERT_TRUE(track.SetFromFile(CFile(5, "a.mp3", "/p", false)));
    track.m_title = "Title";
    EXPECT_FALSE(track.SetFromFile(CFile(6, "Folder", "/q", true)));
    EXPECT_EQ(track.m_name, "a.mp3");
    EXPECT_EQ(track.m_path, "/p");
    EXPECT_EQ(track.m_id, 5u);
    EXPECT_EQ(track.m_title, "Title");
    EXPECT_FALSE(track.m_isFolder);
}

TEST(TrackInfoTest, ClearTrackEmptiesTextsAndDurationButKeepsTheId)
{
    CTrackInfo track;
    ASSERT_TRUE(track.SetFromFile(CFile(5, "a.mp3", "/p", false)));
    track.m_album = "Album";
    track.m_duration = 300;
    track.m_extra = "extra";
    track.ClearTrack();
    EXPECT_EQ(track.m_title, "");
    EXPECT_EQ(track.m_artist, "");
    EXPECT_EQ(track.m_album, "");
    EXPECT_EQ(track.m_extra, "");
    EXPECT_EQ(track.m_name, "");
    EXPECT_EQ(track.m_path, "");
    EXPECT_EQ(track.m_duration, 0u);
    EXPECT_EQ(track.m_id, 5u);
}

TEST(TextHelpersTest, StripTrailingSlashes)
{
    EXPECT_EQ(StripTrailingSlashes(""), "");
    EXPECT_EQ(StripTrailingSlashes("/"), "/");
    EXPECT_EQ(StripTrailingSlashes("//"), "/");
    EXPECT_EQ(StripTrailingSlashes("a//"), "a");
    EXPECT_EQ(StripTrailingSlashes("/a/b/"), "/a/b");
    EXPECT_EQ(StripTrailingSlashes("/a/b"), "/a/b");
}

TEST(TextHelpersTest, ToLowerCopyIsByteWiseAscii)
{
    EXPECT_EQ(ToLowerCopy("AbC.MP3"), "abc.mp3");
    // Bytes above 0x7F are left alone, as in the "C" locale.
    EXPECT_EQ(ToLowerCopy("CAF\xC9"), "caf\xC9");
    EXPECT_EQ(ToLowerCopy(""), "");
}
