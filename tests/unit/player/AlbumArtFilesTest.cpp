// The art folder on a real file system: names in sequence, only the newest
// sixteen kept, the next name known without reading the folder again,
// foreign files left alone, and images too large not written.

#include "player/AlbumArtFiles.h"

#include "core/PosixHandles.h"
#include "tests/support/ArtFileNames.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

using testing_support::ArtName;
using testing_support::ArtNames;
using testing_support::Describe;
using testing_support::FolderNames;
using testing_support::MakeDirs;
using testing_support::ReadFile;
using testing_support::TempDir;
using testing_support::WriteFile;

namespace {
const std::vector<uint8_t> kImage{0xFF, 0xD8, 0xFF, 0xE0, 'J', 'F', 'I', 'F'};

class AlbumArtFilesTest : public testing::Test {
protected:
    std::string Folder() const { return m_root / "art_dump"; }

    TempDir m_root;
};
}  // namespace

TEST(AlbumArtFileNameTest, SequenceStartsWithArtDat)
{
    EXPECT_EQ(CAlbumArtFiles::FileName(0), "art.dat");
    EXPECT_EQ(CAlbumArtFiles::FileName(1), "art0.dat");
    EXPECT_EQ(CAlbumArtFiles::FileName(12), "art11.dat");
}

TEST(AlbumArtFileNameTest, OnlyNamesOfTheSequenceAreRecognised)
{
    uint64_t sequence = 99;
    EXPECT_TRUE(CAlbumArtFiles::ParseFileName("art.dat", sequence));
    EXPECT_EQ(sequence, 0u);
    EXPECT_TRUE(CAlbumArtFiles::ParseFileName("art0.dat", sequence));
    EXPECT_EQ(sequence, 1u);
    EXPECT_TRUE(CAlbumArtFiles::ParseFileName("art4999.dat", sequence));
    EXPECT_EQ(sequence, 5000u);
    for (const char* other : {"art007.dat", "art-1.dat", "art1.dat.tmp", "xart1.dat", "art 1.dat", "art1x.dat",
                              "Art1.dat", "art.da", "art", "art1234567890123456789.dat", "cover.jpg"}) {
        EXPECT_FALSE(CAlbumArtFiles::ParseFileName(other, sequence)) << other;
    }
}

