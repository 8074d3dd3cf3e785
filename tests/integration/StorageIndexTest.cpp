// The storage index through the running daemon: indexUsbStorage and
// getUsbStorageCrc32 over real TCP.

#include "tests/integration/LibraryFixture.h"

#include "library/StorageIndex.h"

#include <string>
#include <vector>

using library_test::LibraryTest;
using library_test::WithIdZero;
using testing_support::MakeDirs;
using testing_support::kWireTimeoutMs;
using testing_support::RemoveTree;

namespace {

const std::vector<std::string> kTree = {"Rock/a.mp3", "Rock/Live/b.wav", "Jazz/c.wma", "top.mp3",
                                        "Pop/01.mp3", "Rock/01.mp3",      "Jazz/01.mp3", "notes.txt"};

// The same shape without two records of one name. Records of equal names keep
// the order the file system listed them in (a tmpfs lists the newest entry
// first), so only trees without such names give equal checksums whatever
// order they were made in.
const std::vector<std::string> kDistinctTree = {"Rock/a.mp3", "Rock/Live/b.wav", "Jazz/c.wma", "top.mp3",
                                                "Pop/01.mp3", "Rock/02.mp3",      "Jazz/03.mp3", "notes.txt"};

// The checksum the library computes in this process for `path`.
std::string ExpectedCrc(const std::string& path)
{
    CStorageIndex index;
    BuildStorageIndex(index, path);
    return std::to_string(StorageIndexCrc32(index));
}

class StorageIndexTest : public LibraryTest {
protected:
    std::string Crc() { return Call("getUsbStorageCrc32")["result"]["crc32"].asString(); }
};

}  // namespace

TEST_F(StorageIndexTest, ChecksumBeforeAnyIndexIsZero)
{
    StartDaemon();
    EXPECT_EQ(WithIdZero(CallRaw("getUsbStorageCrc32")), R"({"id":0,"jsonrpc":"2.0","result":{"crc32":"0"}})");
}

TEST_F(StorageIndexTest, IndexSucceedsAndChecksumIsADecimalString)
{
    TouchAll(kTree);
    StartDaemon();
    Json::Value params(Json::objectValue);
    params["usbStoragePath"] = Stick();
    EXPECT_EQ(WithIdZero(CallRaw("indexUsbStorage", params)), R"({"id":0,"jsonrpc":"2.0","result":{"success":true}})");

    const std::string expected = ExpectedCrc(Stick());
    ASSERT_NE(expected, "0");
    const std::string raw = CallRaw("getUsbStorageCrc32");
    EXPECT_EQ(WithIdZero(raw), R"({"id":0,"jsonrpc":"2.0","result":{"crc32":")" + expected + R"("}})");
    {
        const Json::Value reply = testing_support::ParseLine(raw);
        EXPECT_TRUE(reply["result"]["crc32"].isString()) << reply.toStyledString();
    }
}

TEST_F(StorageIndexTest, TwoIndexesOfTheSameTreeGiveEqualChecksums)
{
    TouchAll(kTree);
    StartDaemon();
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    const std::string first = Crc();
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    EXPECT_EQ(Crc(), first);
}

TEST_F(StorageIndexTest, EqualTreesGiveEqualChecksums)
{
    TouchAll(kDistinctTree);
    StartDaemon();
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    const std::string first = Crc();

    // The same tree again, made in another order, in the same place.
    RemoveTree(Stick());
    TouchAll(std::vector<std::string>(kDistinctTree.rbegin(), kDistinctTree.rend()));
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    EXPECT_EQ(Crc(), first);

    // A changed tree changes it.
    Touch("Jazz/new.mp3");
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    EXPECT_NE(Crc(), first);
}

