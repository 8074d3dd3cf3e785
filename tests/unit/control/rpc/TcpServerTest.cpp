// The TCP transport on loopback, server and clients in this process: output
// queued past what the socket takes (partial writes) and flushed as the
// client reads, the per-client queue limit, and a descriptor that a new
// client reuses after the old one has gone.
#include "control/rpc/TcpServer.h"

#include "control/rpc/FileDescriptor.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include <json/value.h>

#include "control/rpc/JsonText.h"

#include <algorithm>
#include <functional>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using Json::Rpc::FileDescriptor;
using Json::Rpc::TcpServer;

namespace {

constexpr size_t kChunk = 64 * 1024;

// A chunk whose every byte tells where it is in the stream.
std::string Chunk(size_t index)
{
    std::string text(kChunk, '\0');
    for (size_t i = 0; i < text.size(); ++i) {
        text[i] = static_cast<char>('a' + (index + i) % 26);
    }
    return text;
}

class TcpServerTest : public testing::Test {
protected:
    void SetUp() override
    {
        // Port 0: the kernel picks a free one as it binds, no race with
        // another test; the server keeps the port it got.
        server = std::make_unique<TcpServer>("127.0.0.1", 0);
        ASSERT_TRUE(server->Bind());
        ASSERT_NE(server->GetPort(), 0);
        ASSERT_TRUE(server->Listen());  // this thread serves
    }

    // An unconnected client socket with a small receive buffer, so that
    // little of what the server sends fits in the kernel.
    static FileDescriptor NewSocket()
    {
        FileDescriptor fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const int small = 4096;
        setsockopt(fd.Get(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
        return fd;
    }

    // Connects `fd` and serves until the server knows the new client;
    // returns the server's descriptor for it, -1 when it never appeared.
    int Connect(const FileDescriptor& fd)
    {
        const std::list<int> before = server->GetClients();
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(server->GetPort());
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            return -1;
        }
        for (int round = 0; round < 200; ++round) {
            server->WaitMessage(10);
            for (const int client : server->GetClients()) {
                if (std::find(before.begin(), before.end(), client) == before.end()) {
                    return client;
                }
            }
        }
        return -1;
    }

    // Serves while reading from `fd` until `bytes` have come, the peer has
    // closed, or ten seconds have passed.
    std::string Receive(const FileDescriptor& fd, size_t bytes, bool* closed = nullptr)
    {
        std::string received;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        char buffer[kChunk];
        while (received.size() < bytes && std::chrono::steady_clock::now() < deadline) {
            server->WaitMessage(0);
            pollfd watched{fd.Get(), POLLIN, 0};
            if (poll(&watched, 1, 5) <= 0) {
                continue;
            }
            const ssize_t got = recv(fd.Get(), buffer, sizeof buffer, MSG_DONTWAIT);
            if (got > 0) {
                received.append(buffer, static_cast<size_t>(got));
            } else if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
                if (closed != nullptr) {
                    *closed = true;
                }
                break;
            }
        }
        return received;
    }

    // Serves until the server lists `count` clients.
    bool ServeUntilClients(size_t count)
    {
        for (int round = 0; round < 500; ++round) {
            if (server->GetClients().size() == count) {
                return true;
            }
            server->WaitMessage(10);
        }
        return server->GetClients().size() == count;
    }

    std::unique_ptr<TcpServer> server;
};

}  // namespace

// Three megabytes to a client that does not read: far more than its socket
// takes, so most of it waits in the server's queue, and every Send still
// succeeds. When the client reads, the queue drains in order and whole.
TEST_F(TcpServerTest, QueueOfAClientThatDoesNotReadDrainsWhenItReads)
{
    const FileDescriptor client = NewSocket();
    const int fd = Connect(client);
    ASSERT_GE(fd, 0);

    std::string expected;
    for (size_t i = 0; i < 48; ++i) {
        const std::string chunk = Chunk(i);
        ASSERT_TRUE(server->Send(fd, chunk)) << "chunk " << i;
        expected += chunk;
    }
    server->WaitMessage(0);
    EXPECT_EQ(server->GetClients(), std::list<int>{fd});

    const std::string received = Receive(client, expected.size());
    ASSERT_EQ(received.size(), expected.size());
    EXPECT_TRUE(received == expected);

    // Drained: the client takes more as before.
    ASSERT_TRUE(server->Send(fd, "after\n"));
    EXPECT_EQ(Receive(client, 6), "after\n");
}

