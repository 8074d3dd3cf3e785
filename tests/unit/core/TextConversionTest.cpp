#include "core/TextConversion.h"

#include <gtest/gtest.h>

TEST(TextConversionTest, Latin1ByteBecomesTwoUtf8Bytes)
{
    EXPECT_EQ(Latin1ToUtf8("\xE9"), "\xC3\xA9");
    EXPECT_EQ(Latin1ToUtf8("Caf\xE9.mp3"), "Caf\xC3\xA9.mp3");
}

TEST(TextConversionTest, Latin1EmptyGivesEmpty)
{
    EXPECT_EQ(Latin1ToUtf8(""), "");
}

TEST(TextConversionTest, Latin1StopsAtFirstNul)
{
    EXPECT_EQ(Latin1ToUtf8(std::string("ab\0cd", 5)), "ab");
}

TEST(TextConversionTest, Latin1EveryByteRoundTrips)
{
    for (int byte = 1; byte < 256; ++byte) {
        const std::string one(1, static_cast<char>(byte));
        const std::string utf8 = Latin1ToUtf8(one);
        EXPECT_EQ(Utf8ToLatin1(utf8.c_str()), one) << byte;
    }
}

TEST(TextConversionTest, Utf8TwoByteBecomesOneLatin1Byte)
{
    EXPECT_EQ(Utf8ToLatin1("\xC3\xA9"), "\xE9");
    EXPECT_EQ(Utf8ToLatin1("Caf\xC3\xA9.mp3"), "Caf\xE9.mp3");
}

TEST(TextConversionTest, Utf8AboveFFVanishes)
{
    EXPECT_EQ(Utf8ToLatin1("\xE2\x82\xAC"), "");
    EXPECT_EQ(Utf8ToLatin1("a\xE2\x82\xAC" "b"), "ab");
    EXPECT_EQ(Utf8ToLatin1("\xF0\x9F\x8E\xB5x"), "x");
}

TEST(TextConversionTest, Utf8NullPointerGivesEmpty)
{
    EXPECT_EQ(Utf8ToLatin1(nullptr), "");
}

TEST(TextConversionTest, Utf8LoneLeadByteYieldsItsPayloadBits)
{
    const std::string expected("\x03" "A");
    EXPECT_EQ(Utf8ToLatin1("\xC3" "A"), expected);
    EXPECT_EQ(Utf8ToLatin1("\xC3"), std::string("\x03"));
}

TEST(TextConversionTest, Utf8AsciiUnchanged)
{
    EXPECT_EQ(Utf8ToLatin1("/mnt/usb-stick1/Music"), "/mnt/usb-stick1/Music");
}

TEST(TextConversionTest, Utf8StrayContinuationAccumulates)
{
    // A continuation byte after an ASCII byte shifts into the accumulator:
    // 'A' (0x41) then 0x80 gives 0x1040, above 0xFF: the pair vanishes.
    EXPECT_EQ(Utf8ToLatin1("A\x80"), "");
    // A lone continuation at the start accumulates from 0: 0x80 & 0x3F = 0.
    EXPECT_EQ(Utf8ToLatin1("\x81" "b"), std::string("\x01" "b"));
}
