// The daemon's start-up, command line, port handling and shutdown, observed
// from outside: its standard output, its exit status and its TCP port.

#include "tests/support/DaemonProcess.h"
#include "tests/support/RpcClient.h"
#include "tests/support/TempDir.h"
#include "tests/support/WireTimeout.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <regex>
#include <set>
#include <string>
#include <thread>

using testing_support::DaemonProcess;
using testing_support::RpcClient;
using testing_support::kWireTimeoutMs;

namespace {
// The ids of the process's threads.
std::set<std::string> ThreadsOf(pid_t pid)
{
    return testing_support::FolderNames("/proc/" + std::to_string(pid) + "/task");
}

// Waits until one of `threads` of the process has ended.
bool WaitUntilOneEnds(pid_t pid, const std::set<std::string>& threads, int timeoutMs)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        const std::set<std::string> now = ThreadsOf(pid);
        for (const std::string& thread : threads) {
            if (now.count(thread) == 0) {
                return true;
            }
        }
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}
}  // namespace

TEST(ServiceStartupTest, BannerLinesInOrderBeforeServing)
{
    DaemonProcess daemon;
    ASSERT_TRUE(daemon.WaitForOutput("USB Service Ended. \n", 5000));
    const std::string out = daemon.Output();
    const std::regex banner(R"(^USB Service Started. \n\n\n\d+\.\d{6}\nUSB Service Ended. \n)");
    EXPECT_TRUE(std::regex_search(out, banner)) << out;
}

TEST(ServiceStartupTest, SigtermEndsWithStatusZeroWithinASecond)
{
    DaemonProcess daemon;
    RpcClient client;
    ASSERT_TRUE(client.Connect(daemon.Port()));
    double seconds = 0;
    EXPECT_EQ(daemon.Stop(SIGTERM, 5000, &seconds), 0);
    EXPECT_LT(seconds, 1.5);
    EXPECT_NE(daemon.Output().find("Exiting due to SIGINT/SIGTERM\n"), std::string::npos);
}

TEST(ServiceStartupTest, SigintEndsWithStatusZeroWithinASecond)
{
    DaemonProcess daemon;
    double seconds = 0;
    EXPECT_EQ(daemon.Stop(SIGINT, 5000, &seconds), 0);
    EXPECT_LT(seconds, 1.5);
    EXPECT_NE(daemon.Output().find("Exiting due to SIGINT/SIGTERM\n"), std::string::npos);
}

TEST(ServiceStartupTest, StartLineLoggedAtDebugLevel)
{
    DaemonProcess::Options options;
    options.arguments = {"-l", "debug"};
    DaemonProcess daemon(options);
    const std::string line = "[DEBUG][UsbMediaRequestServer:218]\n\tStart UsbService server @127.0.0.1:" +
                             std::to_string(daemon.Port()) + "\n";
    EXPECT_TRUE(daemon.WaitForOutput(line, 5000)) << daemon.Output();
}

TEST(ServiceStartupTest, DefaultLevelHidesDebugLines)
{
    DaemonProcess daemon;
    // The listener answers only after the point where it logs that line.
    RpcClient client;
    ASSERT_TRUE(client.Connect(daemon.Port()));
    {
        const Json::Value reply = client.Call("ping");
        ASSERT_TRUE(reply["result"].asBool()) << reply.toStyledString();
    }
    EXPECT_EQ(daemon.Output().find("Start UsbService server"), std::string::npos);
}

TEST(ServiceStartupTest, EmptyAddressBindsLoopback)
{
    DaemonProcess::Options options;
    options.arguments = {"-a", ""};
    DaemonProcess daemon(options);
    RpcClient client;
    ASSERT_TRUE(client.Connect(daemon.Port()));
    {
        const Json::Value reply = client.Call("ping");
        EXPECT_TRUE(reply["result"].asBool()) << reply.toStyledString();
    }
}

