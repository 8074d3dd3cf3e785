// The daemon under load: a thousand listeners during playback, a long
// pipelined request stream from many clients, its memory and descriptors
// after everyone leaves, and clients that stall half-way or never read.

#include "tests/support/MediaFactory.h"
#include "tests/support/ProcessStatus.h"
#include "tests/support/WireFixture.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using testing_support::DaemonProcess;
using testing_support::MediaFactory;
using testing_support::OpenDescriptors;
using testing_support::ResidentKiB;
using testing_support::RpcClient;
using testing_support::WireText;
using testing_support::kWireTimeoutMs;

namespace {
using Clock = std::chrono::steady_clock;

// Descriptors and memory of a running process, read from /proc.
struct ProcessUsage {
    long residentKiB = 0;
    long openDescriptors = 0;
};

ProcessUsage UsageOf(pid_t pid)
{
    return ProcessUsage{ResidentKiB(pid), OpenDescriptors(pid)};
}

// Waits until the daemon holds no more than `limit` descriptors.
ProcessUsage WaitForDescriptorsAtMost(pid_t pid, long limit)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(kWireTimeoutMs);
    ProcessUsage usage = UsageOf(pid);
    while (usage.openDescriptors > limit && Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        usage = UsageOf(pid);
    }
    return usage;
}

// AddressSanitizer keeps freed memory in quarantine, so resident memory does
// not come back there; the memory checks hold in the other builds.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kMemoryComesBack = false;
#else
constexpr bool kMemoryComesBack = true;
#endif

// Resident memory back to about where it was: freed memory need not go back
// to the system, so some growth is allowed.
void ExpectMemoryBackNear(const ProcessUsage& before, const ProcessUsage& after)
{
    if (kMemoryComesBack) {
        EXPECT_LE(after.residentKiB, before.residentKiB + 16 * 1024);
    }
}

void RaiseDescriptorLimit()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

std::string Request(const std::string& method, long id, const std::string& params = "")
{
    std::string text = R"({"jsonrpc":"2.0","method":")" + method + R"(","id":)" + std::to_string(id);
    if (!params.empty()) {
        text += R"(,"params":)" + params;
    }
    return text + "}";
}

std::string PingReply(long id)
{
    return R"({"id":)" + std::to_string(id) + R"(,"jsonrpc":"2.0","result":true})";
}

std::string ModeReply(long id, int mode)
{
    return R"({"id":)" + std::to_string(id) + R"(,"jsonrpc":"2.0","result":{"mode":)" + std::to_string(mode) + "}}";
}

bool IsTimeLine(const std::string& line)
{
    return line.find(R"("method":"trackTimeNotification")") != std::string::npos;
}

// A daemon with its descriptor limit raised (it inherits the test's) on a
// stick holding one short song. The fixture's own client stays unconnected:
// each test counts the connections it makes.
class LoadTest : public testing_support::WireFixture {
protected:
    void SetUp() override
    {
        RaiseDescriptorLimit();
        MediaFactory::Place(MediaFactory::Mp3(5, "Load", "Tester", "Bench"), Stick() + "/song.mp3");
        DaemonProcess::Options options;
        options.environment["USBMEDIA_ROOT"] = m_root.Path();
        m_daemon = std::make_unique<DaemonProcess>(options);
    }

    std::string Stick() const { return m_root.Path() + "/mnt/usb-stick1"; }
    int Port() const { return m_daemon->Port(); }
    pid_t Pid() const { return m_daemon->Pid(); }

    void StartSong(RpcClient& controller)
    {
        const Json::Value reply = testing_support::PlayFile(controller, Stick(), "song.mp3");
        ASSERT_TRUE(reply["result"]["success"].asBool()) << WireText(reply);
    }
};

