#pragma once

#include "library/TagLibrary.h"
#include "player/SuspensionData.h"
#include "player/SuspensionStore.h"

#include <json/value.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

class CLibraryArt;
class CUsbMediaPlayer;

// The JSON-RPC methods of the service. Each fills the whole reply ("jsonrpc",
// "id", then "error" beside "result" when the player's operation failed),
// reads its parameters leniently (missing means 0, false or "") and always
// returns true: failures travel inside the reply.
// Sources: UsbMediaRequestHandler.cpp (test methods), PlaybackMethods.cpp,
// BrowsingMethods.cpp, DeviceMethods.cpp, StorageMethods.cpp,
// LibraryMethods.cpp (the tag library); the shared
// reply steps are in ReplyHelpers.cpp, the parameter readers in ParamReading.cpp.
class UsbMediaRequestHandler {
public:
    UsbMediaRequestHandler();
    virtual ~UsbMediaRequestHandler();

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

    // The tag library: browsing by artist, album and genre, search, play.
    bool getLibraryStatusUSB(const Json::Value& request, Json::Value& response);
    bool getArtistsUSB(const Json::Value& request, Json::Value& response);
    bool getGenresUSB(const Json::Value& request, Json::Value& response);
    bool getAlbumsUSB(const Json::Value& request, Json::Value& response);
    bool getTracksUSB(const Json::Value& request, Json::Value& response);
    bool searchLibraryUSB(const Json::Value& request, Json::Value& response);
    bool playTracksUSB(const Json::Value& request, Json::Value& response);

    CUsbMediaPlayer* Player() const { return m_pPlayer; }

    // Keeps the suspension snapshot in `directory` from now on, and takes
    // back the one a previous run left there (pending again if it was).
    // Without it the snapshot lives in memory only.
    void KeepSuspensionIn(const std::string& directory);

    // Keeps the sticks' tag libraries in `directory` and their covers in
    // `artDirectory`, telling `listener` of every status change. Each library
    // method calls `listenCaller`, which makes the client asking one that
    // hears those changes. Without it the library methods answer as for an
    // empty library.
    void KeepLibraryIn(const std::string& directory, const std::string& artDirectory,
                       CTagLibrary::StatusListener listener, std::function<void()> listenCaller);
    // Ends a scan under way; no scan starts afterwards.
    void StopLibrary();

private:
    // The client asking hears of the library's scans from now on.
    void ListenToLibrary();
    // Scans and their ends, from a storage index and from stick events.
    void ScanLibraryAfterIndex(const std::string& path);
    void FollowStickEvent(const std::string& device, bool connected, bool usable, const std::string& fsUuid);
    SPage<STrackEntry> ChosenTracks(const Json::Value& params, const PageChooser& page);
    Json::Value AlbumEntry(const SAlbumEntry& album, bool withCover);
    // Runs `query` on the library, or on a closed (empty) store without one.
    template <typename Query>
    auto ReadLibrary(Query&& query)
    {
        if (!m_tagLibrary) {
            CTagStore closed;
            return query(closed);
        }
        return m_tagLibrary->Read(std::forward<Query>(query));
    }

    void SaveSuspension();
    // Writes the snapshot held (and whether it is pending) to the store.
    void StoreSuspension();

    CUsbMediaPlayer* m_pPlayer;
    bool m_isSuspended = false;
    std::optional<SSuspensionData> m_suspensionData;
    std::optional<CSuspensionStore> m_suspensionStore;  // none: kept in memory only
    std::unique_ptr<CTagLibrary> m_tagLibrary;           // none: no library
    std::unique_ptr<CLibraryArt> m_libraryArt;
    std::function<void()> m_listenCaller;
};
