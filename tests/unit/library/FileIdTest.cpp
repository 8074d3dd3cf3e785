// File identifiers: 32-bit MurmurHash2 of path + name, the same on every
// platform.
#include "library/FileId.h"

#include <gtest/gtest.h>

#include <string>

TEST(FileIdTest, ReferenceValues)
{
    EXPECT_EQ(FileId("", ""), 3990065800u);
    EXPECT_EQ(FileId("/mnt/usb-stick1", "Music"), 2631719416u);
}

TEST(FileIdTest, EveryTailLength)
{
    EXPECT_EQ(FileId("", "a"), 2167009006u);
    EXPECT_EQ(FileId("a", "b"), 2805137849u);
    EXPECT_EQ(FileId("ab", "c"), 3350977461u);
    EXPECT_EQ(FileId("", "abcd"), 804720481u);
    EXPECT_EQ(FileId("abcd", "e"), 730143326u);
}

TEST(FileIdTest, Latin1BytesAreHashedAsUnsigned)
{
    EXPECT_EQ(FileId("", "Caf\xe9.mp3"), 2379683952u);
}

TEST(FileIdTest, NoSeparatorBetweenPathAndName)
{
    EXPECT_EQ(FileId("/a", "bc"), FileId("/ab", "c"));
    EXPECT_NE(FileId("/a", "bc"), FileId("/a/", "bc"));
}

TEST(FileIdTest, MatchesTheHashOfTheJoinedText)
{
    const std::string path = "/mnt/usb-stick1/Music/Album";
    const std::string name = "01 Track.mp3";
    const std::string joined = path + name;
    EXPECT_EQ(FileId(path, name), MurmurHash2(joined.data(), joined.size(), 0xC70F6907));
}

TEST(FileIdTest, LongPathsHashTheSameWay)
{
    const std::string path(3000, 'p');
    const std::string name = "x.mp3";
    const std::string joined = path + name;
    EXPECT_EQ(FileId(path, name), MurmurHash2(joined.data(), joined.size(), 0xC70F6907));
    EXPECT_NE(FileId(path, name), FileId(path, "y.mp3"));
}

TEST(FileIdTest, SeedChangesTheHash)
{
    EXPECT_NE(MurmurHash2("abc", 3, 0), MurmurHash2("abc", 3, 0xC70F6907));
    EXPECT_EQ(MurmurHash2("abc", 3, 0xC70F6907), 3350977461u);
}
