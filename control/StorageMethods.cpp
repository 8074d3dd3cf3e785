// Placeholder bodies, replaced as the subsystem is built.
#include "control/UsbMediaRequestHandler.h"

#include "control/ReplyHelpers.h"

bool UsbMediaRequestHandler::indexUsbStorage(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::getUsbStorageCrc32(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}
