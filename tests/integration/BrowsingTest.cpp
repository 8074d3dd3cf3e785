// Browsing through the running daemon: getFileListUSB and
// getFileListByGroupID over real TCP on a stick tree made by the test.

#include "tests/integration/LibraryFixture.h"

#include <unistd.h>

#include <string>
#include <vector>

using library_test::LibraryTest;
using library_test::WithIdZero;
using testing_support::MakeDirs;
using testing_support::kWireTimeoutMs;
using testing_support::ParseLine;

namespace {

std::vector<std::string> Numbered(const std::string& prefix, int first, int last)
{
    std::vector<std::string> names;
    for (int i = first; i <= last; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "%s%02d.mp3", prefix.c_str(), i);
        names.push_back(name);
    }
    return names;
}

class BrowsingTest : public LibraryTest {
protected:
    // Many/ with 25 songs, Five/ with 5, and a few entries at the top.
    void MakePagingTree()
    {
        for (const std::string& name : Numbered("t", 0, 24)) {
            Touch("Many/" + name);
        }
        for (const std::string& name : Numbered("f", 0, 4)) {
            Touch("Five/" + name);
        }
    }
};

}  // namespace

TEST_F(BrowsingTest, PageInsideTheList)
{
    MakePagingTree();
    StartDaemon();
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    const Json::Value reply = Browse(Stick() + "/Many", 10, 20);
    EXPECT_FALSE(reply.isMember("error")) << reply.toStyledString();
    EXPECT_EQ(reply["result"]["currIndex"].asUInt(), 20u) << reply.toStyledString();
    EXPECT_EQ(reply["result"]["totalCount"].asInt(), 25) << reply.toStyledString();
    EXPECT_EQ(PageNames(reply), Numbered("t", 20, 24));
}

TEST_F(BrowsingTest, StartIndexIsTakenModuloTheListSize)
{
    MakePagingTree();
    StartDaemon();
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    Json::Value reply = Browse(Stick() + "/Many", 10, 47);
    EXPECT_EQ(reply["result"]["currIndex"].asUInt(), 22u) << reply.toStyledString();
    EXPECT_EQ(PageNames(reply), Numbered("t", 22, 24));

    reply = Browse(Stick() + "/Many", 10, -1);
    EXPECT_EQ(reply["result"]["currIndex"].asUInt(), 24u) << reply.toStyledString();
    EXPECT_EQ(PageNames(reply), Numbered("t", 24, 24));
    EXPECT_EQ(reply["result"]["totalCount"].asInt(), 25) << reply.toStyledString();
}

TEST_F(BrowsingTest, AListThatFitsIsSentWholeFromTheStart)
{
    MakePagingTree();
    StartDaemon();
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    for (const int start : {0, 3, 7, -2}) {
        const Json::Value reply = Browse(Stick() + "/Five", 10, start);
        EXPECT_EQ(reply["result"]["currIndex"].asUInt(), 0u) << start << ": " << reply.toStyledString();
        EXPECT_EQ(PageNames(reply), Numbered("f", 0, 4)) << start;
        EXPECT_EQ(reply["result"]["totalCount"].asInt(), 5) << reply.toStyledString();
    }
    const Json::Value exact = Browse(Stick() + "/Five", 5, 3);
    EXPECT_EQ(exact["result"]["currIndex"].asUInt(), 0u) << exact.toStyledString();
    EXPECT_EQ(PageNames(exact).size(), 5u);
}

TEST_F(BrowsingTest, ZeroItemCountSendsAnEmptyPage)
{
    MakePagingTree();
    StartDaemon();
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    Json::Value reply = Browse(Stick() + "/Many", 0, 28);
    EXPECT_FALSE(reply.isMember("error")) << reply.toStyledString();
    EXPECT_EQ(reply["result"]["currIndex"].asUInt(), 3u) << reply.toStyledString();
    EXPECT_TRUE(reply["result"]["filelist"].isNull()) << reply.toStyledString();
    EXPECT_EQ(reply["result"]["totalCount"].asInt(), 25) << reply.toStyledString();

    // The same page by group is an empty array.
    const uint32_t many = FileId(Stick(), "Many");
    reply = ListGroup(many, 0, 28);
    EXPECT_FALSE(reply.isMember("error")) << reply.toStyledString();
    EXPECT_EQ(reply["result"]["currIndex"].asUInt(), 3u) << reply.toStyledString();
    EXPECT_TRUE(reply["result"]["filelist"].isArray()) << reply.toStyledString();
    EXPECT_EQ(reply["result"]["filelist"].size(), 0u) << reply.toStyledString();
}

