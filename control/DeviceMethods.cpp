// Placeholder bodies, replaced as the subsystem is built.
#include "control/UsbMediaRequestHandler.h"

#include "control/ReplyHelpers.h"

bool UsbMediaRequestHandler::isUSBconnected(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::usbConnectionEvent(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::setSoftPowerOff(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::popSuspendedTrackInfo(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

void UsbMediaRequestHandler::SaveSuspension()
{
}