// A client that stops reading is dropped once what waits for it would pass
// the limit: the Send that would pass it fails, the client leaves the list at
// once, and its connection is closed. Another client is not held up.
TEST_F(TcpServerTest, ClientPastTheQueueLimitIsDisconnected)
{
    const FileDescriptor stalled = NewSocket();
    const int stalledFd = Connect(stalled);
    ASSERT_GE(stalledFd, 0);
    const FileDescriptor reader = NewSocket();
    const int readerFd = Connect(reader);
    ASSERT_GE(readerFd, 0);

    size_t accepted = 0;
    bool dropped = false;
    for (size_t i = 0; i < 4 * TcpServer::kMaxQueuedBytes / kChunk; ++i) {
        if (!server->Send(stalledFd, Chunk(i))) {
            dropped = true;
            break;
        }
        accepted += kChunk;
    }
    ASSERT_TRUE(dropped);
    EXPECT_GT(accepted, TcpServer::kMaxOutputBytes - kChunk);
    EXPECT_EQ(server->GetClients(), std::list<int>{readerFd});
    EXPECT_FALSE(server->Send(stalledFd, "more\n"));

    ASSERT_TRUE(server->Send(readerFd, "still here\n"));
    EXPECT_EQ(Receive(reader, 11), "still here\n");

    // The stalled client reads what its socket had taken, then the end: the
    // rest of its queue was thrown away.
    bool closed = false;
    const std::string received = Receive(stalled, accepted, &closed);
    EXPECT_TRUE(closed);
    EXPECT_LT(received.size(), accepted);
}

// One message larger than the limit drops even an idle client.
TEST_F(TcpServerTest, SingleMessagePastTheLimitDisconnects)
{
    const FileDescriptor client = NewSocket();
    const int fd = Connect(client);
    ASSERT_GE(fd, 0);
    EXPECT_FALSE(server->Send(fd, std::string(TcpServer::kMaxOutputBytes + 1, 'x')));
    EXPECT_TRUE(server->GetClients().empty());
    bool closed = false;
    EXPECT_EQ(Receive(client, 1, &closed), "");
    EXPECT_TRUE(closed);
}

// A client goes with output still queued; the next client is given the same
// descriptor. It receives only what is sent to it after it connected.
TEST_F(TcpServerTest, ReusedDescriptorDoesNotInheritTheOldQueue)
{
    FileDescriptor next = NewSocket();

    FileDescriptor old = NewSocket();
    const int oldFd = Connect(old);
    ASSERT_GE(oldFd, 0);
    for (size_t i = 0; i < 32; ++i) {
        ASSERT_TRUE(server->Send(oldFd, Chunk(i)));
    }
    old.Reset();  // unread data: the peer is reset
    ASSERT_TRUE(ServeUntilClients(0));
    EXPECT_FALSE(server->Send(oldFd, "stale\n"));

    // Client and server share this process: hold every lower free descriptor
    // (the old client's own among them), so that the server's accept gets
    // the one it just closed.
    std::vector<FileDescriptor> held;
    for (;;) {
        FileDescriptor placeholder(open("/dev/null", O_RDONLY | O_CLOEXEC));
        ASSERT_TRUE(placeholder.IsValid());
        if (placeholder.Get() >= oldFd) {
            break;
        }
        held.push_back(std::move(placeholder));
    }

    const int nextFd = Connect(next);
    ASSERT_EQ(nextFd, oldFd) << "the descriptor was not reused; the test proves nothing";
    ASSERT_TRUE(server->Send(nextFd, "fresh\n"));
    EXPECT_EQ(Receive(next, 6), "fresh\n");

    // Nothing else arrives.
    server->WaitMessage(50);
    char byte = 0;
    EXPECT_LT(recv(next.Get(), &byte, 1, MSG_DONTWAIT), 0);
}

