// Which paths a client may have the service read: the mount folder and the
// two sticks, decided on the resolved path, with the root prefix itself
// reached through a link as /tmp is on some machines.

#include "library/DirectoryManager.h"
#include "library/FileList.h"
#include "library/StickPaths.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <string>

using testing_support::MakeDirs;
using testing_support::TempDir;
using testing_support::WriteFile;

namespace {

class StickPathsTest : public testing::Test {
protected:
    StickPathsTest()
    {
        MakeDirs(Real() + "/mnt/usb-stick1/Jazz");
        MakeDirs(Real() + "/mnt/usb-stick2/Rock");
        MakeDirs(Real() + "/mnt/usb-stick10/Other");
        MakeDirs(Real() + "/mnt/other");
        MakeDirs(Real() + "/etc");
        WriteFile(Real() + "/etc/secret.mp3", "abc");
        WriteFile(Real() + "/mnt/loose.mp3", "abc");
        WriteFile(Real() + "/mnt/other/hidden.mp3", "abc");
        WriteFile(Real() + "/mnt/usb-stick1/Jazz/a.mp3", "abc");
        WriteFile(Real() + "/mnt/usb-stick2/Rock/b.mp3", "abc");
        // The prefix the service is given is a link to the real tree.
        EXPECT_EQ(symlink(Real().c_str(), Root().c_str()), 0);
        setenv("USBMEDIA_ROOT", Root().c_str(), 1);
    }
    ~StickPathsTest() override { unsetenv("USBMEDIA_ROOT"); }

    std::string Real() const { return m_dir / "real"; }
    std::string Root() const { return m_dir / "root"; }
    std::string Stick1() const { return Root() + "/mnt/usb-stick1"; }
    std::string RealStick1() const { return Real() + "/mnt/usb-stick1"; }

    void Link(const std::string& target, const std::string& at) { ASSERT_EQ(symlink(target.c_str(), at.c_str()), 0); }

    TempDir m_dir;
};

bool Allowed(const std::string& path)
{
    return ConfineToSticks(path).has_value();
}

}  // namespace

TEST_F(StickPathsTest, TheSticksAndWhatIsBelowThemAreResolved)
{
    const auto stick = ConfineToSticks(Stick1());
    ASSERT_TRUE(stick.has_value());
    EXPECT_EQ(stick->resolved, RealStick1());
    EXPECT_EQ(stick->area, EStickArea::kFirstStick);
    const auto jazz = ConfineToSticks(Stick1() + "/Jazz/a.mp3");
    ASSERT_TRUE(jazz.has_value());
    EXPECT_EQ(jazz->resolved, RealStick1() + "/Jazz/a.mp3");
    const auto second = ConfineToSticks(Root() + "/mnt/usb-stick2/Rock");
    ASSERT_TRUE(second.has_value());
    EXPECT_EQ(second->area, EStickArea::kSecondStick);
}

TEST_F(StickPathsTest, TrailingSlashesAndDotsAreResolvedAway)
{
    EXPECT_TRUE(Allowed(Stick1() + "/"));
    EXPECT_TRUE(Allowed(Stick1() + "//Jazz///"));
    EXPECT_TRUE(Allowed(Stick1() + "/./Jazz/../Jazz"));
    const auto across = ConfineToSticks(Stick1() + "/../usb-stick2/Rock/");
    ASSERT_TRUE(across.has_value());
    EXPECT_EQ(across->area, EStickArea::kSecondStick);
}

TEST_F(StickPathsTest, TheMountFolderItselfIsAllowedButNothingElseInIt)
{
    const auto mount = ConfineToSticks(Root() + "/mnt/");
    ASSERT_TRUE(mount.has_value());
    EXPECT_EQ(mount->area, EStickArea::kMountFolder);
    EXPECT_EQ(mount->resolved, Real() + "/mnt");
    EXPECT_FALSE(Allowed(Root() + "/mnt/other"));
    EXPECT_FALSE(Allowed(Root() + "/mnt/loose.mp3"));
    EXPECT_FALSE(Allowed(Root()));
}

TEST_F(StickPathsTest, AStickWhoseNameStartsLikeAnotherIsNotIt)
{
    EXPECT_FALSE(Allowed(Root() + "/mnt/usb-stick10"));
    EXPECT_FALSE(Allowed(Root() + "/mnt/usb-stick10/Other"));
    EXPECT_FALSE(Allowed(Stick1() + "0/Other"));
}

TEST_F(StickPathsTest, DotDotEscapesAreRefused)
{
    EXPECT_FALSE(Allowed(Stick1() + "/../../etc"));
    EXPECT_FALSE(Allowed(Stick1() + "/../../../../../../etc"));
    EXPECT_FALSE(Allowed(Stick1() + "/Jazz/../../../etc/secret.mp3"));
    EXPECT_FALSE(Allowed("/etc"));
    EXPECT_FALSE(Allowed("/"));
    EXPECT_FALSE(Allowed(""));
    EXPECT_FALSE(Allowed("/mnt/usb-stick1"));  // without the prefix: not the sticks in use
}

TEST_F(StickPathsTest, LinksOutOfTheStickAreRefused)
{
    Link("/", Stick1() + "/ToRoot");
    Link(Real() + "/etc", Stick1() + "/ToEtc");
    Link(Real() + "/etc/secret.mp3", Stick1() + "/Jazz/secret.mp3");
    EXPECT_FALSE(Allowed(Stick1() + "/ToRoot"));
    EXPECT_FALSE(Allowed(Stick1() + "/ToRoot/"));
    EXPECT_FALSE(Allowed(Stick1() + "/ToRoot" + Real()));
    EXPECT_FALSE(Allowed(Stick1() + "/ToEtc"));
    EXPECT_FALSE(Allowed(Stick1() + "/Jazz/secret.mp3"));
}