TEST_F(StorageIndexTest, PathThatDoesNotExist)
{
    TouchAll(kTree);
    StartDaemon();
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_NE(Crc(), "0");

    const std::string missing = Stick() + "/missing";
    Json::Value params(Json::objectValue);
    params["usbStoragePath"] = missing;
    EXPECT_EQ(WithIdZero(CallRaw("indexUsbStorage", params)),
              R"({"error":{"code":-1,"message":"E: While opendir )" + missing +
                  R"("},"id":0,"jsonrpc":"2.0","result":{"success":false}})");
    EXPECT_EQ(Crc(), "0");
    EXPECT_TRUE(m_daemon->WaitForOutput("dp == NULL && 0 == dirLevel\n", kWireTimeoutMs));
    EXPECT_TRUE(m_daemon->WaitForOutput("E: While opendir " + missing + "(-1)\n", kWireTimeoutMs));
    // The index is empty: browsing finds nothing.
    {
        const Json::Value reply = ListGroup(0, 10, 0);
        EXPECT_EQ(reply["error"]["code"].asInt(), -10) << reply.toStyledString();
    }
}

TEST_F(StorageIndexTest, StorageWithoutMediaFails)
{
    TouchAll({"Docs/readme.txt", ".hidden/a.mp3"});
    StartDaemon();
    const Json::Value reply = Index(Stick());
    EXPECT_FALSE(reply["result"]["success"].asBool()) << reply.toStyledString();
    ASSERT_TRUE(reply.isMember("error")) << reply.toStyledString();
    // The scan met no failure, and the index does not reset the player's
    // status: a fresh player's status is success.
    EXPECT_EQ(reply["error"]["code"].asInt(), 0) << reply.toStyledString();
    EXPECT_EQ(reply["error"]["message"].asString(), "Success") << reply.toStyledString();
    EXPECT_EQ(Crc(), "0");
}

TEST_F(StorageIndexTest, MissingParamsIndexTheEmptyPath)
{
    StartDaemon();
    const Json::Value reply = Call("indexUsbStorage");
    EXPECT_FALSE(reply["result"]["success"].asBool()) << reply.toStyledString();
    EXPECT_EQ(reply["error"]["code"].asInt(), -1) << reply.toStyledString();
    EXPECT_EQ(reply["error"]["message"].asString(), "E: While opendir ") << reply.toStyledString();
}

TEST_F(StorageIndexTest, Utf8PathFindsTheLatin1Folder)
{
    Touch("Cl\xe9/a.mp3");
    StartDaemon();
    const Json::Value reply = Index(Stick() + "/Cl\xc3\xa9");
    EXPECT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    EXPECT_FALSE(reply.isMember("error")) << reply.toStyledString();
    EXPECT_EQ(Crc(), ExpectedCrc(Stick() + "/Cl\xe9"));
    // The folder's content is listed under its Latin-1 path; group 0 stays
    // the stick's mount point, which this index holds nothing of.
    EXPECT_EQ(PageNames(Browse(Stick() + "/Cl\xc3\xa9", 10, 0)), (std::vector<std::string>{"a.mp3"}));
    EXPECT_EQ(PageNames(ListGroup(0, 10, 0)), (std::vector<std::string>{}));
}

TEST_F(StorageIndexTest, TrailingSlashIsKeptForIdsButNotForTheRoot)
{
    TouchAll({"Rock/a.mp3", "top.mp3"});
    StartDaemon();
    {
        const Json::Value reply = Index(Stick() + "/");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    EXPECT_EQ(Crc(), ExpectedCrc(Stick() + "/"));
    EXPECT_NE(Crc(), ExpectedCrc(Stick()));
    const Json::Value reply = ListGroup(0, 10, 0);
    EXPECT_EQ(PageNames(reply), (std::vector<std::string>{"Rock", "top.mp3"}));
    EXPECT_EQ(reply["result"]["filelist"][0]["ID"].asUInt(), FileId(Stick() + "/", "Rock")) << reply.toStyledString();
    EXPECT_EQ(reply["result"]["filelist"][0]["path"].asString(), Stick()) << reply.toStyledString();
}
