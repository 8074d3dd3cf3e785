// Folder groups through the running daemon: group 0 is the mount point of
// the stick the index was built from, a folder asked for again is answered
// from the cache with a success status, and group 0xFFFFFFFF (the "no
// entry" id) names a folder no record lives in.

#include "tests/integration/LibraryFixture.h"

#include <string>
#include <vector>

using library_test::LibraryTest;
using library_test::WithIdZero;
using testing_support::MakeDirs;
using testing_support::kWireTimeoutMs;

namespace {

constexpr const char* kEmptyGroupPrint = "E: No Items In This Group!(-10)\n";
constexpr const char* kInvalidGroupLog =
    "_getFileListByGroupID received an invalid groupId so we are just going to use root\n";

const std::string kEmptyByPath =
    R"({"error":{"code":-10,"message":"E: No Items In This Group!"},"id":0,"jsonrpc":"2.0",)"
    R"("result":{"currIndex":0,"filelist":null,"totalCount":0}})";
const std::string kCachedEmptyByPath =
    R"({"error":{"code":0,"message":"Success"},"id":0,"jsonrpc":"2.0",)"
    R"("result":{"currIndex":0,"filelist":null,"totalCount":0}})";
const std::string kEmptyByGroup =
    R"({"error":{"code":-10,"message":"E: No Items In This Group!"},"id":0,"jsonrpc":"2.0",)"
    R"("result":{"currIndex":0,"filelist":[],"totalCount":0}})";
const std::string kCachedEmptyByGroup =
    R"({"error":{"code":0,"message":"Success"},"id":0,"jsonrpc":"2.0",)"
    R"("result":{"currIndex":0,"filelist":[],"totalCount":0}})";

size_t Occurrences(const std::string& text, const std::string& part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
        ++count;
    }
    return count;
}

class FolderGroupRootTest : public LibraryTest {
protected:
    std::string Stick2() const { return m_root / "mnt/usb-stick2"; }

    std::string RawPath(const std::string& path)
    {
        Json::Value params(Json::objectValue);
        params["path"] = path;
        params["itemCount"] = 10;
        return WithIdZero(CallRaw("getFileListUSB", params));
    }

    std::string RawGroup(uint32_t groupId)
    {
        Json::Value params(Json::objectValue);
        params["groupID"] = groupId;
        params["itemCount"] = 10;
        return WithIdZero(CallRaw("getFileListByGroupID", params));
    }

    // How often the daemon printed `text` so far. Prints come before the
    // reply they belong to, so a reply received means its prints are there.
    size_t Printed(const std::string& text) const { return Occurrences(m_daemon->Output(), text); }
};

}  // namespace

TEST_F(FolderGroupRootTest, EmptyFolderAskedAgainByPathIsAnsweredFromTheCacheWithSuccess)
{
    Touch("Songs/a.mp3");
    MakeDirs(Stick() + "/Empty");
    StartDaemon();
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    EXPECT_EQ(RawPath(Stick() + "/Empty"), kEmptyByPath);
    EXPECT_EQ(Printed(kEmptyGroupPrint), 1u);
    EXPECT_EQ(RawPath(Stick() + "/Empty"), kCachedEmptyByPath);
    EXPECT_EQ(RawPath(Stick() + "/Empty"), kCachedEmptyByPath);
    EXPECT_EQ(Printed(kEmptyGroupPrint), 1u);

    // A new index makes the list be built again: -10 again, printed again.
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    EXPECT_EQ(RawPath(Stick() + "/Empty"), kEmptyByPath);
    EXPECT_EQ(Printed(kEmptyGroupPrint), 2u);
    // So does another folder in between.
    EXPECT_EQ(PageNames(Browse(Stick() + "/Songs", 10, 0)), (std::vector<std::string>{"a.mp3"}));
    EXPECT_EQ(RawPath(Stick() + "/Empty"), kEmptyByPath);
    EXPECT_EQ(Printed(kEmptyGroupPrint), 3u);
}