TEST_F(AlbumArtFilesTest, MissingFolderIsCreatedAndNamesFollowTheSequence)
{
    CAlbumArtFiles files(Folder());
    EXPECT_EQ(files.Write(kImage), Folder() + "/art.dat");
    EXPECT_EQ(files.Write(kImage), Folder() + "/art0.dat");
    EXPECT_EQ(files.Write({}), Folder() + "/art1.dat");
    EXPECT_EQ(ReadFile(Folder() + "/art.dat"), std::string(kImage.begin(), kImage.end()));
    EXPECT_EQ(ReadFile(Folder() + "/art1.dat"), "");
    struct stat info {};
    ASSERT_EQ(stat(Folder().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0770u);
}

TEST_F(AlbumArtFilesTest, OnlyTheSixteenNewestStay)
{
    CAlbumArtFiles files(Folder());
    std::string last;
    for (int n = 0; n < 40; ++n) {
        last = files.Write(kImage);
        EXPECT_LE(FolderNames(Folder()).size(), CAlbumArtFiles::kKeptFiles) << "after write " << n;
    }
    // Forty writes: art.dat, then art0.dat to art38.dat.
    EXPECT_EQ(last, Folder() + "/art38.dat");
    EXPECT_EQ(FolderNames(Folder()), ArtNames(23, 38)) << Describe(FolderNames(Folder()));
}

TEST_F(AlbumArtFilesTest, WhatAnEarlierRunLeftIsTrimmedAndFollowed)
{
    MakeDirs(Folder());
    WriteFile(Folder() + "/art.dat", "stale");
    for (int n = 0; n < 39; ++n) {
        WriteFile(Folder() + "/" + ArtName(n), "stale");
    }
    const std::vector<std::string> foreign{"notes.txt", "art007.dat", "art.dat.bak", "cover.jpg"};
    for (const std::string& name : foreign) {
        WriteFile(Folder() + "/" + name, "not the service's");
    }

    CAlbumArtFiles files(Folder());
    EXPECT_EQ(files.Write(kImage), Folder() + "/art39.dat");
    std::set<std::string> expected = ArtNames(24, 39);
    expected.insert(foreign.begin(), foreign.end());
    EXPECT_EQ(FolderNames(Folder()), expected) << Describe(FolderNames(Folder()));
    for (const std::string& name : foreign) {
        EXPECT_EQ(ReadFile(Folder() + "/" + name), "not the service's");
    }
}

TEST_F(AlbumArtFilesTest, HighestNameDecidesEvenWithGaps)
{
    MakeDirs(Folder());
    WriteFile(Folder() + "/art3.dat", "stale");
    WriteFile(Folder() + "/art41.dat", "stale");
    CAlbumArtFiles files(Folder());
    EXPECT_EQ(files.Write(kImage), Folder() + "/art42.dat");
    EXPECT_EQ(FolderNames(Folder()), (std::set<std::string>{"art3.dat", "art41.dat", "art42.dat"}));
}

// The folder is read once; after that the next name comes from memory: a
// file added later with a higher number does not move the sequence, and
// thousands of earlier files cost nothing per write.
TEST_F(AlbumArtFilesTest, NextNameIsKeptInMemoryAfterTheFirstWrite)
{
    MakeDirs(Folder());
    for (int n = 0; n < 5000; ++n) {
        WriteFile(Folder() + "/" + ArtName(n), "stale");
    }
    CAlbumArtFiles files(Folder());
    EXPECT_EQ(files.Write(kImage), Folder() + "/art5000.dat");
    EXPECT_EQ(FolderNames(Folder()).size(), CAlbumArtFiles::kKeptFiles);

    WriteFile(Folder() + "/art900000.dat", "added later");
    for (int n = 5001; n < 5100; ++n) {
        ASSERT_EQ(files.Write(kImage), Folder() + "/" + ArtName(n));
    }
    std::set<std::string> expected = ArtNames(5084, 5099);
    expected.insert("art900000.dat");
    EXPECT_EQ(FolderNames(Folder()), expected) << Describe(FolderNames(Folder()));
}

TEST_F(AlbumArtFilesTest, TakenNameIsSkippedAndLeftAlone)
{
    CAlbumArtFiles files(Folder());
    EXPECT_EQ(files.Write(kImage), Folder() + "/art.dat");
    WriteFile(Folder() + "/art0.dat", "someone else's");
    WriteFile(Folder() + "/art1.dat", "someone else's");
    EXPECT_EQ(files.Write(kImage), Folder() + "/art2.dat");
    for (int n = 0; n < 30; ++n) {
        files.Write(kImage);
    }
    EXPECT_EQ(ReadFile(Folder() + "/art0.dat"), "someone else's");
    EXPECT_EQ(ReadFile(Folder() + "/art1.dat"), "someone else's");
    EXPECT_EQ(FolderNames(Folder()).size(), CAlbumArtFiles::kKeptFiles + 2);
}

TEST_F(AlbumArtFilesTest, ImageOverTheLimitIsNotWritten)
{
    CAlbumArtFiles files(Folder());
    const std::vector<uint8_t> tooLarge(CAlbumArtFiles::kMaxImageBytes + 1, 0x55);
    EXPECT_EQ(files.Write(tooLarge), "");
    EXPECT_NE(access(Folder().c_str(), F_OK), 0) << "nothing, not even the folder, is made";

    const std::vector<uint8_t> atLimit(CAlbumArtFiles::kMaxImageBytes, 0x55);
    const std::string path = files.Write(atLimit);
    EXPECT_EQ(path, Folder() + "/art.dat");
    struct stat info {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(static_cast<size_t>(info.st_size), CAlbumArtFiles::kMaxImageBytes);
}

TEST_F(AlbumArtFilesTest, FileWhereTheFolderBelongsGivesAnEmptyPath)
{
    WriteFile(Folder(), "a file");
    CAlbumArtFiles files(Folder());
    EXPECT_EQ(files.Write(kImage), "");
    EXPECT_EQ(ReadFile(Folder()), "a file");
}

TEST_F(AlbumArtFilesTest, RemovedFolderIsMadeAgain)
{
    CAlbumArtFiles files(Folder());
    EXPECT_EQ(files.Write(kImage), Folder() + "/art.dat");
    testing_support::RemoveTree(Folder());
    EXPECT_EQ(files.Write(kImage), Folder() + "/art.dat");
    EXPECT_EQ(files.Write(kImage), Folder() + "/art0.dat");
}