TEST(ServiceStartupTest, PortInUseRetriesThenStaysUpWithoutControl)
{
    // Hold the port so every bind fails.
    const int blocker = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(blocker, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    socklen_t length = sizeof address;
    getsockname(blocker, reinterpret_cast<sockaddr*>(&address), &length);
    ASSERT_EQ(listen(blocker, 1), 0);

    DaemonProcess::Options options;
    options.port = ntohs(address.sin_port);
    options.waitUntilServing = false;
    const auto start = std::chrono::steady_clock::now();
    DaemonProcess daemon(options);
    // Start-up is over, the listener thread among these, still binding.
    ASSERT_TRUE(daemon.WaitForOutput("USB Service Ended. \n", 5000)) << daemon.Output();
    const std::set<std::string> threads = ThreadsOf(daemon.Pid());
    ASSERT_TRUE(daemon.WaitForOutput("Usb Media Service - Bind failed\n", kWireTimeoutMs)) << daemon.Output();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    // 33 attempts 250 ms apart: 32 pauses, about 8 s.
    EXPECT_GT(seconds, 7.5);
    EXPECT_LT(seconds, 12.0);
    EXPECT_NE(daemon.Output().find("[ERROR][UsbMediaRequestServer:203]\n\tUsb Media Service - Bind failed\n"),
              std::string::npos);
    // The listener thread has given up and ended; the process stays.
    EXPECT_TRUE(WaitUntilOneEnds(daemon.Pid(), threads, kWireTimeoutMs)) << "threads before: " << threads.size();
    EXPECT_TRUE(daemon.IsRunning());
    EXPECT_EQ(daemon.Stop(SIGTERM, 5000), 0);
    close(blocker);
}

TEST(ServiceStartupTest, UnparsableAddressFailsToBindButKeepsRunning)
{
    DaemonProcess::Options options;
    options.arguments = {"-a", "not-an-address"};
    options.waitUntilServing = false;
    DaemonProcess daemon(options);
    ASSERT_TRUE(daemon.WaitForOutput("Usb Media Service - Bind failed\n", kWireTimeoutMs));
    EXPECT_TRUE(daemon.IsRunning());
    EXPECT_EQ(daemon.Stop(SIGTERM, 5000), 0);
}

TEST(ServiceStartupTest, GstVersionOptionPrintsGStreamersVersionAndEnds)
{
    DaemonProcess::Options options;
    options.arguments = {"--gst-version"};
    options.waitUntilServing = false;
    DaemonProcess daemon(options);
    // GStreamer prints its version and ends the process, before the
    // control port opens: signal 0 only waits for that exit.
    EXPECT_EQ(daemon.Stop(0, kWireTimeoutMs), 0);
    const std::string out = daemon.Output();
    const std::regex version(R"(^USB Service Started. \nGStreamer Core Library version \d+\.\d+\.\d+)");
    EXPECT_TRUE(std::regex_search(out, version)) << out;
    EXPECT_EQ(out.find("USB Service Ended."), std::string::npos) << out;
}

TEST(ServiceStartupTest, GstDebugLevelOptionTurnsOnGStreamersDebugOutput)
{
    // A file no decoder recognises makes GStreamer warn about it.
    testing_support::TempDir root;
    testing_support::WriteFile(root / "mnt/usb-stick1/noise.mp3", std::string(4096, '\x5a'));
    DaemonProcess::Options options;
    options.arguments = {"--gst-debug-level=3", "-l", "d"};
    options.environment["USBMEDIA_ROOT"] = root.Path();
    options.environment["GST_DEBUG_NO_COLOR"] = "1";
    DaemonProcess daemon(options);
    RpcClient client;
    ASSERT_TRUE(client.Connect(daemon.Port()));
    // The service's own options are read as well.
    EXPECT_TRUE(daemon.WaitForOutput("[DEBUG][UsbMediaRequestServer:218]", 5000)) << daemon.Output();

    Json::Value params;
    params["file"]["name"] = "noise.mp3";
    params["file"]["path"] = root / "mnt/usb-stick1";
    params["file"]["isFolder"] = false;
    client.Call("playFileUSB", params);
    // GStreamer's records: elapsed time, process id, thread, level.
    const std::regex record(R"(\d+:\d\d:\d\d\.\d{9} +\d+ +0x[0-9a-f]+ +(ERROR|WARN|FIXME) )");
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kWireTimeoutMs);
    while (!std::regex_search(daemon.Output(), record) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_TRUE(std::regex_search(daemon.Output(), record)) << daemon.Output();
    EXPECT_EQ(daemon.Stop(SIGTERM, kWireTimeoutMs), 0);
}

TEST(ServiceStartupTest, HangUpUserSignalsAndAlarmAreIgnored)
{
    DaemonProcess daemon;
    RpcClient client;
    ASSERT_TRUE(client.Connect(daemon.Port()));
    for (const int sig : {SIGHUP, SIGUSR1, SIGUSR2, SIGALRM}) {
        ASSERT_EQ(kill(daemon.Pid(), sig), 0);
        // The answer comes after the signal was delivered: a signal that
        // ended the process would have left nobody to answer.
        const Json::Value reply = client.Call("ping");
        EXPECT_TRUE(reply["result"].asBool()) << "after signal " << sig << ": " << reply.toStyledString()
                                              << daemon.Output();
        EXPECT_TRUE(daemon.IsRunning()) << "after signal " << sig;
    }
    EXPECT_EQ(daemon.Stop(SIGTERM, 5000), 0) << daemon.Output();
}
