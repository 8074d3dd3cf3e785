// Tags as TagLib reads them from real files tagged by mutagen.
#include "library/TagReader.h"

#include "tests/support/TempDir.h"
#include "tests/support/TagCorpus.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <utility>

using testing_support::Corpus;
using testing_support::MakeTaggedFiles;
using testing_support::TempDir;

namespace {
class TagReaderTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NO_FATAL_FAILURE(MakeTaggedFiles(Stick(), Corpus())); }
    std::string Stick() const { return m_dir / "stick"; }
    STrackTags Read(const std::string& relativePath) const { return ReadTags(Stick() + "/" + relativePath); }

    TempDir m_dir;
};
}  // namespace

TEST_F(TagReaderTest, Id3v1Only)
{
    const STrackTags tags = Read("Rock/v1.mp3");
    EXPECT_FALSE(tags.unreadable);
    EXPECT_EQ(tags.title, "Old Song");
    EXPECT_EQ(tags.artist, "Vintage Band");
    EXPECT_EQ(tags.album, "Classics");
    EXPECT_EQ(tags.genre, "Rock");
    EXPECT_EQ(tags.year, 1999u);
    EXPECT_EQ(tags.trackNumber, 4u);
    EXPECT_GE(tags.durationSeconds, 1u);
    EXPECT_LE(tags.durationSeconds, 3u);
}

TEST_F(TagReaderTest, Id3v23Latin1WithTrackAndDiscPairs)
{
    const STrackTags tags = Read("Rock/Ete/01.mp3");
    EXPECT_EQ(tags.title, "Café Noir");
    EXPECT_EQ(tags.artist, "Zoë");
    EXPECT_EQ(tags.album, "Été");
    EXPECT_EQ(tags.genre, "Jazz");
    EXPECT_EQ(tags.year, 2001u);
    EXPECT_EQ(tags.trackNumber, 3u);
    EXPECT_EQ(tags.trackCount, 12u);
    EXPECT_EQ(tags.discNumber, 1u);
    EXPECT_EQ(tags.discCount, 2u);
    EXPECT_FALSE(tags.hasPicture);
}

TEST_F(TagReaderTest, Id3v23Utf16)
{
    const STrackTags tags = Read("Rock/Ete/02.mp3");
    EXPECT_EQ(tags.title, "Ünïcödé ☃");
    EXPECT_EQ(tags.artist, "Zoë");
    EXPECT_EQ(tags.discNumber, 2u);
}

TEST_F(TagReaderTest, Id3v24Utf8WithPicture)
{
    const STrackTags tags = Read("Rock/Ete/03.mp3");
    EXPECT_EQ(tags.title, "Aube");
    EXPECT_EQ(tags.album, "Été");
    EXPECT_TRUE(tags.hasPicture);
}

TEST_F(TagReaderTest, AlbumArtistAndCompilationFlag)
{
    EXPECT_EQ(Read("Comp/a.mp3").albumArtist, "Various Artists");
    EXPECT_FALSE(Read("Comp/a.mp3").compilation);
    EXPECT_TRUE(Read("Comp/b.mp3").compilation);
}

TEST_F(TagReaderTest, AsfTagsOfAWma)
{
    const STrackTags tags = Read("Two/abba.wma");
    EXPECT_FALSE(tags.unreadable);
    EXPECT_EQ(tags.title, "Dancing");
    EXPECT_EQ(tags.artist, "ABBA");
    EXPECT_EQ(tags.albumArtist, "ABBA");
    EXPECT_EQ(tags.album, "Greatest Hits");
    EXPECT_EQ(tags.genre, "Pop");
    EXPECT_EQ(tags.year, 1975u);
    EXPECT_EQ(tags.trackNumber, 5u);
    EXPECT_EQ(tags.trackCount, 14u);
    EXPECT_EQ(tags.discNumber, 1u);
    EXPECT_TRUE(tags.hasPicture);
    EXPECT_GE(tags.durationSeconds, 1u);
}