TEST_F(BrowsingTest, ExactReplyOfAFolder)
{
    Touch("Album/b.wav");
    Touch("Album/Disc/a.mp3");
    StartDaemon();
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    Json::Value params(Json::objectValue);
    params["path"] = Stick() + "/Album";
    params["itemCount"] = 10;
    params["startIndex"] = 0;
    params["isMaxDepth"] = false;
    const std::string album = Stick() + "/Album";
    const std::string expected =
        R"({"id":0,"jsonrpc":"2.0","result":{"currIndex":0,"filelist":[)"
        R"({"ID":)" + std::to_string(FileId(album, "Disc")) + R"(,"isFolder":true,"name":"Disc","path":")" + album +
        R"("},{"ID":)" + std::to_string(FileId(album, "b.wav")) + R"(,"isFolder":false,"name":"b.wav","path":")" +
        album + R"("}],"totalCount":2}})";
    EXPECT_EQ(WithIdZero(CallRaw("getFileListUSB", params)), expected);
}

TEST_F(BrowsingTest, EmptyFolderCarriesErrorBesideResult)
{
    Touch("Songs/a.mp3");
    MakeDirs(Stick() + "/Empty");
    StartDaemon();
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    Json::Value params(Json::objectValue);
    params["path"] = Stick() + "/Empty";
    params["itemCount"] = 10;
    EXPECT_EQ(WithIdZero(CallRaw("getFileListUSB", params)),
              R"({"error":{"code":-10,"message":"E: No Items In This Group!"},"id":0,"jsonrpc":"2.0",)"
              R"("result":{"currIndex":0,"filelist":null,"totalCount":0}})");
}

TEST_F(BrowsingTest, EmptyGroupSendsAnEmptyArray)
{
    MakeDirs(Stick() + "/Empty");
    StartDaemon();
    // No index yet: group 0 is the stick's root, which has no records.
    Json::Value params(Json::objectValue);
    params["groupID"] = 0;
    params["itemCount"] = 10;
    EXPECT_EQ(WithIdZero(CallRaw("getFileListByGroupID", params)),
              R"({"error":{"code":-10,"message":"E: No Items In This Group!"},"id":0,"jsonrpc":"2.0",)"
              R"("result":{"currIndex":0,"filelist":[],"totalCount":0}})");
}

TEST_F(BrowsingTest, MissingParamsReadAsEmptyPathAndGroupZero)
{
    Touch("a.mp3");
    StartDaemon();
    Json::Value reply = Call("getFileListUSB");
    EXPECT_EQ(reply["error"]["code"].asInt(), -10) << reply.toStyledString();
    EXPECT_TRUE(reply["result"]["filelist"].isNull()) << reply.toStyledString();

    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    reply = Call("getFileListByGroupID");
    EXPECT_FALSE(reply.isMember("error")) << reply.toStyledString();
    // itemCount 0 is less than the 1 record: no entries, currIndex 0.
    EXPECT_EQ(reply["result"]["totalCount"].asInt(), 1) << reply.toStyledString();
    EXPECT_EQ(reply["result"]["filelist"].size(), 0u) << reply.toStyledString();
}

TEST_F(BrowsingTest, PathThatDoesNotExistIsAnEmptyList)
{
    Touch("a.mp3");
    StartDaemon();
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    const Json::Value reply = Browse(Stick() + "/nowhere", 10, 0);
    EXPECT_EQ(reply["error"]["code"].asInt(), -10) << reply.toStyledString();
    EXPECT_EQ(reply["error"]["message"].asString(), "E: No Items In This Group!") << reply.toStyledString();
    EXPECT_EQ(reply["result"]["totalCount"].asInt(), 0) << reply.toStyledString();
    EXPECT_EQ(reply["result"]["currIndex"].asUInt(), 0u) << reply.toStyledString();
}

