#include "control/UsbMediaRequestHandler.h"

#include "player/UsbMediaPlayer.h"

namespace {
// Starts every reply: the protocol version and the request's id as it came.
void BeginReply(const Json::Value& request, Json::Value& response)
{
    response["jsonrpc"] = "2.0";
    response["id"] = request["id"];
}
}  // namespace

UsbMediaRequestHandler::UsbMediaRequestHandler() : m_pPlayer(&CUsbMediaPlayer::GetInstance())
{
}

bool UsbMediaRequestHandler::Print(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    response["result"] = "success";
    return true;
}

bool UsbMediaRequestHandler::Notify(const Json::Value&, Json::Value& response)
{
    response = Json::Value::nullSingleton();  // no reply at all
    return true;
}

bool UsbMediaRequestHandler::ping(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    response["result"] = true;
    return true;
}
