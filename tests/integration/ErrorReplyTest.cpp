// The "error" of a reply as the running daemon sends it: the status of the
// operation that the request ran, its message in UTF-8 even when it names a
// path from the stick.

#include "tests/integration/DeviceFixture.h"
#include "tests/support/ProcessStatus.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

using device_test::DeviceTest;
using testing_support::DescriptorList;
using testing_support::OpenDescriptorsBelow;

namespace {
const std::string kUnknown = "\xC3\x9Cnknown";  // "Ünknown" in UTF-8

Json::Value Single(const char* key, const Json::Value& value)
{
    Json::Value params(Json::objectValue);
    params[key] = value;
    return params;
}

class ErrorReplyTest : public DeviceTest {
protected:
    // Waits until the daemon has written `text` at least `count` times;
    // false when that does not happen within the time-out.
    bool WaitForOutputCount(const std::string& text, size_t count, int timeoutMs)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        while (Occurrences(m_daemon->Output(), text) < count) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return true;
    }

    static size_t Occurrences(const std::string& text, const std::string& what)
{
    size_t count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
        ++count;
    }
    return count;
}
};
}  // namespace

TEST_F(ErrorReplyTest, ErrorMessageCarriesTheStickPathAsSent)
{
    device_test::MakeMp3(Stick1() + "/music/a.mp3", 1.0);
    StartDaemon();
    const std::string missing = Stick1() + "/" + kUnknown;
    const Json::Value reply = Index(missing);
    ASSERT_TRUE(reply.isMember("error")) << reply.toStyledString();
    EXPECT_EQ(reply["error"]["code"], -1) << reply.toStyledString();
    EXPECT_EQ(reply["error"]["message"], "E: While opendir " + missing) << reply.toStyledString();
    EXPECT_EQ(reply["result"]["success"], false) << reply.toStyledString();
}

// Every request runs on the listener thread, but the main loop's bus watch
// sets and clears the same player status whenever a track fails to decode.
// Here the bus keeps skipping undecodable files (repeat all) while clients
// each index a folder of their own that does not exist: each reply's "error"
// must be that request's own status, never a status the bus or another
// client left meanwhile (code 0 with "Success", or another path's text). The race cannot be forced from
// outside, so the test keeps both sides busy until many bus errors have
// happened during the requests; a reply that mixes statuses fails it.
TEST_F(ErrorReplyTest, ReplyErrorIsTheStatusOfItsOwnOperation)
{
    const std::string mix = Stick1() + "/mix";
    for (const char* name : {"a.mp3", "b.mp3", "c.mp3"}) {
        device_test::MakeCorruptFile(mix + "/" + name, 4000);
    }
    StartDaemon();
    Call("setRepeatModeUSB", Single("mode", 2));
    PlayFile(mix, "a.mp3");

    constexpr size_t kBusErrorsWanted = 200;
    std::atomic<bool> done{false};
    std::atomic<int> replies{0};
    std::vector<std::thread> clients;
    for (int i = 0; i < 3; ++i) {
        const std::string missing = Stick1() + "/missing-" + std::to_string(i);
        clients.emplace_back([&, missing] {
            testing_support::RpcClient client;
            ASSERT_TRUE(client.Connect(m_daemon->Port()));
            while (!done) {
                const Json::Value reply = testing_support::Index(client, missing);
                ASSERT_TRUE(reply.isMember("error")) << reply.toStyledString();
                const Json::Value& error = reply["error"];
                ASSERT_EQ(error["code"].asInt(), -1) << error.toStyledString();
                ASSERT_EQ(error["message"].asString(), "E: While opendir " + missing)
                    << error.toStyledString();
                ++replies;
                client.DrainNotifications(0);
            }
        });
    }
    // The requests go on until the bus has failed that often meanwhile.
    const bool busFailedOften = WaitForOutputCount("\tError: ", kBusErrorsWanted, 240000);
    done = true;
    for (auto& client : clients) {
        client.join();
    }
    EXPECT_TRUE(busFailedOften);
    EXPECT_GT(replies.load(), 0);
    Call("stopPlayingUSB");
}

// With its descriptor table full the daemon cannot open the song's folder;
// the reply must still say what went wrong, though converting its message
// to UTF-8 needs a converter that could not be opened now.
TEST_F(ErrorReplyTest, FullDescriptorTableStillGivesTheWholeMessage)
{
#if defined(__SANITIZE_ADDRESS__)
    // UBSan's vptr check probes memory through a pipe it opens on the spot:
    // with the table full the probe fails and it reports a bad object.
    GTEST_SKIP() << "the sanitizers' runtime needs free descriptors of its own";
#endif
    constexpr long kLimit = 128;
    device_test::MakeMp3(Stick1() + "/music/song.mp3", 5.0);
    StartDaemon({"-l", "a"}, {}, static_cast<int>(kLimit));
    const pid_t pid = m_daemon->Pid();
    // Two answered requests: the start-up probe's connection is closed by now.
    ASSERT_TRUE(Call("ping")["result"].asBool());
    ASSERT_TRUE(Call("ping")["result"].asBool());
    const long before = OpenDescriptorsBelow(pid, kLimit);
    ASSERT_GT(before, 0);
    ASSERT_LT(before, kLimit) << DescriptorList(pid);

    // Each answered ping is one more accepted socket: stop when none is left.
    std::vector<testing_support::RpcClient> held;
    for (long open = before; open < kLimit; open = OpenDescriptorsBelow(pid, kLimit)) {
        ASSERT_LT(held.size(), static_cast<size_t>(kLimit)) << DescriptorList(pid);
        testing_support::RpcClient client;
        ASSERT_TRUE(client.Connect(m_daemon->Port()));
        const Json::Value pong = client.Call("ping");
        ASSERT_TRUE(pong["result"].asBool()) << "reply: " << pong.toStyledString() << DescriptorList(pid);
        held.push_back(std::move(client));
    }
    ASSERT_EQ(OpenDescriptorsBelow(pid, kLimit), kLimit) << DescriptorList(pid);

    const Json::Value reply = PlayFile(Stick1() + "/music", "song.mp3");
    Json::Value expected;
    expected["code"] = -6;
    expected["message"] = "E: No Songs on USB!";
    EXPECT_EQ(reply["error"], expected) << "reply: " << reply.toStyledString() << m_daemon->Output();
    EXPECT_EQ(reply["result"]["success"], false) << "reply: " << reply.toStyledString();

    // The connections gone, the same request plays.
    held.clear();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(testing_support::kWireTimeoutMs);
    while (OpenDescriptorsBelow(pid, kLimit) > before && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_LE(OpenDescriptorsBelow(pid, kLimit), before) << DescriptorList(pid);
    const Json::Value again = PlayFile(Stick1() + "/music", "song.mp3");
    EXPECT_TRUE(again["result"]["success"].asBool()) << "reply: " << again.toStyledString();
    EXPECT_TRUE(WaitForState(4));
    Call("stopPlayingUSB");
}
