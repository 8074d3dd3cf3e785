// An album's image: the picture embedded in a track, or a cover file beside
// the tracks, never read off the stick.
#include "library/AlbumCover.h"

#include "tests/support/StickRootTest.h"
#include "tests/support/TagCorpus.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

using testing_support::MakeTaggedFiles;
using testing_support::STaggedFile;
using testing_support::MakeDirs;
using testing_support::WriteFile;

namespace {

// The 1x1 PNG tag_files.py embeds for "picture".
const std::vector<uint8_t> kPng = {
    0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a, 0x00, 0x00, 0x00, 0x0d, 0x49, 0x48, 0x44, 0x52, 0x00, 0x00,
    0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x08, 0x06, 0x00, 0x00, 0x00, 0x1f, 0x15, 0xc4, 0x89, 0x00, 0x00, 0x00,
    0x0d, 0x49, 0x44, 0x41, 0x54, 0x78, 0x9c, 0x63, 0x60, 0x00, 0x00, 0x02, 0x00, 0x01, 0x54, 0xa2, 0x4f,
    0x5d, 0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4e, 0x44, 0xae, 0x42, 0x60, 0x82};

std::vector<uint8_t> Bytes(const std::string& text)
{
    return std::vector<uint8_t>(text.begin(), text.end());
}

using AlbumCoverTest = testing_support::StickRootTest;

}  // namespace

TEST_F(AlbumCoverTest, TheEmbeddedPictureOfAnMp3IsRead)
{
    const std::vector<STaggedFile> files = {
        {"Album/with.mp3", "id3v24", "utf8", {{"title", "With"}, {"picture", "true"}}},
        {"Album/without.mp3", "id3v24", "utf8", {{"title", "Without"}}},
    };
    ASSERT_NO_FATAL_FAILURE(MakeTaggedFiles(Stick(), files));
    EXPECT_EQ(ReadEmbeddedCover(Stick() + "/Album", "with.mp3", 1 << 20), kPng);
    EXPECT_TRUE(ReadEmbeddedCover(Stick() + "/Album", "without.mp3", 1 << 20).empty());
    EXPECT_TRUE(ReadEmbeddedCover(Stick() + "/Album", "missing.mp3", 1 << 20).empty());
}

TEST_F(AlbumCoverTest, AnEmbeddedPictureBeyondTheLimitIsNotTaken)
{
    const std::vector<STaggedFile> files = {
        {"Album/with.mp3", "id3v23", "latin1", {{"title", "With"}, {"picture", "true"}}},
    };
    ASSERT_NO_FATAL_FAILURE(MakeTaggedFiles(Stick(), files));
    EXPECT_EQ(ReadEmbeddedCover(Stick() + "/Album", "with.mp3", kPng.size()), kPng);
    EXPECT_TRUE(ReadEmbeddedCover(Stick() + "/Album", "with.mp3", kPng.size() - 1).empty());
}

TEST_F(AlbumCoverTest, AnEmbeddedPictureIsNotReadThroughALinkOffTheStick)
{
    const std::vector<STaggedFile> files = {
        {"with.mp3", "id3v24", "utf8", {{"title", "With"}, {"picture", "true"}}},
    };
    ASSERT_NO_FATAL_FAILURE(MakeTaggedFiles(m_dir / "outside", files));
    MakeDirs(Stick() + "/Album");
    ASSERT_EQ(symlink((m_dir / "outside/with.mp3").c_str(), (Stick() + "/Album/link.mp3").c_str()), 0);
    EXPECT_TRUE(ReadEmbeddedCover(Stick() + "/Album", "link.mp3", 1 << 20).empty());
}

TEST_F(AlbumCoverTest, CoverJpgOrFolderJpgBesideTheTracks)
{
    WriteFile(Stick() + "/A/cover.jpg", "cover image");
    WriteFile(Stick() + "/A/folder.jpg", "folder image");
    WriteFile(Stick() + "/B/folder.jpg", "folder image");
    MakeDirs(Stick() + "/C");
    EXPECT_EQ(ReadFolderCover(Stick() + "/A", 1 << 20), Bytes("cover image"));
    EXPECT_EQ(ReadFolderCover(Stick() + "/B", 1 << 20), Bytes("folder image"));
    EXPECT_TRUE(ReadFolderCover(Stick() + "/C", 1 << 20).empty());
    EXPECT_TRUE(ReadFolderCover(Stick() + "/A", 5).empty()) << "both are larger than the limit";
}

TEST_F(AlbumCoverTest, ACoverLinkedOffTheStickIsIgnored)
{
    WriteFile(m_dir / "etc/secret.jpg", "not the stick's");
    MakeDirs(Stick() + "/A");
    ASSERT_EQ(symlink((m_dir / "etc/secret.jpg").c_str(), (Stick() + "/A/cover.jpg").c_str()), 0);
    EXPECT_TRUE(ReadFolderCover(Stick() + "/A", 1 << 20).empty());
    // The next name is taken instead.
    WriteFile(Stick() + "/A/folder.jpg", "folder image");
    EXPECT_EQ(ReadFolderCover(Stick() + "/A", 1 << 20), Bytes("folder image"));
}

TEST_F(AlbumCoverTest, ACoverLinkedOntoTheOtherStickIsIgnored)
{
    WriteFile(m_dir / "mnt/usb-stick2/cover.jpg", "the other stick's");
    MakeDirs(Stick() + "/A");
    ASSERT_EQ(symlink((m_dir / "mnt/usb-stick2/cover.jpg").c_str(), (Stick() + "/A/cover.jpg").c_str()), 0);
    EXPECT_TRUE(ReadFolderCover(Stick() + "/A", 1 << 20).empty());
}

TEST_F(AlbumCoverTest, ACoverFolderIsIgnored)
{
    MakeDirs(Stick() + "/A/cover.jpg");
    WriteFile(Stick() + "/A/cover.jpg/inside.jpg", "inside");
    EXPECT_TRUE(ReadFolderCover(Stick() + "/A", 1 << 20).empty());
    WriteFile(Stick() + "/A/folder.jpg", "folder image");
    EXPECT_EQ(ReadFolderCover(Stick() + "/A", 1 << 20), Bytes("folder image"));
}