TEST_F(BrowsingTest, RootListingSkipsHiddenLinksAndNonAudio)
{
    TouchAll({"a.MP3", "B.Wav", "x.mp3", ".mp3", ".hidden.mp3", "song.mp3.txt", "song.flac", "C.WMA",
              ".music/a.mp3", "Docs/readme.txt", "OnlyHidden/.a.mp3", "Real/r.wav"});
    ASSERT_EQ(symlink((Stick() + "/Real/r.wav").c_str(), (Stick() + "/link.mp3").c_str()), 0);
    ASSERT_EQ(symlink((Stick() + "/Real").c_str(), (Stick() + "/LinkedFolder").c_str()), 0);
    StartDaemon();
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    const Json::Value reply = ListGroup(0, 100, 0);
    EXPECT_FALSE(reply.isMember("error")) << reply.toStyledString();
    EXPECT_EQ(PageNames(reply), (std::vector<std::string>{"Real", "B.Wav", "C.WMA", "a.MP3", "x.mp3"}));
    EXPECT_TRUE(reply["result"]["filelist"][0]["isFolder"].asBool()) << reply.toStyledString();
    EXPECT_EQ(reply["result"]["filelist"][0]["ID"].asUInt(), FileId(Stick(), "Real")) << reply.toStyledString();
    EXPECT_EQ(reply["result"]["filelist"][0]["path"].asString(), Stick()) << reply.toStyledString();
}

TEST_F(BrowsingTest, Latin1NamesTravelAsUtf8AndUtf8PathsFindLatin1Folders)
{
    Touch("\xc9t\xe9/Caf\xe9.mp3");
    StartDaemon();
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }

    Json::Value reply = ListGroup(0, 10, 0);
    ASSERT_EQ(PageNames(reply), (std::vector<std::string>{"\xc3\x89t\xc3\xa9"}));
    const uint32_t groupId = reply["result"]["filelist"][0]["ID"].asUInt();
    EXPECT_EQ(groupId, FileId(Stick(), "\xc9t\xe9"));

    reply = Browse(Stick() + "/\xc3\x89t\xc3\xa9", 10, 0);
    EXPECT_FALSE(reply.isMember("error")) << reply.toStyledString();
    ASSERT_EQ(PageNames(reply), (std::vector<std::string>{"Caf\xc3\xa9.mp3"}));
    EXPECT_EQ(reply["result"]["filelist"][0]["path"].asString(), Stick() + "/\xc3\x89t\xc3\xa9") << reply.toStyledString();
    EXPECT_EQ(reply["result"]["filelist"][0]["ID"].asUInt(), FileId(Stick() + "/\xc9t\xe9", "Caf\xe9.mp3")) << reply.toStyledString();

    reply = ListGroup(groupId, 10, 0);
    EXPECT_EQ(PageNames(reply), (std::vector<std::string>{"Caf\xc3\xa9.mp3"}));
}

TEST_F(BrowsingTest, GroupIdsListTheirFolder)
{
    TouchAll({"Rock/a.mp3", "Rock/Live/b.mp3", "Jazz/c.mp3", "top.mp3"});
    StartDaemon();
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    EXPECT_EQ(PageNames(ListGroup(0, 10, 0)), (std::vector<std::string>{"Jazz", "Rock", "top.mp3"}));
    EXPECT_EQ(PageNames(ListGroup(FileId(Stick(), "Rock"), 10, 0)), (std::vector<std::string>{"Live", "a.mp3"}));
    EXPECT_EQ(PageNames(ListGroup(FileId(Stick() + "/Rock", "Live"), 10, 0)), (std::vector<std::string>{"b.mp3"}));
}

TEST_F(BrowsingTest, FileOrUnknownGroupIdFallsBackToRoot)
{
    TouchAll({"Rock/a.mp3", "top.mp3"});
    StartDaemon({"-l", "w"});
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    const std::vector<std::string> root{"Rock", "top.mp3"};
    Json::Value reply = ListGroup(FileId(Stick(), "top.mp3"), 10, 0);
    EXPECT_FALSE(reply.isMember("error")) << reply.toStyledString();
    EXPECT_EQ(PageNames(reply), root);
    EXPECT_EQ(PageNames(ListGroup(12345, 10, 0)), root);
    // A folder of the other stick is unknown to this index.
    EXPECT_EQ(PageNames(ListGroup(FileId(m_root / "mnt/usb-stick2", "Rock"), 10, 0)), root);
    EXPECT_TRUE(m_daemon->WaitForOutput(
        "_getFileListByGroupID received an invalid groupId so we are just going to use root\n", kWireTimeoutMs));
}

