// The storage index of a stick and its checksum.
#include "control/UsbMediaRequestHandler.h"

#include "control/ParamReading.h"
#include "control/ReplyHelpers.h"
#include "core/TextConversion.h"
#include "player/UsbMediaPlayer.h"

#include <cstdio>
#include <string>

bool UsbMediaRequestHandler::indexUsbStorage(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    const std::string path = Utf8ToLatin1(ReadString(Params(request), "usbStoragePath").c_str());
    const SPlayerOutcome<bool> indexed = m_pPlayer->IndexStorageWithStatus(path);
    ReplySuccess(indexed, response);
    if (indexed.value) {
        ScanLibraryAfterIndex(path);
    }
    return true;
}

bool UsbMediaRequestHandler::getUsbStorageCrc32(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    char text[16];
    std::snprintf(text, sizeof text, "%u", m_pPlayer->GetStorageCrc32());
    Json::Value result(Json::objectValue);
    result["crc32"] = text;
    response["result"] = result;
    return true;
}