TEST_F(FolderGroupRootTest, EmptyGroupAskedAgainIsAnsweredFromTheCacheWithSuccess)
{
    MakeDirs(Stick() + "/Empty");
    StartDaemon();
    // No index yet: group 0 is the stick's root, which has no records.
    EXPECT_EQ(RawGroup(0), kEmptyByGroup);
    EXPECT_EQ(RawGroup(0), kCachedEmptyByGroup);
    EXPECT_EQ(Printed(kEmptyGroupPrint), 1u);
    // The same folder by path is the same cached list.
    EXPECT_EQ(RawPath(Stick()), kCachedEmptyByPath);
    EXPECT_EQ(Printed(kEmptyGroupPrint), 1u);
}

TEST_F(FolderGroupRootTest, GroupZeroIsTheFirstStickAfterIndexingOneOfItsFolders)
{
    TouchAll({"Music/a.mp3", "Music/Live/b.mp3", "top.mp3"});
    StartDaemon();
    {
        const Json::Value reply = Index(Stick() + "/Music");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    // Group 0 is the mount point, not Music: the index holds nothing there.
    EXPECT_EQ(RawGroup(0), kEmptyByGroup);
    // Music's own content is still there by path.
    EXPECT_EQ(PageNames(Browse(Stick() + "/Music", 10, 0)), (std::vector<std::string>{"Live", "a.mp3"}));

    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    EXPECT_EQ(PageNames(ListGroup(0, 10, 0)), (std::vector<std::string>{"Music", "top.mp3"}));
}

TEST_F(FolderGroupRootTest, GroupZeroIsTheSecondStickAfterIndexingBelowIt)
{
    testing_support::WriteFile(Stick2() + "/Album/x.mp3", "abc");
    testing_support::WriteFile(Stick2() + "/y.mp3", "abc");
    TouchAll({"Album/other.mp3", "first.mp3"});
    StartDaemon();
    {
        const Json::Value reply = Index(Stick2());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    EXPECT_EQ(PageNames(ListGroup(0, 10, 0)), (std::vector<std::string>{"Album", "y.mp3"}));
    // An unknown group falls back to the same root.
    EXPECT_EQ(PageNames(ListGroup(12345, 10, 0)), (std::vector<std::string>{"Album", "y.mp3"}));

    // Indexed from below the mount point, group 0 is still the mount point.
    {
        const Json::Value reply = Index(Stick2() + "/Album/");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    EXPECT_EQ(RawGroup(0), kEmptyByGroup);

    // The first stick again.
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    EXPECT_EQ(PageNames(ListGroup(0, 10, 0)), (std::vector<std::string>{"Album", "first.mp3"}));
    {
        const Json::Value reply = ListGroup(0, 10, 0);
        EXPECT_EQ(reply["result"]["filelist"][0]["path"].asString(), Stick()) << reply.toStyledString();
    }
}

// 0xFFFFFFFF is the id of the root record that a lookup returns when it
// finds nothing; that record is a folder, so the group is taken as valid
// (no warning) and names "<mnt>/" + "", a path no record ever has (record
// paths carry no trailing "/"): an empty list with -10.
TEST_F(FolderGroupRootTest, GroupAllOnesIsAnEmptyFolderWithoutAWarning)
{
    TouchAll({"Rock/a.mp3", "top.mp3"});
    StartDaemon({"-l", "w"});
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    EXPECT_EQ(RawGroup(0xFFFFFFFFu), kEmptyByGroup);
    EXPECT_EQ(RawGroup(0xFFFFFFFFu), kCachedEmptyByGroup);
    // Also when the index was built from the folder that holds the sticks.
    {
        const Json::Value reply = Index(m_root / "mnt");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    EXPECT_EQ(RawGroup(0xFFFFFFFFu), kEmptyByGroup);

    // An unknown group is warned about (and lists the first stick, whose
    // folder records this index holds); the all-ones group was not.
    EXPECT_EQ(PageNames(ListGroup(12345, 10, 0)), (std::vector<std::string>{"Rock", "top.mp3"}));
    ASSERT_TRUE(m_daemon->WaitForOutput(kInvalidGroupLog, kWireTimeoutMs));
    EXPECT_EQ(Occurrences(m_daemon->Output(), kInvalidGroupLog), 1u);
}