namespace {
// Methods whose calls are recorded in order, for the serving order tests.
class Recorder {
public:
    bool Call(const Json::Value& request, Json::Value& response)
    {
        order += request["params"]["who"].asString();
        response["jsonrpc"] = "2.0";
        response["id"] = request["id"];
        response["result"] = std::string(request["params"]["bytes"].asUInt(), 'r');
        if (onCall) {
            onCall();
        }
        return true;
    }
    std::string order;
    std::function<void()> onCall;
};

std::string Request(const std::string& who, unsigned bytes = 0, int id = 1)
{
    return R"({"jsonrpc":"2.0","method":"call","id":)" + std::to_string(id) + R"(,"params":{"who":")" + who +
           R"(","bytes":)" + std::to_string(bytes) + "}}";
}

class TcpServingTest : public TcpServerTest {
protected:
    void SetUp() override
    {
        TcpServerTest::SetUp();
        server->AddMethod(std::make_unique<Json::Rpc::RpcMethod<Recorder>>(recorder, &Recorder::Call, "call"));
    }
    static bool SendAll(const FileDescriptor& fd, const std::string& text)
    {
        return send(fd.Get(), text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
    }
    Recorder recorder;
};
}  // namespace

// Three requests in one write from one client and one from another: the
// other client's is served in the first round, after at most one of the
// first client's.
TEST_F(TcpServingTest, ClientsAreServedOneRequestEachPerRound)
{
    const FileDescriptor busy = NewSocket();
    const FileDescriptor other = NewSocket();
    ASSERT_GE(Connect(busy), 0);
    ASSERT_GE(Connect(other), 0);
    ASSERT_TRUE(SendAll(busy, Request("a") + Request("a") + Request("a")));
    ASSERT_TRUE(SendAll(other, Request("b")));
    for (int round = 0; round < 200 && recorder.order.size() < 4; ++round) {
        server->WaitMessage(10);
    }
    ASSERT_EQ(recorder.order.size(), 4u) << recorder.order;
    EXPECT_LE(recorder.order.find('b'), 1u) << recorder.order;
}

// The gate is asked before every request; when it says no, serving stops
// at once and what is queued stays queued.
TEST_F(TcpServingTest, GateStopsServingBetweenRequests)
{
    int asked = 0;
    bool open = true;
    server->SetRequestGate([&] {
        ++asked;
        return open;
    });
    const FileDescriptor client = NewSocket();
    ASSERT_GE(Connect(client), 0);
    recorder.onCall = [&] { open = false; };
    ASSERT_TRUE(SendAll(client, Request("a") + Request("a") + Request("a")));
    for (int round = 0; round < 50; ++round) {
        server->WaitMessage(10);
    }
    EXPECT_EQ(recorder.order, "a");
    EXPECT_GE(asked, 2);
    open = true;
    recorder.onCall = nullptr;
    for (int round = 0; round < 200 && recorder.order.size() < 3; ++round) {
        server->WaitMessage(10);
    }
    EXPECT_EQ(recorder.order, "aaa");
}

