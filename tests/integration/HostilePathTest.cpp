// Paths that are not valid UTF-8, as the control-interface fuzzer sent them:
// "/mnt/\xE0usb-stick2" decodes to a path with a NUL byte inside. Playing,
// browsing or indexing it must give a normal reply while the daemon keeps
// serving others with its memory bounded.

#include "tests/integration/LibraryFixture.h"
#include "tests/support/ProcessStatus.h"

#include <string>

using library_test::LibraryTest;
using testing_support::MakeDirs;
using testing_support::ParseLine;
using testing_support::RpcClient;
using testing_support::kWireTimeoutMs;

namespace {

// The fuzzer's finding: a lone 3-byte lead byte before a letter.
const std::string kInvalid = "\xE0usb-stick2";

class HostilePathTest : public LibraryTest {
protected:
    // A stick with folders but no audio, so a play ends in a plain failure
    // reply instead of starting a pipeline.
    void MakeSilentStick()
    {
        MakeDirs(Stick() + "/Docs/Old");
        testing_support::WriteFile(Stick() + "/Docs/readme.txt", "text");
        MakeDirs(m_root / "mnt/usb-stick2/Empty");
    }

    // Sends one request as raw bytes (the path is not valid UTF-8, so it is
    // written by hand) and returns its reply, notifications skipped.
    Json::Value RawCall(const std::string& method, const std::string& params)
    {
        const std::string request =
            R"({"jsonrpc":"2.0","id":7,"method":")" + method + R"(","params":)" + params + "}\n";
        EXPECT_TRUE(m_client.SendRaw(request));
        std::string line;
        while (m_client.ReadLine(line, kWireTimeoutMs)) {
            const Json::Value message = ParseLine(line);
            if (!message.isMember("method")) {
                return message;
            }
        }
        ADD_FAILURE() << "no reply to " << method;
        return Json::Value();
    }

    Json::Value PlayFolderRaw(const std::string& path, const std::string& name)
    {
        return RawCall("playFileUSB",
                       R"({"file":{"path":")" + path + R"(","name":")" + name + R"(","isFolder":true}})");
    }

    long ResidentKiB() const { return testing_support::ResidentKiB(m_daemon->Pid()); }

    // Another client is answered and the daemon's memory stayed bounded.
    void ExpectOthersServed()
    {
        RpcClient other;
        ASSERT_TRUE(other.Connect(m_daemon->Port()));
        {
            const Json::Value reply = other.Call("ping", Json::Value(), kWireTimeoutMs);
            EXPECT_EQ(reply["result"], true) << reply.toStyledString();
        }
        {
            const Json::Value reply = Call("ping");
            EXPECT_EQ(reply["result"], true) << reply.toStyledString();
        }
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
        // Sanitizers keep shadow and quarantine memory of their own.
        EXPECT_LT(ResidentKiB(), 256 * 1024);
#endif
    }
};

}  // namespace

TEST_F(HostilePathTest, PlayingAFolderPathWithAnInvalidByteIsAnswered)
{
    MakeSilentStick();
    StartDaemon();
    // The path ends where the invalid byte decodes to NUL: "<root>/mnt/",
    // which holds no audio.
    Json::Value reply = PlayFolderRaw(m_root / "mnt/" + kInvalid, "");
    EXPECT_EQ(reply["id"], 7) << reply.toStyledString();
    EXPECT_EQ(reply["error"]["code"].asInt(), -2) << reply.toStyledString();
    EXPECT_EQ(reply["result"]["success"], false) << reply.toStyledString();
    // The same byte in the folder's name.
    reply = PlayFolderRaw(m_root / "mnt", kInvalid);
    EXPECT_EQ(reply["error"]["code"].asInt(), -2) << reply.toStyledString();
    ExpectOthersServed();
}

TEST_F(HostilePathTest, PlayingAFolderPathWithAnInvalidBytePlaysWhatIsBelowTheCut)
{
    Touch("Songs/a.mp3");
    StartDaemon();
    const Json::Value reply = PlayFolderRaw(m_root / "mnt/" + kInvalid, "");
    EXPECT_EQ(reply["id"], 7) << reply.toStyledString();
    EXPECT_TRUE(reply.isMember("result")) << reply.toStyledString();
    ExpectOthersServed();
}

TEST_F(HostilePathTest, BrowsingAPathWithAnInvalidByteIsAnEmptyList)
{
    MakeSilentStick();
    Touch("Songs/a.mp3");
    StartDaemon();
    {
        const Json::Value reply = Index(Stick());
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    for (const std::string& path : {"/mnt/" + kInvalid, m_root / "mnt/" + kInvalid}) {
        const Json::Value reply =
            RawCall("getFileListUSB", R"({"path":")" + path + R"(","itemCount":10,"startIndex":0})");
        EXPECT_EQ(reply["error"]["code"].asInt(), -10) << path << ": " << reply.toStyledString();
        EXPECT_EQ(reply["result"]["totalCount"].asInt(), 0) << path << ": " << reply.toStyledString();
    }
    ExpectOthersServed();
}

TEST_F(HostilePathTest, IndexingAPathWithAnInvalidByteIndexesWhatIsBelowTheCut)
{
    Touch("Songs/a.mp3");
    StartDaemon();
    const Json::Value reply =
        RawCall("indexUsbStorage", R"({"usbStoragePath":")" + (m_root / "mnt/" + kInvalid) + R"("})");
    EXPECT_EQ(reply["result"]["success"], true) << reply.toStyledString();
    EXPECT_FALSE(reply.isMember("error")) << reply.toStyledString();
    ExpectOthersServed();
}
