#include "tests/integration/PlayerTestSupport.h"

#include "control/rpc/JsonText.h"

#include <csignal>
#include <chrono>

namespace player_test {

using testing_support::DaemonProcess;

std::string Text(const Json::Value& value)
{
    return Json::Rpc::ToWireText(value);
}

void PlayerTest::StartDaemon(const std::vector<std::string>& arguments, bool makeStick)
{
    if (makeStick) {
        testing_support::MakeDirs(Stick());
    }
    DaemonProcess::Options options;
    options.arguments = arguments;
    options.environment["USBMEDIA_ROOT"] = m_root.Path();
    m_daemon = std::make_unique<DaemonProcess>(options);
    ASSERT_TRUE(client.Connect(m_daemon->Port()));
}

void PlayerTest::TearDown()
{
    if (!m_daemon) {
        return;
    }
    client.Close();
    const int status = m_daemon->Stop(SIGTERM, kEventTimeoutMs);
    const std::string output = m_daemon->Output();
    EXPECT_EQ(status, 0) << output;
    EXPECT_EQ(output.find("Sanitizer"), std::string::npos) << output;
    m_daemon.reset();
}

void PlayerTest::PlaceOnStick(const std::string& source, const std::string& relativePath)
{
    testing_support::MediaFactory::Place(source, Stick() + "/" + relativePath);
}

Json::Value PlayerTest::Call(const std::string& method, const Json::Value& params)
{
    return client.Call(method, params, kEventTimeoutMs);
}

Json::Value PlayerTest::Result(const std::string& method, const Json::Value& params)
{
    return Call(method, params)["result"];
}

void PlayerTest::IndexStick()
{
    Json::Value params;
    params["usbStoragePath"] = Stick();
    {
        const Json::Value reply = Result("indexUsbStorage", params);
        ASSERT_TRUE(reply["success"].asBool()) << reply.toStyledString();
    }
}

Json::Value PlayerTest::PlayFile(const std::string& folder, const std::string& name)
{
    Json::Value params;
    params["file"]["name"] = name;
    params["file"]["path"] = folder.empty() ? Stick() : Stick() + "/" + folder;
    params["file"]["isFolder"] = false;
    return Call("playFileUSB", params);
}

Json::Value PlayerTest::PlayFolder(const std::string& parent, const std::string& name)
{
    Json::Value params;
    params["file"]["name"] = name;
    params["file"]["path"] = parent.empty() ? Stick() : Stick() + "/" + parent;
    params["file"]["isFolder"] = true;
    return Call("playFileUSB", params);
}

bool PlayerTest::WaitForState(int state, std::vector<int>* seen, int timeoutMs)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    Json::Value notification;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 ||
            !client.NextNotification(notification, "playerStateChangedNotification", static_cast<int>(left.count()))) {
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
}

Json::Value PlayerTest::Next(const std::string& method, int timeoutMs)
{
    Json::Value notification;
    if (!client.NextNotification(notification, method, timeoutMs)) {
        return Json::Value();
    }
    return notification;
}

std::vector<int> PlayerTest::StatesWithin(int quietMs)
{
    std::vector<int> states;
    Json::Value notification;
    while (client.NextNotification(notification, "playerStateChangedNotification", quietMs)) {
        states.push_back(notification["params"]["playerState"].asInt());
    }
    return states;
}

long PlayerTest::NextTime(int timeoutMs)
{
    const Json::Value notification = Next("trackTimeNotification", timeoutMs);
    return notification.isNull() ? -1 : static_cast<long>(notification["params"]["trackTime"].asUInt());
}

std::pair<int, std::string> PlayerTest::ErrorOf(const Json::Value& reply)
{
    if (!reply.isMember("error")) {
        return {0, ""};
    }
    return {reply["error"]["code"].asInt(), reply["error"]["message"].asString()};
}

Json::Value PlayerTest::TrackInfo()
{
    return Result("getCurrentTrackInfoUSB")["trackInfo"];
}

void PlayerTest::StartPlaying(const std::string& folder, const std::string& name)
{
    {
        const Json::Value reply = PlayFile(folder, name);
        ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    }
    ASSERT_TRUE(WaitForState(kPlaying));
}

}  // namespace player_test
