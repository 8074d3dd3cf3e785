// The daemon under a supervising systemd: the test plays systemd's part with
// its own AF_UNIX datagram socket named by NOTIFY_SOCKET, and reads what the
// service reports there.

#include "core/SystemdNotifier.h"
#include "tests/support/DaemonProcess.h"
#include "tests/support/NotifySocket.h"
#include "tests/support/RpcClient.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

using testing_support::DaemonProcess;
using testing_support::NotifySocket;
using testing_support::Received;
using testing_support::RpcClient;
using testing_support::TempDir;

namespace {
using Clock = std::chrono::steady_clock;


class SystemdNotifyTest : public testing::Test {
protected:
    void SetUp() override
    {
        // Built only when the service notifies systemd: a build that
        // cannot fails here, never skips.
        ASSERT_TRUE(SystemdNotifier::Supported()) << "this build was configured to notify systemd but cannot";
    }

    // The daemon with NOTIFY_SOCKET pointing at `socket`, plus `environment`.
    std::unique_ptr<DaemonProcess> StartDaemon(const NotifySocket& socket,
                                               std::map<std::string, std::string> environment = {})
    {
        DaemonProcess::Options options;
        options.environment = std::move(environment);
        options.environment["NOTIFY_SOCKET"] = socket.Path();
        options.waitUntilServing = false;  // READY=1 is what tells
        return std::make_unique<DaemonProcess>(options);
    }

    // Waits for READY=1 from `daemon`, then answers a ping through a new
    // client (a round trip through the listener loop) and stops the daemon
    // with SIGTERM: what it sent after READY=1 is left on `socket`.
    void ReadyPingAndStop(NotifySocket& socket, DaemonProcess& daemon)
    {
        Received message;
        ASSERT_TRUE(socket.Receive(message, testing_support::kNotifyTimeoutMs)) << daemon.Output();
        ASSERT_EQ(message.text, "READY=1");
        RpcClient client;
        ASSERT_TRUE(client.Connect(daemon.Port()));
        {
            const Json::Value reply = client.Call("ping");
            EXPECT_EQ(reply["result"], true) << reply.toStyledString();
        }
        EXPECT_EQ(daemon.Stop(SIGTERM, testing_support::kNotifyTimeoutMs), 0);
    }

    TempDir m_dir;
};
}  // namespace

TEST_F(SystemdNotifyTest, ReadyOnlyOnceTheControlPortListens)
{
    NotifySocket socket(m_dir / "notify");
    auto daemon = StartDaemon(socket);
    Received message;
    ASSERT_TRUE(socket.Receive(message, testing_support::kNotifyTimeoutMs)) << daemon->Output();
    EXPECT_EQ(message.text, "READY=1");
    // No retry: the port must already accept.
    RpcClient client;
    ASSERT_TRUE(client.Connect(daemon->Port(), 0));
    {
        const Json::Value reply = client.Call("ping");
        EXPECT_EQ(reply["result"], true) << reply.toStyledString();
    }
}

TEST_F(SystemdNotifyTest, ReadyThenStoppingOnSigtermAndNoWatchdogUnlessAsked)
{
    NotifySocket socket(m_dir / "notify");
    auto daemon = StartDaemon(socket);
    ASSERT_NO_FATAL_FAILURE(ReadyPingAndStop(socket, *daemon));
    // The daemon has exited: everything it sent is queued on the socket.
    EXPECT_EQ(socket.Drain(), std::vector<std::string>{"STOPPING=1"});
}

