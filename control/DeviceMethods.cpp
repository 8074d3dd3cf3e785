// Device methods: USB stick queries and events from the platform, and the
// playback snapshot kept across a soft power-off.
#include "control/UsbMediaRequestHandler.h"

#include "control/ParamReading.h"
#include "control/ReplyHelpers.h"
#include "core/TextConversion.h"
#include "player/UsbMediaPlayer.h"

namespace {
// The error text of a device event: unsupported wins over unreadable.
std::string DeviceErrorText(const Json::Value& params)
{
    if (!ReadBool(params, "isSupported")) {
        return "not_supported";
    }
    if (!ReadBool(params, "isReadable")) {
        return "unreadable";
    }
    return std::string();
}

Json::Value SuspensionReport(const SSuspensionData& data)
{
    Json::Value report(Json::objectValue);
    report["isSuspended"] = true;
    report["trackTime"] = data.m_trackTime;
    report["filePath"] = Latin1ToUtf8(data.m_track.GetPath());
    report["fileName"] = Latin1ToUtf8(data.m_track.GetName());
    report["isShuffleOn"] = data.m_isShuffle;
    report["repeatMode"] = data.m_repeatMode;
    report["playerState"] = data.m_playerState;
    return report;
}
}  // namespace

bool UsbMediaRequestHandler::isUSBconnected(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    const std::string deviceName = ReadString(Params(request), "deviceName");
    Json::Value result(Json::objectValue);
    result["connected"] = m_pPlayer->IsUsbConnected(deviceName);
    result["errorCode"] = m_pPlayer->GetUsbErrorCode();
    response["result"] = result;
    return true;
}

bool UsbMediaRequestHandler::usbConnectionEvent(const Json::Value& request, Json::Value& response)
{
    const Json::Value& params = Params(request);
    const std::string device = ReadString(params, "usbDevice");
    const bool connected = ReadBool(params, "usbConnected");
    const std::string errorText = DeviceErrorText(params);
    BeginReply(request, response);
    m_pPlayer->OnUsbConnectionEvent(device, connected, errorText);
    FollowStickEvent(device, connected, errorText.empty(), ReadString(params, "fsUUID"));
    return true;
}

bool UsbMediaRequestHandler::setSoftPowerOff(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    Json::Value result(Json::objectValue);
    result["setSoftPowerOff"] = true;
    response["result"] = result;
    if (ReadBool(Params(request), "softPowerOff")) {
        SaveSuspension();
        if (m_tagLibrary) {
            m_tagLibrary->Pause();
        }
        return true;
    }
    if (m_tagLibrary) {
        m_tagLibrary->Resume();
    }
    // Waking up: a snapshot taken before is handed out on the next pop.
    if (m_suspensionData && !m_isSuspended) {
        m_isSuspended = true;
        StoreSuspension();
    }
    return true;
}

bool UsbMediaRequestHandler::popSuspendedTrackInfo(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    Json::Value suspensionData(Json::objectValue);
    suspensionData["isSuspended"] = false;
    if (m_isSuspended && m_suspensionData) {
        suspensionData = SuspensionReport(*m_suspensionData);
        m_suspensionData.reset();
        if (m_suspensionStore) {
            m_suspensionStore->Remove();
        }
    }
    m_isSuspended = false;
    Json::Value result(Json::objectValue);
    result["suspensionData"] = suspensionData;
    response["result"] = result;
    return true;
}

// Keeps a snapshot of playback, but only while paused or playing: a stopped
// or seeking player leaves any older snapshot in place.
void UsbMediaRequestHandler::SaveSuspension()
{
    const int32_t state = m_pPlayer->GetPlayerState();
    if (state != STATE_PAUSED && state != STATE_PLAYING) {
        return;
    }
    m_suspensionData.emplace(*m_pPlayer);
    StoreSuspension();
}

void UsbMediaRequestHandler::StoreSuspension()
{
    if (m_suspensionStore && m_suspensionData) {
        m_suspensionStore->Save({*m_suspensionData, m_isSuspended});
    }
}

void UsbMediaRequestHandler::KeepSuspensionIn(const std::string& directory)
{
    m_suspensionStore.emplace(directory);
    std::optional<SStoredSuspension> stored = m_suspensionStore->Load();
    if (!stored) {
        return;
    }
    m_suspensionData = std::move(stored->data);
    m_isSuspended = stored->isPending;
}