// Sends `rounds` batches of `batchSize` pipelined requests (ping and
// getRepeatModeUSB alternating) and checks every reply in order; returns the
// number of wrong or missing replies.
long RunPipelinedClient(int port, long firstId, int rounds, int batchSize)
{
    RpcClient client;
    if (!client.Connect(port)) {
        return static_cast<long>(rounds) * batchSize;
    }
    long wrong = 0;
    long id = firstId;
    for (int round = 0; round < rounds; ++round) {
        std::string batch;
        for (int i = 0; i < batchSize; ++i) {
            batch += Request(i % 2 == 0 ? "ping" : "getRepeatModeUSB", id + i);
        }
        if (!client.SendRaw(batch)) {
            return wrong + static_cast<long>(rounds - round) * batchSize;
        }
        for (int i = 0; i < batchSize; ++i, ++id) {
            std::string line;
            if (!client.ReadLine(line, kWireTimeoutMs)) {
                return wrong + static_cast<long>(rounds - round) * batchSize - i;
            }
            wrong += line != (i % 2 == 0 ? PingReply(id) : ModeReply(id, 0)) ? 1 : 0;
        }
    }
    return wrong;
}
}  // namespace

// As many listeners as the service keeps connections (256, the controller
// among them): each receives byte-identical time lines.
TEST_F(LoadTest, ListenersUpToTheConnectionLimitReceiveIdenticalTimeLines)
{
    {
        // Warm-up: one playback loads the decoders, so the baseline holds them.
        RpcClient warmUp;
        ASSERT_TRUE(warmUp.Connect(Port()));
        StartSong(warmUp);
        Json::Value notification;
        ASSERT_TRUE(warmUp.NextNotification(notification, "trackTimeNotification", kWireTimeoutMs));
        {
            const Json::Value reply = warmUp.Call("stopPlayingUSB", Json::Value(), kWireTimeoutMs);
            ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
        }
        // Go on once the daemon has closed this connection: the listeners
        // below take every place it has, and one more would be turned away.
        ::shutdown(warmUp.Fd(), SHUT_WR);
        ASSERT_TRUE(warmUp.WaitClosed(kWireTimeoutMs));
    }
    const ProcessUsage before = WaitForDescriptorsAtMost(Pid(), 1 << 20);

    constexpr long kListeners = 255;
    std::vector<RpcClient> listeners(kListeners);
    for (auto& listener : listeners) {
        ASSERT_TRUE(listener.Connect(Port()));
    }
    RpcClient controller;
    ASSERT_TRUE(controller.Connect(Port()));
    StartSong(controller);

    // The controller's own time lines up to the second one are the reference.
    std::vector<std::string> reference;
    std::string line;
    while (reference.size() < 2 && controller.ReadLine(line, kWireTimeoutMs)) {
        if (IsTimeLine(line)) {
            reference.push_back(line);
        }
    }
    ASSERT_EQ(reference.size(), 2u);

    for (size_t i = 0; i < listeners.size(); ++i) {
        std::vector<std::string> received;
        while (received.size() < reference.size() && listeners[i].ReadLine(line, kWireTimeoutMs)) {
            if (IsTimeLine(line)) {
                received.push_back(line);
            }
        }
        ASSERT_EQ(received, reference) << "listener " << i;
    }
    const ProcessUsage during = UsageOf(Pid());
    EXPECT_GE(during.openDescriptors, before.openDescriptors + kListeners);

    listeners.clear();
    controller.Close();
    const ProcessUsage after = WaitForDescriptorsAtMost(Pid(), before.openDescriptors);
    std::printf("%ld listeners: fds %ld -> %ld -> %ld, VmRSS %ld -> %ld -> %ld KiB\n", kListeners, before.openDescriptors,
                during.openDescriptors, after.openDescriptors, before.residentKiB, during.residentKiB,
                after.residentKiB);
    EXPECT_LE(after.openDescriptors, before.openDescriptors);
    ExpectMemoryBackNear(before, after);
}

