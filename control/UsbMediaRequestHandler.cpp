// The test methods "print", "notify" and "ping", and the handler's lifetime.
#include "control/UsbMediaRequestHandler.h"

#include "control/LibraryArt.h"
#include "control/ReplyHelpers.h"
#include "player/UsbMediaPlayer.h"

UsbMediaRequestHandler::UsbMediaRequestHandler() : m_pPlayer(&CUsbMediaPlayer::GetInstance())
{
}

UsbMediaRequestHandler::~UsbMediaRequestHandler() = default;

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
