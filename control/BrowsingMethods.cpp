// Placeholder bodies, replaced as the subsystem is built.
#include "control/UsbMediaRequestHandler.h"

#include "control/ReplyHelpers.h"

bool UsbMediaRequestHandler::getFileListUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::getFileListByGroupID(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::searchFilesUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}
