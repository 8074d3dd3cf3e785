// The daemon's start-up, command line, port handling and shutdown, observed
// from outside: its standard output, its exit status and its TCP port.

#include "tests/support/DaemonProcess.h"
#include "tests/support/RpcClient.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <regex>
#include <thread>

using testing_support::DaemonProcess;
using testing_support::RpcClient;

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
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(daemon.Output().find("Start UsbService server"), std::string::npos);
}

TEST(ServiceStartupTest, EmptyAddressBindsLoopback)
{
    DaemonProcess::Options options;
    options.arguments = {"-a", ""};
    DaemonProcess daemon(options);
    RpcClient client;
    ASSERT_TRUE(client.Connect(daemon.Port()));
    EXPECT_TRUE(client.Call("ping")["result"].asBool());
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
    ASSERT_TRUE(daemon.WaitForOutput("Usb Media Service - Bind failed\n", 15000)) << daemon.Output();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    // 33 attempts 250 ms apart: 32 pauses, about 8 s.
    EXPECT_GT(seconds, 7.5);
    EXPECT_LT(seconds, 12.0);
    EXPECT_NE(daemon.Output().find("[ERROR][UsbMediaRequestServer:203]\n\tUsb Media Service - Bind failed\n"),
              std::string::npos);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
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
    ASSERT_TRUE(daemon.WaitForOutput("Usb Media Service - Bind failed\n", 15000));
    EXPECT_TRUE(daemon.IsRunning());
    EXPECT_EQ(daemon.Stop(SIGTERM, 5000), 0);
}