TEST_F(LoadTest, TwoHundredThousandPipelinedRequestsFromSixtyFourClients)
{
    constexpr int kClients = 64;
    constexpr int kBatch = 125;
    constexpr int kRounds = 25;  // 64 * 25 * 125 = 200,000 requests
    {
        // Warm-up: first use of every code path, so the baseline is steady.
        EXPECT_EQ(RunPipelinedClient(Port(), 1, 4, kBatch), 0);
    }
    const ProcessUsage before = WaitForDescriptorsAtMost(Pid(), 1 << 20);

    std::atomic<long> wrong{0};
    const auto start = Clock::now();
    std::vector<std::thread> threads;
    for (int c = 0; c < kClients; ++c) {
        threads.emplace_back([this, c, &wrong] {
            wrong += RunPipelinedClient(Port(), 1000000L * (c + 1), kRounds, kBatch);
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    EXPECT_EQ(wrong.load(), 0);

    const ProcessUsage after = WaitForDescriptorsAtMost(Pid(), before.openDescriptors);
    std::printf("200000 requests from %d clients: %.2f s (%.0f requests/s); fds %ld -> %ld, VmRSS %ld -> %ld KiB\n",
                kClients, seconds, 200000 / seconds, before.openDescriptors, after.openDescriptors,
                before.residentKiB, after.residentKiB);
    RecordProperty("seconds", std::to_string(seconds));
    EXPECT_LE(after.openDescriptors, before.openDescriptors);
    ExpectMemoryBackNear(before, after);
}

TEST_F(LoadTest, HalfSentRequestDoesNotStallOthersAndCompletesLater)
{
    RpcClient stalled;
    ASSERT_TRUE(stalled.Connect(Port()));
    const std::string request = Request("ping", 77);
    const std::string firstHalf = request.substr(0, request.size() / 2);
    ASSERT_TRUE(stalled.SendRaw(firstHalf));

    RpcClient controller;
    ASSERT_TRUE(controller.Connect(Port()));
    StartSong(controller);
    Json::Value notification;
    ASSERT_TRUE(controller.NextNotification(notification, "trackTimeNotification", kWireTimeoutMs));
    for (long id = 1; id <= 200; ++id) {
        ASSERT_TRUE(controller.SendRaw(Request("ping", id)));
        std::string line;
        do {
            ASSERT_TRUE(controller.ReadLine(line, 3000)) << id;
        } while (line.find(R"("method")") != std::string::npos);
        ASSERT_EQ(line, PingReply(id));
    }

    ASSERT_TRUE(stalled.SendRaw(request.substr(firstHalf.size())));
    std::string line;
    do {
        ASSERT_TRUE(stalled.ReadLine(line, kWireTimeoutMs));
    } while (line.find(R"("method")") != std::string::npos);
    EXPECT_EQ(line, PingReply(77));
}

TEST_F(LoadTest, ClientThatNeverReadsIsDroppedWhileOthersAreServed)
{
    const ProcessUsage before = WaitForDescriptorsAtMost(Pid(), 1 << 20);
    RpcClient sleeper;
    ASSERT_TRUE(sleeper.Connect(Port()));
    RpcClient flooder;
    ASSERT_TRUE(flooder.Connect(Port()));
    RpcClient bystander;
    ASSERT_TRUE(bystander.Connect(Port()));

    // Every mode change is announced to every client; the sleeper never
    // reads, so its queue grows until the daemon drops it.
    constexpr int kBatch = 1000;
    long id = 1;
    const auto deadline = Clock::now() + std::chrono::seconds(60);
    bool sleeperDropped = false;
    for (int round = 0; round < 200 && !sleeperDropped && Clock::now() < deadline; ++round) {
        std::string batch;
        for (int i = 0; i < kBatch; ++i) {
            batch += Request("setRepeatModeUSB", id + i, R"({"mode":)" + std::to_string(1 + i % 2) + "}");
        }
        ASSERT_TRUE(flooder.SendRaw(batch));
        int replies = 0;
        std::string line;
        while (replies < kBatch) {
            ASSERT_TRUE(flooder.ReadLine(line, kWireTimeoutMs)) << "round " << round;
            if (line.find(R"("method")") == std::string::npos) {
                ASSERT_EQ(line, ModeReply(id, 1 + replies % 2));
                ++replies;
                ++id;
            }
        }
        bystander.DrainNotifications(0);
        ASSERT_EQ(bystander.Call("ping", Json::Value(), 5000)["result"], true) << "round " << round;
        sleeperDropped = OpenDescriptors(Pid()) < before.openDescriptors + 3;
    }
    EXPECT_TRUE(sleeperDropped) << "after " << id - 1 << " mode changes";
    EXPECT_TRUE(sleeper.WaitClosed(kWireTimeoutMs));
    {
        const Json::Value reply = bystander.Call("ping", Json::Value(), 5000);
        EXPECT_EQ(reply["result"], true) << reply.toStyledString();
    }
}