TEST_F(TagReaderTest, RiffInfoOfAWav)
{
    const STrackTags tags = Read("Wav/info.wav");
    EXPECT_FALSE(tags.unreadable);
    EXPECT_EQ(tags.title, "Info Title");
    EXPECT_EQ(tags.artist, "Wave Artist");
    EXPECT_EQ(tags.album, "Wave Album");
    EXPECT_EQ(tags.genre, "Ambient");
    EXPECT_EQ(tags.year, 2010u);
    EXPECT_EQ(tags.trackNumber, 7u);
    EXPECT_EQ(tags.durationSeconds, 2u);
}

TEST_F(TagReaderTest, NoTagsLeaveEverythingEmpty)
{
    const STrackTags tags = Read("Plain/none.mp3");
    EXPECT_FALSE(tags.unreadable);
    EXPECT_EQ(tags.title, "");
    EXPECT_EQ(tags.artist, "");
    EXPECT_EQ(tags.album, "");
    EXPECT_EQ(tags.trackNumber, 0u);
    EXPECT_GE(tags.durationSeconds, 1u);
}

TEST_F(TagReaderTest, ACorruptFileIsUnreadableAndNamedByItsFile)
{
    const STrackTags tags = Read("Plain/broken.wma");
    EXPECT_TRUE(tags.unreadable);
    EXPECT_EQ(tags.title, "broken.wma");
    EXPECT_EQ(tags.artist, "");
    EXPECT_EQ(tags.durationSeconds, 0u);
    EXPECT_TRUE(ReadTags(m_dir / "missing.mp3").unreadable);
}

// TagLib opens such bytes as an MPEG stream without frames.
TEST_F(TagReaderTest, BytesNamedMp3WithoutAnyFrameAreUnreadable)
{
    testing_support::WriteFile(Stick() + "/junk.mp3", std::string(4096, '\x5a'));
    const STrackTags tags = Read("junk.mp3");
    EXPECT_TRUE(tags.unreadable);
    EXPECT_EQ(tags.title, "junk.mp3");
}

namespace {
STrackTags ReadOpened(const std::string& path)
{
    UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_TRUE(file.IsValid()) << path;
    return ReadTagsOfOpenFile(std::move(file), path.substr(path.rfind('/') + 1));
}

// The first bytes of a file whose tag claims `size` bytes; a reader that
// trusted it would allocate them all.
std::string Id3HeaderClaiming(uint32_t size)
{
    std::string header = "ID3\x04";
    header += '\0';
    header += '\0';
    for (int shift = 21; shift >= 0; shift -= 7) {
        header += static_cast<char>((size >> shift) & 0x7F);
    }
    return header + std::string(4096, '\0');
}
}  // namespace

TEST_F(TagReaderTest, AnOpenFileReadsAsItsPathDoes)
{
    const STrackTags tags = ReadOpened(Stick() + "/Two/abba.wma");
    EXPECT_FALSE(tags.unreadable);
    EXPECT_EQ(tags.title, "Dancing");
    EXPECT_EQ(ReadOpened(Stick() + "/Wav/info.wav").title, Read("Wav/info.wav").title);
}

TEST_F(TagReaderTest, AnOpenFileWhoseTagClaimsMoreThanTheBoundIsNotRead)
{
    testing_support::WriteFile(Stick() + "/huge.mp3", Id3HeaderClaiming(200u * 1024u * 1024u));
    const STrackTags huge = ReadOpened(Stick() + "/huge.mp3");
    EXPECT_TRUE(huge.unreadable);
    EXPECT_EQ(huge.title, "huge.mp3");

    std::string wav = "RIFF";
    wav += std::string("\xff\xff\xff\x0f", 4) + "WAVE" + "LIST" + std::string("\x00\x00\x00\x08", 4);
    testing_support::WriteFile(Stick() + "/huge.wav", wav + std::string(4096, '\0'));
    EXPECT_TRUE(ReadOpened(Stick() + "/huge.wav").unreadable);
}

TEST(NumberPairTest, TrackAndDiscForms)
{
    uint32_t number = 9;
    uint32_t count = 9;
    ParseNumberPair("3/12", number, count);
    EXPECT_EQ(number, 3u);
    EXPECT_EQ(count, 12u);
    ParseNumberPair("7", number, count);
    EXPECT_EQ(number, 7u);
    EXPECT_EQ(count, 0u);
    ParseNumberPair("x", number, count);
    EXPECT_EQ(number, 0u);
    EXPECT_EQ(count, 0u);
}