// A batch whose replies together are far past the output limit, from a
// client that does not read: the next element is served only while its
// output has room, so the server never holds much more than the limit.
// When the client reads, the whole array arrives, in order and valid.
TEST_F(TcpServingTest, BatchRepliesWaitForRoomAndArriveWhole)
{
    constexpr unsigned kReplyBytes = 512 * 1024;
    constexpr int kElements = 40;  // 20 MiB of replies in all
    const FileDescriptor client = NewSocket();
    ASSERT_GE(Connect(client), 0);
    std::string batch = "[";
    for (int i = 0; i < kElements; ++i) {
        batch += (i == 0 ? "" : ",") + Request("a", kReplyBytes, i);
    }
    ASSERT_TRUE(SendAll(client, batch + "]"));
    for (int round = 0; round < 100; ++round) {
        server->WaitMessage(1);
    }
    // What the kernel took for the client counts apart from what waits here.
    const int serverSide = server->GetClients().front();
    int kernelBytes = 0;
    socklen_t length = sizeof kernelBytes;
    ASSERT_EQ(getsockopt(serverSide, SOL_SOCKET, SO_SNDBUF, &kernelBytes, &length), 0);
    const size_t servedWhileStalled = recorder.order.size();
    EXPECT_GE(servedWhileStalled, 1u);
    EXPECT_LE(servedWhileStalled * kReplyBytes,
              TcpServer::kMaxQueuedBytes + kReplyBytes + static_cast<size_t>(kernelBytes))
        << servedWhileStalled << " replies made for a client that does not read";

    // A notification sent meanwhile waits for the array to end.
    const std::string note = "{\"note\":1}\n";
    ASSERT_TRUE(server->Send(serverSide, note));

    size_t expected = 2 + note.size();  // "]\n" and the note
    for (int i = 0; i < kElements; ++i) {
        expected += 1 + std::string(R"({"id":,"jsonrpc":"2.0","result":""})").size() + std::to_string(i).size() +
                    kReplyBytes;
    }
    const std::string received = Receive(client, expected);
    ASSERT_EQ(recorder.order.size(), static_cast<size_t>(kElements));
    const size_t end = received.find("]\n");
    ASSERT_NE(end, std::string::npos);
    EXPECT_EQ(received.substr(end), "]\n{\"note\":1}\n");
    Json::Value replies;
    ASSERT_TRUE(Json::Rpc::ParseJson(received.substr(0, end + 1), replies));
    ASSERT_EQ(replies.size(), static_cast<unsigned>(kElements));
    for (int i = 0; i < kElements; ++i) {
        EXPECT_EQ(replies[i]["id"].asInt(), i);
    }
}

// Past the connection limit a client is accepted and closed at once; the
// others stay.
TEST_F(TcpServingTest, ConnectionsPastTheLimitAreClosedAtOnce)
{
    std::vector<FileDescriptor> clients;
    for (size_t i = 0; i < TcpServer::kMaxClients; ++i) {
        clients.push_back(NewSocket());
        ASSERT_GE(Connect(clients.back()), 0) << i;
    }
    const FileDescriptor extra = NewSocket();
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(server->GetPort());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(connect(extra.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    bool closed = false;
    EXPECT_EQ(Receive(extra, 1, &closed), "");
    EXPECT_TRUE(closed);
    EXPECT_EQ(server->GetClients().size(), TcpServer::kMaxClients);
}

// Unfinished requests of all clients together are bounded: the client whose
// bytes would pass the limit gets one parse error and is closed; the others
// stay connected.
TEST_F(TcpServingTest, UnfinishedRequestsOfAllClientsAreBounded)
{
    const std::string unfinished = R"({"jsonrpc":"2.0","method":"call","params":")" +
                                   std::string(TcpServer::kMaxRequestBytes - 100, 'u');
    const size_t fitting = TcpServer::kMaxUnfinishedBytes / unfinished.size();
    std::vector<FileDescriptor> clients;
    for (size_t i = 0; i < fitting; ++i) {
        clients.push_back(NewSocket());
        ASSERT_GE(Connect(clients.back()), 0);
        ASSERT_TRUE(SendAll(clients.back(), unfinished)) << i;
        for (int round = 0; round < 20; ++round) {
            server->WaitMessage(1);
        }
    }
    ASSERT_EQ(server->GetClients().size(), fitting);
    const FileDescriptor last = NewSocket();
    ASSERT_GE(Connect(last), 0);
    ASSERT_TRUE(SendAll(last, unfinished));
    bool closed = false;
    const std::string received = Receive(last, 1000, &closed);
    EXPECT_EQ(received, "{\"error\":{\"code\":-32700,\"message\":\"Parse error\"},\"id\":null,\"jsonrpc\":\"2.0\"}\n");
    EXPECT_TRUE(closed);
    EXPECT_EQ(server->GetClients().size(), fitting);
}
