#include "control/UsbMediaRequestHandler.h"

#include "control/ReplyHelpers.h"
#include "player/SuspensionData.h"
#include "player/UsbMediaPlayer.h"

void BeginReply(const Json::Value& request, Json::Value& response)
{
    response["jsonrpc"] = "2.0";
    response["id"] = request.isObject() ? request["id"] : Json::Value::nullSingleton();
}

Json::Value PlayerErrorObject(CUsbMediaPlayer& player)
{
    Json::Value error(Json::objectValue);
    error["code"] = player.GetErrorCode();
    error["message"] = player.GetErrorMessage();
    return error;
}

const Json::Value& Params(const Json::Value& request)
{
    return request.isObject() ? request["params"] : Json::Value::nullSingleton();
}

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

UsbMediaRequestHandler::~UsbMediaRequestHandler()
{
    delete m_pSuspensionData;
}
