#include "control/ReplyHelpers.h"

#include "core/TextConversion.h"

void BeginReply(const Json::Value& request, Json::Value& response)
{
    response["jsonrpc"] = "2.0";
    response["id"] = request.isObject() ? request["id"] : Json::Value::nullSingleton();
}

Json::Value ErrorObject(int code, const std::string& message)
{
    Json::Value error(Json::objectValue);
    error["code"] = code;
    error["message"] = Latin1ToUtf8(message);
    return error;
}

void ReplySuccess(const SPlayerOutcome<bool>& outcome, Json::Value& response)
{
    SetErrorIfFailed(outcome, !outcome.value, response);
    Json::Value result(Json::objectValue);
    result["success"] = outcome.value;
    response["result"] = result;
}
