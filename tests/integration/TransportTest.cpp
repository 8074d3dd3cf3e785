// The JSON-RPC transport of the running daemon over real TCP: framing,
// reply format, error replies, many clients, and clients that misbehave.

#include "tests/support/DaemonProcess.h"
#include "tests/support/RpcClient.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/socket.h>

#include <string>
#include <vector>

using testing_support::DaemonProcess;
using testing_support::RpcClient;

namespace {
const std::string kPing = R"({"jsonrpc":"2.0","method":"ping","id":7})";
const std::string kPingReply = R"({"id":7,"jsonrpc":"2.0","result":true})";

class TransportTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(client.Connect(daemon.Port())); }

    std::string ReadLine(RpcClient& from)
    {
        std::string line;
        EXPECT_TRUE(from.ReadLine(line));
        return line;
    }

    DaemonProcess daemon;
    RpcClient client;
};
}  // namespace

TEST_F(TransportTest, PingRepliesByteForByte)
{
    ASSERT_TRUE(client.SendRaw(kPing));
    EXPECT_EQ(ReadLine(client), kPingReply);
}

TEST_F(TransportTest, PrintAnswersSuccess)
{
    ASSERT_TRUE(client.SendRaw(R"({"jsonrpc":"2.0","method":"print","id":"p","params":{"x":1}})"));
    EXPECT_EQ(ReadLine(client), R"({"id":"p","jsonrpc":"2.0","result":"success"})");
}

TEST(PrintTest, PrintLogsNothing)
{
    DaemonProcess::Options options;
    options.arguments = {"-l", "a"};  // every level: whatever it logged would show
    DaemonProcess daemon(options);
    RpcClient client;
    ASSERT_TRUE(client.Connect(daemon.Port()));
    ASSERT_TRUE(client.SendRaw(kPing));
    std::string line;
    ASSERT_TRUE(client.ReadLine(line));
    const std::string before = daemon.Output();

    ASSERT_TRUE(client.SendRaw(R"({"jsonrpc":"2.0","method":"print","id":"p","params":{"text":"hello"}})"));
    ASSERT_TRUE(client.ReadLine(line));
    EXPECT_EQ(line, R"({"id":"p","jsonrpc":"2.0","result":"success"})");
    // A method logs before its reply is written, so by now it would show.
    EXPECT_EQ(daemon.Output(), before);

    // The same daemon does log what a method logs at these levels.
    ASSERT_TRUE(client.SendRaw(R"({"jsonrpc":"2.0","method":"getFileListUSB","id":1,"params":{"path":"/nowhere"}})"));
    ASSERT_TRUE(client.ReadLine(line));
    EXPECT_NE(daemon.Output().find("Path to get index of /nowhere"), std::string::npos);
}

TEST_F(TransportTest, NotifySendsNoReply)
{
    ASSERT_TRUE(client.SendRaw(R"({"jsonrpc":"2.0","method":"notify","id":1})" + kPing));
    // The first line to arrive is the ping's: notify wrote nothing.
    EXPECT_EQ(ReadLine(client), kPingReply);
}

TEST_F(TransportTest, RequestWithoutIdIsAnsweredWithNullId)
{
    ASSERT_TRUE(client.SendRaw(R"({"jsonrpc":"2.0","method":"ping"})"));
    EXPECT_EQ(ReadLine(client), R"({"id":null,"jsonrpc":"2.0","result":true})");
}

TEST_F(TransportTest, RequestSplitOverManyWrites)
{
    for (char c : kPing) {
        ASSERT_TRUE(client.SendRaw(std::string(1, c)));
    }
    EXPECT_EQ(ReadLine(client), kPingReply);
}

