#pragma once

#include "player/SuspensionData.h"
#include "player/SuspensionStore.h"

#include <json/value.h>

#include <optional>

class CUsbMediaPlayer;

// The JSON-RPC methods of the service. Each fills the whole reply ("jsonrpc",
// "id", then "error" beside "result" when the player's operation failed),
// reads its parameters leniently (missing means 0, false or "") and always
// returns true: failures travel inside the reply.
// Sources: UsbMediaRequestHandler.cpp (test methods), PlaybackMethods.cpp,
// BrowsingMethods.cpp, DeviceMethods.cpp, StorageMethods.cpp; the shared
// reply steps are in ReplyHelpers.cpp, the parameter readers in ParamReading.cpp.
class UsbMediaRequestHandler {
public:
    UsbMediaRequestHandler();
    virtual ~UsbMediaRequestHandler() = default;

    UsbMediaRequestHandler(const UsbMediaRequestHandler&) = delete;
    UsbMediaRequestHandler& operator=(const UsbMediaRequestHandler&) = delete;

    // Test methods.
    bool Print(const Json::Value& request, Json::Value& response);
    bool Notify(const Json::Value& request, Json::Value& response);
    bool ping(const Json::Value& request, Json::Value& response);

    // Browsing.
    bool getFileListUSB(const Json::Value& request, Json::Value& response);
    bool getFileListByGroupID(const Json::Value& request, Json::Value& response);
    // Built but not registered: clients cannot reach it.
    bool searchFilesUSB(const Json::Value& request, Json::Value& response);

    // Playback.
    bool setRepeatModeUSB(const Json::Value& request, Json::Value& response);
    bool getRepeatModeUSB(const Json::Value& request, Json::Value& response);
    bool enableShuffleUSB(const Json::Value& request, Json::Value& response);
    bool isShuffleEnabledUSB(const Json::Value& request, Json::Value& response);
    bool playFileUSB(const Json::Value& request, Json::Value& response);
    bool getCurrentTrackInfoUSB(const Json::Value& request, Json::Value& response);
    bool playUSB(const Json::Value& request, Json::Value& response);
    bool pauseUSB(const Json::Value& request, Json::Value& response);
    bool nextUSB(const Json::Value& request, Json::Value& response);
    bool previousUSB(const Json::Value& request, Json::Value& response);
    bool stopPlayingUSB(const Json::Value& request, Json::Value& response);
    bool restartSongUSB(const Json::Value& request, Json::Value& response);
    bool getTrackAlbumArt(const Json::Value& request, Json::Value& response);
    bool getBufferedAlbumArt(const Json::Value& request, Json::Value& response);
    bool playAllSongsUSB(const Json::Value& request, Json::Value& response);
    bool getCurrentPlayerState(const Json::Value& request, Json::Value& response);
    bool seekForward(const Json::Value& request, Json::Value& response);
    bool seekBackward(const Json::Value& request, Json::Value& response);
    bool playFileIndex(const Json::Value& request, Json::Value& response);
    bool seek(const Json::Value& request, Json::Value& response);

    // Device, suspension and storage.
    bool isUSBconnected(const Json::Value& request, Json::Value& response);
    bool usbConnectionEvent(const Json::Value& request, Json::Value& response);
    bool setSoftPowerOff(const Json::Value& request, Json::Value& response);
    bool popSuspendedTrackInfo(const Json::Value& request, Json::Value& response);
    bool indexUsbStorage(const Json::Value& request, Json::Value& response);
    bool getUsbStorageCrc32(const Json::Value& request, Json::Value& response);

    CUsbMediaPlayer* Player() const { return m_pPlayer; }

    // Keeps the suspension snapshot in `directory` from now on, and takes
    // back the one a previous run left there (pending again if it was).
    // Without it the snapshot lives in memory only.
    void KeepSuspensionIn(const std::string& directory);

private:
    void SaveSuspension();
    // Writes the snapshot held (and whether it is pending) to the store.
    void StoreSuspension();

    CUsbMediaPlayer* m_pPlayer;
    bool m_isSuspended = false;
    std::optional<SSuspensionData> m_suspensionData;
    std::optional<CSuspensionStore> m_suspensionStore;  // none: kept in memory only
};
