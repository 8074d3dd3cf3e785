#include "tools/Paths.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace usbctl;

TEST(PathsTest, NormalizeDropsDotsAndSlashes)
{
    EXPECT_EQ(NormalizePath("/mnt//usb-stick1/./Jazz/"), "/mnt/usb-stick1/Jazz");
    EXPECT_EQ(NormalizePath("/mnt/usb-stick1/Jazz/../Rock"), "/mnt/usb-stick1/Rock");
    EXPECT_EQ(NormalizePath("/"), "/");
    EXPECT_EQ(NormalizePath("/.."), "/");
    EXPECT_EQ(NormalizePath("a/../.."), "..");
}

TEST(PathsTest, PrefixesBuiltInPathsWithTheRoot)
{
    EXPECT_EQ(PrefixWithRoot("/mnt/usb-stick1/Jazz", "/tmp/demo"), "/tmp/demo/mnt/usb-stick1/Jazz");
    EXPECT_EQ(PrefixWithRoot("/mnt/usb-stick2", "/tmp/demo/"), "/tmp/demo/mnt/usb-stick2");
    EXPECT_EQ(PrefixWithRoot("/mnt", "/tmp/demo"), "/tmp/demo/mnt");
}

TEST(PathsTest, LeavesPathsAlreadyUnderTheRoot)
{
    EXPECT_EQ(PrefixWithRoot("/tmp/demo/mnt/usb-stick1", "/tmp/demo"), "/tmp/demo/mnt/usb-stick1");
}

TEST(PathsTest, RootWhichIsItselfUnderMnt)
{
    EXPECT_EQ(PrefixWithRoot("/mnt/x/mnt/usb-stick1", "/mnt/x"), "/mnt/x/mnt/usb-stick1");
    EXPECT_EQ(PrefixWithRoot("/mnt/usb-stick1", "/mnt/x"), "/mnt/x/mnt/usb-stick1");
}

TEST(PathsTest, LeavesOtherPathsAlone)
{
    EXPECT_EQ(PrefixWithRoot("/home/me/music", "/tmp/demo"), "/home/me/music");
    EXPECT_EQ(PrefixWithRoot("/mntx/usb", "/tmp/demo"), "/mntx/usb");
}

TEST(PathsTest, NoRootNoPrefix)
{
    EXPECT_EQ(PrefixWithRoot("/mnt/usb-stick1", ""), "/mnt/usb-stick1");
    EXPECT_EQ(PrefixWithRoot("/mnt/usb-stick1", "/"), "/mnt/usb-stick1");
}

TEST(PathsTest, RootPrefixMatchesWholeComponents)
{
    // "/tmp/demo2/..." does not lie under "/tmp/demo"; it is not a /mnt path either.
    EXPECT_EQ(PrefixWithRoot("/tmp/demo2/mnt", "/tmp/demo"), "/tmp/demo2/mnt");
}

TEST(PathsTest, ResolveRelativePathsFromTheCurrentDirectory)
{
    EXPECT_EQ(ResolvePath("Jazz/Blue Hour.mp3", "/tmp/demo", "/tmp/demo/mnt/usb-stick1"),
              "/tmp/demo/mnt/usb-stick1/Jazz/Blue Hour.mp3");
    EXPECT_EQ(ResolvePath("../usb-stick2", "", "/mnt/usb-stick1"), "/mnt/usb-stick2");
}

TEST(PathsTest, ResolveBuiltInAndPlainAbsolutePaths)
{
    EXPECT_EQ(ResolvePath("/mnt/usb-stick1/Jazz/", "/tmp/demo", "/home"), "/tmp/demo/mnt/usb-stick1/Jazz");
    EXPECT_EQ(ResolvePath("/srv/music", "/tmp/demo", "/home"), "/srv/music");
}

TEST(PathsTest, ResolveUsesTheEnvironmentRoot)
{
    setenv("USBMEDIA_ROOT", "/tmp/envroot", 1);
    EXPECT_EQ(ResolvePath("/mnt/usb-stick1"), "/tmp/envroot/mnt/usb-stick1");
    EXPECT_EQ(DefaultStickRoot(), "/tmp/envroot/mnt/usb-stick1");
    unsetenv("USBMEDIA_ROOT");
    EXPECT_EQ(ResolvePath("/mnt/usb-stick1"), "/mnt/usb-stick1");
    EXPECT_EQ(DefaultStickRoot(), "/mnt/usb-stick1");
}

TEST(PathsTest, SplitFileAndFolder)
{
    const SplitPathResult file = SplitPath("/mnt/usb-stick1/Jazz/Blue Hour.mp3");
    EXPECT_EQ(file.folder, "/mnt/usb-stick1/Jazz");
    EXPECT_EQ(file.name, "Blue Hour.mp3");
    const SplitPathResult folder = SplitPath("/mnt/usb-stick1/Jazz/");
    EXPECT_EQ(folder.folder, "/mnt/usb-stick1");
    EXPECT_EQ(folder.name, "Jazz");
}

TEST(PathsTest, SplitAtTheTop)
{
    const SplitPathResult top = SplitPath("/mnt");
    EXPECT_EQ(top.folder, "/");
    EXPECT_EQ(top.name, "mnt");
    const SplitPathResult root = SplitPath("/");
    EXPECT_EQ(root.folder, "/");
    EXPECT_EQ(root.name, "");
    const SplitPathResult bare = SplitPath("song.mp3");
    EXPECT_EQ(bare.folder, "");
    EXPECT_EQ(bare.name, "song.mp3");
}

TEST(PathsTest, Utf8Validation)
{
    EXPECT_TRUE(IsValidUtf8("plain"));
    EXPECT_TRUE(IsValidUtf8("Caf\xC3\xA9"));
    EXPECT_FALSE(IsValidUtf8("Caf\xE9"));
    EXPECT_FALSE(IsValidUtf8("\xC3"));
    EXPECT_FALSE(IsValidUtf8("\xC0\x80"));
}

TEST(PathsTest, WireTextIsUtf8)
{
    EXPECT_EQ(ToWireText("Caf\xC3\xA9"), "Caf\xC3\xA9");
    EXPECT_EQ(ToWireText("Caf\xE9"), "Caf\xC3\xA9");  // an ISO8859-1 name from the stick
}