TEST_F(TransportTest, SeveralRequestsInOneWrite)
{
    const std::string batch = R"({"jsonrpc":"2.0","method":"ping","id":1})"
                              R"({"jsonrpc":"2.0","method":"ping","id":2})"
                              "\n  \r\n"
                              R"({"jsonrpc":"2.0","method":"ping","id":3} )";
    ASSERT_TRUE(client.SendRaw(batch));
    EXPECT_EQ(ReadLine(client), R"({"id":1,"jsonrpc":"2.0","result":true})");
    EXPECT_EQ(ReadLine(client), R"({"id":2,"jsonrpc":"2.0","result":true})");
    EXPECT_EQ(ReadLine(client), R"({"id":3,"jsonrpc":"2.0","result":true})");
}

TEST_F(TransportTest, BracesAndQuotesInsideStrings)
{
    ASSERT_TRUE(client.SendRaw(R"({"jsonrpc":"2.0","method":"print","id":"}{\"]","params":{"s":"{[\"}"}})"));
    EXPECT_EQ(ReadLine(client), R"({"id":"}{\"]","jsonrpc":"2.0","result":"success"})");
}

TEST_F(TransportTest, ErrorRepliesKeepTheConnectionUsable)
{
    ASSERT_TRUE(client.SendRaw("{not json}"));
    EXPECT_EQ(ReadLine(client), R"({"error":{"code":-32700,"message":"Parse error"},"id":null,"jsonrpc":"2.0"})");
    ASSERT_TRUE(client.SendRaw(R"({"jsonrpc":"1.0","method":"ping","id":4})"));
    EXPECT_EQ(ReadLine(client), R"({"error":{"code":-32600,"message":"Invalid Request"},"id":4,"jsonrpc":"2.0"})");
    ASSERT_TRUE(client.SendRaw(R"({"jsonrpc":"2.0","id":5})"));
    EXPECT_EQ(ReadLine(client), R"({"error":{"code":-32600,"message":"Invalid Request"},"id":5,"jsonrpc":"2.0"})");
    ASSERT_TRUE(client.SendRaw(R"({"jsonrpc":"2.0","method":"noSuchMethod","id":6})"));
    EXPECT_EQ(ReadLine(client), R"({"error":{"code":-32601,"message":"Method not found"},"id":6,"jsonrpc":"2.0"})");
    ASSERT_TRUE(client.SendRaw(kPing));
    EXPECT_EQ(ReadLine(client), kPingReply);
}

TEST_F(TransportTest, MalformedLineGetsOneParseError)
{
    const std::string parseError = R"({"error":{"code":-32700,"message":"Parse error"},"id":null,"jsonrpc":"2.0"})";
    ASSERT_TRUE(client.SendRaw("this is not json\n" + kPing));
    EXPECT_EQ(ReadLine(client), parseError);
    EXPECT_EQ(ReadLine(client), kPingReply);  // not a second parse error

    // On one line the run ends where a request starts.
    ASSERT_TRUE(client.SendRaw("garbage, more garbage " + kPing + " trailing words\n" + kPing));
    EXPECT_EQ(ReadLine(client), parseError);
    EXPECT_EQ(ReadLine(client), kPingReply);
    EXPECT_EQ(ReadLine(client), parseError);
    EXPECT_EQ(ReadLine(client), kPingReply);
}

TEST_F(TransportTest, MalformedRunSentInPiecesGetsOneParseError)
{
    ASSERT_TRUE(client.SendRaw("this is "));
    EXPECT_EQ(ReadLine(client), R"({"error":{"code":-32700,"message":"Parse error"},"id":null,"jsonrpc":"2.0"})");
    ASSERT_TRUE(client.SendRaw("not json either"));
    ASSERT_TRUE(client.SendRaw("\n" + kPing));
    EXPECT_EQ(ReadLine(client), kPingReply);
}

TEST_F(TransportTest, BatchIsAnsweredWithArrayOfNonNullReplies)
{
    ASSERT_TRUE(client.SendRaw(R"([{"jsonrpc":"2.0","method":"ping","id":1},)"
                               R"({"jsonrpc":"2.0","method":"notify","id":2},)"
                               R"({"jsonrpc":"2.0","method":"print","id":3}])"));
    EXPECT_EQ(ReadLine(client), R"([{"id":1,"jsonrpc":"2.0","result":true},{"id":3,"jsonrpc":"2.0","result":"success"}])");
}