TEST_F(StickPathsTest, ALinkWithinTheStickIsFollowed)
{
    Link("Jazz", Stick1() + "/Alias");
    const auto alias = ConfineToSticks(Stick1() + "/Alias/a.mp3");
    ASSERT_TRUE(alias.has_value());
    EXPECT_EQ(alias->resolved, RealStick1() + "/Jazz/a.mp3");
}

TEST_F(StickPathsTest, MissingPathsAreRefusedLikeOutsideOnes)
{
    EXPECT_FALSE(Allowed(Stick1() + "/Nope"));
    EXPECT_FALSE(Allowed(Stick1() + "/Jazz/a.mp3/x"));
}

TEST_F(StickPathsTest, NamesAreBytesNotUtf8)
{
    const std::string latin1 = Stick1() + "/Caf\xE9";
    MakeDirs(latin1);
    const auto cafe = ConfineToSticks(latin1 + "/");
    ASSERT_TRUE(cafe.has_value());
    EXPECT_EQ(cafe->resolved, RealStick1() + "/Caf\xE9");
    EXPECT_FALSE(Allowed(Stick1() + "/Caf\xC3\xA9"));
}

TEST_F(StickPathsTest, OnlyTheSticksFolderNamesAreStickFolders)
{
    EXPECT_TRUE(IsStickFolderName("usb-stick1"));
    EXPECT_TRUE(IsStickFolderName("usb-stick2"));
    EXPECT_FALSE(IsStickFolderName("usb-stick10"));
    EXPECT_FALSE(IsStickFolderName("other"));
    EXPECT_FALSE(IsStickFolderName(""));
}

TEST_F(StickPathsTest, AConfinedFolderOpensWhereItResolved)
{
    Link("Jazz", Stick1() + "/Alias");
    const auto alias = ConfineToSticks(Stick1() + "/Alias");
    ASSERT_TRUE(alias.has_value());
    CDirectoryManager dir(Stick1() + "/Alias", OpenConfinedFolder(*alias));
    ASSERT_TRUE(dir.IsOpen());
    SDirectoryIdentity opened;
    SDirectoryIdentity expected;
    ASSERT_TRUE(dir.Identity(opened));
    ASSERT_TRUE(CDirectoryManager(RealStick1() + "/Jazz").Identity(expected));
    EXPECT_FALSE(opened < expected || expected < opened);
}

TEST_F(StickPathsTest, AFolderSwappedForALinkAfterResolvingIsNotOpened)
{
    const auto jazz = ConfineToSticks(Stick1() + "/Jazz");
    ASSERT_TRUE(jazz.has_value());
    ASSERT_EQ(rename((RealStick1() + "/Jazz").c_str(), (RealStick1() + "/Moved").c_str()), 0);
    Link(Real() + "/etc", RealStick1() + "/Jazz");
    EXPECT_FALSE(OpenConfinedFolder(*jazz).IsValid());
    CDirectoryManager stick(RealStick1());
    EXPECT_FALSE(stick.OpenSubfolder("Jazz").IsValid());
    EXPECT_TRUE(stick.OpenSubfolder("Moved").IsValid());
}

TEST_F(StickPathsTest, ATrackPlaysFromWhereItLiesOnItsOwnStickOnly)
{
    Link("Jazz", Stick1() + "/Alias");
    Link(Real() + "/etc/secret.mp3", Stick1() + "/Jazz/out.mp3");
    Link(Root() + "/mnt/usb-stick2/Rock/b.mp3", Stick1() + "/Jazz/other-stick.mp3");
    EXPECT_EQ(TrackLocation(Stick1() + "/Alias", "a.mp3"), RealStick1() + "/Jazz/a.mp3");
    EXPECT_EQ(TrackLocation(Stick1() + "/Jazz", "out.mp3"), std::nullopt);
    EXPECT_EQ(TrackLocation(Stick1() + "/Jazz", "other-stick.mp3"), std::nullopt);
    EXPECT_EQ(TrackLocation(Root() + "/mnt", "loose.mp3"), std::nullopt);
    // A missing file is opened as named, and fails as it always did.
    EXPECT_EQ(TrackLocation(Stick1() + "/Jazz", "gone.mp3"), Stick1() + "/Jazz/gone.mp3");
}

TEST_F(StickPathsTest, AWalkOfTheMountFolderEntersOnlyTheSticks)
{
    CFileList list;
    ASSERT_TRUE(list.Scan(Root() + "/mnt", "", true, true, false, 0, EWalkScope::kSticksOnly));
    std::vector<std::string> names;
    for (const CFile& file : list.m_files) {
        names.push_back(file.m_name);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Jazz", "Rock", "usb-stick1", "usb-stick2", "a.mp3", "b.mp3"}));
}

TEST_F(StickPathsTest, AWalkFromOutsideTheSticksFailsAsAMissingFolder)
{
    CFileList list;
    const std::string outside = Stick1() + "/../../etc";
    EXPECT_FALSE(list.Scan(outside, "", true, true, false, 0, EWalkScope::kSticksOnly));
    EXPECT_EQ(list.m_errorCode, -1);
    EXPECT_EQ(list.GetErrorText(), "E: While opendir " + outside);
    EXPECT_TRUE(list.Empty());
    // The library's own walks still go where they are sent.
    EXPECT_TRUE(list.Scan(outside, "", true, true, false, 0));
}