TEST_F(SystemdNotifyTest, WatchdogAtHalfTheIntervalBetweenReadyAndStopping)
{
    constexpr auto kInterval = std::chrono::milliseconds(2000);
    NotifySocket socket(m_dir / "notify");
    auto daemon = StartDaemon(
        socket, {{"WATCHDOG_USEC", std::to_string(std::chrono::microseconds(kInterval).count())}});
    std::vector<Received> messages;
    Received message;
    // READY=1, then five watchdog pings.
    while (std::count_if(messages.begin(), messages.end(), [](const Received& m) { return m.text == "WATCHDOG=1"; }) <
               5 &&
           socket.Receive(message, testing_support::kNotifyTimeoutMs)) {
        messages.push_back(message);
    }
    ASSERT_GE(messages.size(), 6u) << daemon->Output();
    EXPECT_EQ(messages[0].text, "READY=1");
    std::vector<double> gaps;
    for (size_t i = 1; i < messages.size(); ++i) {
        EXPECT_EQ(messages[i].text, "WATCHDOG=1") << i;
        if (i >= 2) {
            gaps.push_back(std::chrono::duration<double>(messages[i].at - messages[i - 1].at).count());
        }
    }
    // Paced by the half interval, not sent on every turn of the loop: the
    // pings of one second apart add up to about four seconds (delivery jitter
    // shortens one gap only by lengthening the next). And well before the
    // watchdog would fire: the median gap is below the whole interval.
    const double half = std::chrono::duration<double>(kInterval).count() / 2;
    double total = 0;
    for (double gap : gaps) {
        total += gap;
    }
    EXPECT_GE(total, half * static_cast<double>(gaps.size()) * 0.9) << total;
    std::sort(gaps.begin(), gaps.end());
    EXPECT_LT(gaps[gaps.size() / 2], 2 * half) << gaps[gaps.size() / 2];

    EXPECT_EQ(daemon->Stop(SIGTERM, testing_support::kNotifyTimeoutMs), 0);
    const std::vector<std::string> rest = socket.Drain();
    // STOPPING=1 once; the loop may still ping while it winds down.
    EXPECT_EQ(std::count(rest.begin(), rest.end(), "STOPPING=1"), 1);
    EXPECT_EQ(std::count(rest.begin(), rest.end(), "WATCHDOG=1") + 1, static_cast<long>(rest.size()));
}

TEST_F(SystemdNotifyTest, NoWatchdogWhenItIsMeantForAnotherProcess)
{
    NotifySocket socket(m_dir / "notify");
    auto daemon = StartDaemon(socket, {{"WATCHDOG_USEC", "200000"}, {"WATCHDOG_PID", "1"}});
    // A round trip through the listener loop, then the stop: any ping would
    // come before STOPPING=1.
    ASSERT_NO_FATAL_FAILURE(ReadyPingAndStop(socket, *daemon));
    EXPECT_EQ(socket.Drain(), std::vector<std::string>{"STOPPING=1"});
}

// A client's queue of slow requests (seeks wait 0.7 s each) once stopped the
// watchdog pings for as long as the queue lasted. The loop now feeds the
// watchdog between requests: no gap reaches the interval.
TEST_F(SystemdNotifyTest, WatchdogIsFedWhileAQueueOfSlowRequestsIsServed)
{
    constexpr auto kInterval = std::chrono::milliseconds(4000);
    constexpr int kSeeks = 16;  // about 11 s of seeking
    NotifySocket socket(m_dir / "notify");
    auto daemon = StartDaemon(
        socket, {{"WATCHDOG_USEC", std::to_string(std::chrono::microseconds(kInterval).count())}});
    Received message;
    ASSERT_TRUE(socket.Receive(message, testing_support::kNotifyTimeoutMs)) << daemon->Output();
    ASSERT_EQ(message.text, "READY=1");

    RpcClient client;
    ASSERT_TRUE(client.Connect(daemon->Port()));
    std::string seeks;
    for (int i = 0; i < kSeeks; ++i) {
        seeks += R"({"jsonrpc":"2.0","method":"seek","id":)" + std::to_string(i) + R"(,"params":{"timeSec":5}})";
    }
    ASSERT_TRUE(client.SendRaw(seeks));
    std::vector<Clock::time_point> pings{Clock::now()};
    int answered = 0;
    const auto deadline = Clock::now() + std::chrono::milliseconds(4 * testing_support::kNotifyTimeoutMs);
    while (answered < kSeeks && Clock::now() < deadline) {
        if (socket.Receive(message, 50) && message.text == "WATCHDOG=1") {
            pings.push_back(message.at);
        }
        std::string line;
        while (client.ReadLine(line, 0)) {
            ++answered;
        }
    }
    ASSERT_EQ(answered, kSeeks);
    pings.push_back(Clock::now());
    double longest = 0;
    for (size_t i = 1; i < pings.size(); ++i) {
        longest = std::max(longest, std::chrono::duration<double>(pings[i] - pings[i - 1]).count());
    }
    EXPECT_LT(longest, std::chrono::duration<double>(kInterval).count()) << pings.size() - 2 << " pings";
    EXPECT_EQ(daemon->Stop(SIGTERM, testing_support::kNotifyTimeoutMs), 0);
}