TEST_F(BrowsingTest, GroupIdMadeStaleByANewIndexFallsBackToRoot)
{
    TouchAll({"Rock/a.mp3", "Other/Sub/s.mp3", "Other/o.mp3"});
    StartDaemon();
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    const uint32_t rock = FileId(Stick(), "Rock");
    EXPECT_EQ(PageNames(ListGroup(rock, 10, 0)), (std::vector<std::string>{"a.mp3"}));

    // Index a folder of the stick: Rock's id is gone, so it falls back to
    // group 0, which stays the stick's mount point (no records of its own in
    // this index); the new index's folders have their own ids.
    {
        const Json::Value reply = Index(Stick() + "/Other");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    Json::Value reply = ListGroup(rock, 10, 0);
    EXPECT_EQ(reply["error"]["code"].asInt(), -10) << reply.toStyledString();
    EXPECT_EQ(PageNames(reply), (std::vector<std::string>{}));
    EXPECT_EQ(PageNames(ListGroup(0, 10, 0)), (std::vector<std::string>{}));
    EXPECT_EQ(PageNames(ListGroup(FileId(Stick() + "/Other", "Sub"), 10, 0)), (std::vector<std::string>{"s.mp3"}));
}

TEST_F(BrowsingTest, ListsComeFromTheIndexUntilItIsRebuilt)
{
    TouchAll({"Rock/a.mp3"});
    StartDaemon();
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    EXPECT_EQ(PageNames(Browse(Stick() + "/Rock", 10, 0)), (std::vector<std::string>{"a.mp3"}));
    Touch("Rock/b.mp3");
    // Asked twice: the cached folder, the disk is not read again.
    EXPECT_EQ(PageNames(Browse(Stick() + "/Rock", 10, 0)), (std::vector<std::string>{"a.mp3"}));
    EXPECT_EQ(PageNames(ListGroup(FileId(Stick(), "Rock"), 10, 0)), (std::vector<std::string>{"a.mp3"}));
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    EXPECT_EQ(PageNames(Browse(Stick() + "/Rock", 10, 0)), (std::vector<std::string>{"a.mp3", "b.mp3"}));
}

TEST_F(BrowsingTest, IdIsEchoedAsSent)
{
    Touch("a.mp3");
    StartDaemon();
    ASSERT_TRUE(m_client.SendRaw(R"({"jsonrpc":"2.0","method":"getFileListByGroupID","id":"x-1",)"
                                 R"("params":{"groupID":0,"itemCount":1}})"));
    std::string line;
    ASSERT_TRUE(m_client.ReadLine(line, kWireTimeoutMs));
    {
        const Json::Value reply = ParseLine(line);
        EXPECT_EQ(reply["id"].asString(), "x-1") << reply.toStyledString();
    }
}

TEST_F(BrowsingTest, GetFileListUsbLogsItsRequest)
{
    MakePagingTree();
    StartDaemon({"-l", "i"});
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    Browse(Stick() + "/Many", 10, 0);
    const std::string stars(96, '*');
    EXPECT_TRUE(m_daemon->WaitForOutput("Max number of files to send: 10\n", kWireTimeoutMs));
    EXPECT_TRUE(m_daemon->WaitForOutput("Got the list of files. List size: 25\n", kWireTimeoutMs));
    const std::string output = m_daemon->Output();
    const size_t path = output.find("\tPath to get index of " + Stick() + "/Many\n");
    ASSERT_NE(path, std::string::npos);
    EXPECT_NE(output.rfind("\t" + stars + "\n", path), std::string::npos);
    EXPECT_NE(output.find("\t" + stars + "\n", path), std::string::npos);
    EXPECT_NE(output.find("[UsbMediaRequestHandler:"), std::string::npos);

    // The group method logs none of these lines.
    const size_t before = m_daemon->Output().size();
    ListGroup(0, 10, 0);
    Call("ping");
    EXPECT_EQ(m_daemon->Output().find("Path to get index of", before), std::string::npos);
}
