// Placeholder bodies, replaced as the subsystem is built.
#include "control/UsbMediaRequestHandler.h"

#include "control/ReplyHelpers.h"

bool UsbMediaRequestHandler::setRepeatModeUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::getRepeatModeUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::enableShuffleUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::isShuffleEnabledUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::playFileUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::getCurrentTrackInfoUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::playUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::pauseUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::nextUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::previousUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::stopPlayingUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::restartSongUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::getTrackAlbumArt(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::getBufferedAlbumArt(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::playAllSongsUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::getCurrentPlayerState(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::seekForward(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::seekBackward(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::playFileIndex(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}

bool UsbMediaRequestHandler::seek(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    return true;
}
