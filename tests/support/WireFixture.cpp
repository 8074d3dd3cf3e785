#include "tests/support/WireFixture.h"

#include "control/rpc/JsonText.h"
#include "tests/support/PlayerStates.h"

#include <signal.h>

#include <chrono>

namespace testing_support {

namespace {
using Clock = std::chrono::steady_clock;

// playFileUSB's parameters for the record `name` in the folder `path`.
Json::Value PlayParams(const std::string& path, const std::string& name, bool isFolder)
{
    Json::Value params;
    params["file"]["name"] = name;
    params["file"]["path"] = path;
    params["file"]["isFolder"] = isFolder;
    return params;
}

int MillisecondsLeft(Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}
}  // namespace

std::string WireText(const Json::Value& value)
{
    return Json::Rpc::ToWireText(value);
}

Json::Value Call(RpcClient& client, const std::string& method, const Json::Value& params)
{
    return client.Call(method, params, kWireTimeoutMs);
}

Json::Value Index(RpcClient& client, const std::string& path)
{
    Json::Value params;
    params["usbStoragePath"] = path;
    return Call(client, "indexUsbStorage", params);
}

Json::Value Browse(RpcClient& client, const std::string& path, int count, int start, bool isMaxDepth)
{
    Json::Value params;
    params["path"] = path;
    params["itemCount"] = count;
    params["startIndex"] = start;
    params["isMaxDepth"] = isMaxDepth;
    return Call(client, "getFileListUSB", params);
}

Json::Value PlayFile(RpcClient& client, const std::string& path, const std::string& name)
{
    return Call(client, "playFileUSB", PlayParams(path, name, false));
}

Json::Value PlayFolder(RpcClient& client, const std::string& parent, const std::string& name)
{
    return Call(client, "playFileUSB", PlayParams(parent, name, true));
}

bool WaitForState(RpcClient& client, int state, std::vector<int>* seen, int timeoutMs)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    Json::Value notification;
    for (int left = timeoutMs; left > 0; left = MillisecondsLeft(deadline)) {
        if (!client.NextNotification(notification, "playerStateChangedNotification", left)) {
            return false;
        }
        const int announced = notification["params"]["playerState"].asInt();
        if (seen != nullptr) {
            seen->push_back(announced);
        }
        if (announced == state) {
            return true;
        }
    }
    return false;
}

void WireFixture::TearDown()
{
    if (!m_daemon) {
        return;
    }
    m_client.Close();
    const int status = m_daemon->Stop(SIGTERM, kWireTimeoutMs);
    const std::string output = m_daemon->Output();
    EXPECT_EQ(status, 0) << "daemon output:\n" << output;
    EXPECT_EQ(output.find("Sanitizer"), std::string::npos) << output;
    m_daemon.reset();
}

void WireFixture::StartDaemonWith(DaemonProcess::Options options)
{
    options.environment.emplace("USBMEDIA_ROOT", m_root.Path());
    m_daemon = std::make_unique<DaemonProcess>(options);
    ASSERT_TRUE(m_client.Connect(m_daemon->Port()));
}

Json::Value WireFixture::Call(const std::string& method, const Json::Value& params)
{
    return testing_support::Call(m_client, method, params);
}

std::string WireFixture::CallRaw(const std::string& method, const Json::Value& params)
{
    return m_client.CallRaw(method, params, kWireTimeoutMs);
}

Json::Value WireFixture::Index(const std::string& path)
{
    return testing_support::Index(m_client, path);
}

Json::Value WireFixture::Browse(const std::string& path, int count, int start, bool isMaxDepth)
{
    return testing_support::Browse(m_client, path, count, start, isMaxDepth);
}

Json::Value WireFixture::PlayFile(const std::string& path, const std::string& name)
{
    return testing_support::PlayFile(m_client, path, name);
}

Json::Value WireFixture::PlayFolder(const std::string& parent, const std::string& name)
{
    return testing_support::PlayFolder(m_client, parent, name);
}

void WireFixture::PlayFileAndWaitForPlaying(const std::string& path, const std::string& name)
{
    {
        const Json::Value reply = PlayFile(path, name);
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForState(kPlaying)) << "no playerStateChangedNotification with state " << kPlaying;
}

bool WireFixture::WaitForState(int state, std::vector<int>* seen, int timeoutMs)
{
    return testing_support::WaitForState(m_client, state, seen, timeoutMs);
}

bool WireFixture::NextNotification(Json::Value& notification, const std::string& method, int timeoutMs)
{
    return m_client.NextNotification(notification, method, timeoutMs);
}

}  // namespace testing_support
