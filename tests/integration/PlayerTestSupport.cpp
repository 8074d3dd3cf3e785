#include "tests/integration/PlayerTestSupport.h"

namespace player_test {

using testing_support::DaemonProcess;

void PlayerTest::StartDaemon(const std::vector<std::string>& arguments, bool makeStick)
{
    if (makeStick) {
        testing_support::MakeDirs(Stick());
    }
    DaemonProcess::Options options;
    options.arguments = arguments;
    StartDaemonWith(options);
}

void PlayerTest::PlaceOnStick(const std::string& source, const std::string& relativePath)
{
    testing_support::MediaFactory::Place(source, Stick() + "/" + relativePath);
}

Json::Value PlayerTest::Result(const std::string& method, const Json::Value& params)
{
    return Call(method, params)["result"];
}

void PlayerTest::IndexStick()
{
    const Json::Value reply = Index(Stick());
    ASSERT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
}

Json::Value PlayerTest::Next(const std::string& method, int timeoutMs)
{
    Json::Value notification;
    if (!NextNotification(notification, method, timeoutMs)) {
        return Json::Value();
    }
    return notification;
}

std::vector<int> PlayerTest::StatesWithin(int quietMs)
{
    std::vector<int> states;
    Json::Value notification;
    while (NextNotification(notification, "playerStateChangedNotification", quietMs)) {
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

}  // namespace player_test