TEST_F(TransportTest, OversizedIncompleteRequestIsRefusedAndClosedAlone)
{
    RpcClient other;
    ASSERT_TRUE(other.Connect(daemon.Port()));
    std::string huge = R"({"jsonrpc":"2.0","method":"print","params":")";
    huge += std::string((1u << 20) + 1024, 'x');
    ASSERT_TRUE(client.SendRaw(huge));
    EXPECT_EQ(ReadLine(client), R"({"error":{"code":-32700,"message":"Parse error"},"id":null,"jsonrpc":"2.0"})");
    EXPECT_TRUE(client.WaitClosed());
    ASSERT_TRUE(other.SendRaw(kPing));
    EXPECT_EQ(ReadLine(other), kPingReply);
}

TEST_F(TransportTest, LargeCompleteRequestUnderTheLimitIsServed)
{
    std::string big = R"({"jsonrpc":"2.0","method":"print","id":1,"params":{"s":")";
    big += std::string(900 * 1024, 'y') + "\"}}";
    ASSERT_TRUE(client.SendRaw(big));
    EXPECT_EQ(ReadLine(client), R"({"id":1,"jsonrpc":"2.0","result":"success"})");
}

TEST_F(TransportTest, ClientThatNeverReadsDoesNotDelayOthers)
{
    RpcClient lazy;
    ASSERT_TRUE(lazy.Connect(daemon.Port()));
    // Many requests, replies never read: the daemon's queue for it fills,
    // then its requests wait and it is no longer read (so its sends block
    // here: they are made without waiting), while this client keeps being
    // answered.
    std::string flood;
    for (int i = 0; i < 2000; ++i) {
        flood += R"({"jsonrpc":"2.0","method":"print","id":"............................................................"})";
    }
    for (int round = 0; round < 100; ++round) {
        [[maybe_unused]] const ssize_t taken = send(lazy.Fd(), flood.data(), flood.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        ASSERT_TRUE(client.SendRaw(kPing));
        std::string line;
        ASSERT_TRUE(client.ReadLine(line, 3000)) << "round " << round;
        EXPECT_EQ(line, kPingReply);
    }
}

// Three hundred clients at once: the service keeps at most 256 connections,
// so each client is either answered or closed at once, never left hanging.
TEST_F(TransportTest, ClientsPastTheConnectionLimitAreClosedTheOthersAnswered)
{
    struct rlimit limit {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);

    std::vector<RpcClient> clients(300);
    for (auto& each : clients) {
        ASSERT_TRUE(each.Connect(daemon.Port()));
    }
    size_t answered = 0;
    size_t closed = 0;
    for (size_t i = 0; i < clients.size(); ++i) {
        if (!clients[i].SendRaw(R"({"jsonrpc":"2.0","method":"ping","id":)" + std::to_string(i) + "}")) {
            ++closed;
            continue;
        }
        std::string line;
        if (clients[i].ReadLine(line)) {
            EXPECT_EQ(line, R"({"id":)" + std::to_string(i) + R"(,"jsonrpc":"2.0","result":true})");
            ++answered;
        } else {
            EXPECT_TRUE(clients[i].WaitClosed()) << i;
            ++closed;
        }
    }
    EXPECT_EQ(answered + closed, clients.size());
    EXPECT_GE(closed, clients.size() - 256);
    EXPECT_GE(answered, 200u);
}

TEST_F(TransportTest, HalfClosedClientStillGetsItsReplies)
{
    ASSERT_TRUE(client.SendRaw(kPing));
    shutdown(client.Fd(), SHUT_WR);
    EXPECT_EQ(ReadLine(client), kPingReply);
    EXPECT_TRUE(client.WaitClosed());
}
