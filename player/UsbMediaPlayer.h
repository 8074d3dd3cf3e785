#pragma once

#include "core/Error.h"
#include "core/Mutex.h"
#include "library/File.h"
#include "library/MediaLibrary.h"
#include "player/AlbumArtStore.h"
#include "player/GstOwners.h"
#include "player/NotificationBuilders.h"
#include "player/NotificationSink.h"
#include "player/PlayerOutcome.h"
#include "player/PlayerState.h"
#include "player/Playlist.h"
#include "player/Ticker.h"
#include "player/UsbDeviceStatus.h"

#include <json/value.h>

#include <atomic>
#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <utility>
#include <vector>


// The one object that owns playback: the current track, the pipeline, the
// state clients see and the stick's record; and, as parts it owns, the
// playlist (CPlaylist), the media library (CMediaLibrary), the cover
// (CAlbumArtStore) and the progress and seek threads (CTicker).
//
// Locking (checked by clang's -Wthread-safety, see core/ThreadAnnotations.h):
// every public operation takes m_playerMutex for its whole run, except while
// sleeping or waiting, so the request thread, the main loop's bus watch, the
// tickers and the album-art workers never touch the player's members at the
// same time. The one exception is the walk of a stick for the storage index
// (IndexStorageWithStatus): it builds an index of its own without the lock
// and takes the lock only to put it in place. The locks of the parts come
// after the player lock and are leaves (ARCHITECTURE.md lists them all):
// the state is an atomic written under the player lock, so the tickers read
// it in their wait conditions holding only their wake-up lock.
// Notifications are queued to the server without blocking, so they are sent
// with the player lock held; a send that finds nobody listening stops
// playback, so every step after one asks NotifyLocked's answer first.
//
// Public operations take m_playerMutex (a plain mutex) and are marked
// EXCLUDES(m_playerMutex): calling one with the lock held is a compile error
// under clang. Their bodies are ...Locked functions marked
// REQUIRES(m_playerMutex). The operations are grouped by concern in separate
// sources: UsbMediaPlayer.cpp (state, lifecycle, accessors), Pipeline.cpp,
// Transport.cpp, PlayCommands.cpp, ProgressThreads.cpp, Notifications.cpp,
// BusMessages.cpp (dispatch and end of stream), BusErrors.cpp,
// TagMessages.cpp, AlbumArt.cpp, UsbConnection.cpp and MediaLibrary.cpp.
class CUsbMediaPlayer : public virtual CError {
public:
    static CUsbMediaPlayer& GetInstance();

    CUsbMediaPlayer(const CUsbMediaPlayer&) = delete;
    CUsbMediaPlayer& operator=(const CUsbMediaPlayer&) = delete;

    // Ends and joins the tickers, waits for the album-art workers and stops
    // playback; called by main before the process exits so nothing runs
    // under the static destructor.
    void Shutdown() EXCLUDES(m_playerMutex);

    // --- State (UsbMediaPlayer.cpp) ---
    int32_t GetPlayerState() EXCLUDES(m_playerMutex);
    uint32_t GetCurrentTrackTime() EXCLUDES(m_playerMutex);
    int32_t GetRepeatMode() EXCLUDES(m_playerMutex);
    bool IsShuffle() EXCLUDES(m_playerMutex);
    CTrackInfo GetCurrentTrack() EXCLUDES(m_playerMutex);
    // Runs `operation`, one of the ...Locked operations below, with `args`
    // and reads the status it left, all under one hold of the player lock:
    // the bus watch and the worker threads set and clear the same status,
    // and between two separate reads a reply could pick up their code or
    // text. Handlers call RunWithStatus(&CUsbMediaPlayer::PlayListLocked, ...).
    template <typename Result, typename... Params, typename... Args>
    SPlayerOutcome<Result> RunWithStatus(Result (CUsbMediaPlayer::*operation)(Params...), Args&&... args)
        EXCLUDES(m_playerMutex)
    {
        const CLockGuard<CMutex> lock(m_playerMutex);
        Result value = (this->*operation)(std::forward<Args>(args)...);
        return {std::move(value), m_errorCode, GetErrorText()};
    }
    // The operations handlers run through RunWithStatus.
    std::vector<CFile> _getFileListByGroupIDLocked(uint32_t groupId, bool atMaxDepth) REQUIRES(m_playerMutex);
    std::vector<CFile> GetFileListByPathLocked(const std::string& path, bool atMaxDepth) REQUIRES(m_playerMutex);
    std::vector<CFile> SearchFilesLocked(const std::string& path,
                                         const std::string& searchText) REQUIRES(m_playerMutex);
    bool PlayListLocked(const CFile& target, bool fullUsb) REQUIRES(m_playerMutex);
    bool PlayFileByIdLocked(uint32_t id, bool fullUsb) REQUIRES(m_playerMutex);
    bool PlayAllSongsLocked(const std::string& rootPath) REQUIRES(m_playerMutex);
    // Plays `tracks` in their order (a list of the tag library), from the
    // one whose ID is `startTrackId`, or from the first.
    bool PlayTracksLocked(std::vector<CFile> tracks, std::optional<uint32_t> startTrackId) REQUIRES(m_playerMutex);
    bool PlayLocked() REQUIRES(m_playerMutex);
    bool PauseLocked() REQUIRES(m_playerMutex);
    bool StopLocked() REQUIRES(m_playerMutex);
    bool RestartTrackLocked() REQUIRES(m_playerMutex);
    bool PreviousTrackLocked() REQUIRES(m_playerMutex);
    bool _nextUSBLocked() REQUIRES(m_playerMutex);
    // Clears the status and, while playing, re-reads position and duration;
    // true when the status is clear afterwards (getCurrentTrackInfoUSB).
    bool ValidateCurrentTrackLocked() REQUIRES(m_playerMutex);

    // --- Notifications (Notifications.cpp) ---
    void SetTcpServer(INotificationSink* server) EXCLUDES(m_playerMutex);
    // The current track as clients see it, read under the player lock.
    STrackInfoValues GetTrackInfoValues() EXCLUDES(m_playerMutex);

    // --- Transport, playlists and shuffle (Transport.cpp, PlayCommands.cpp) ---
    void SetRepeatMode(int32_t mode) EXCLUDES(m_playerMutex);
    void EnableShuffle(bool enabled) EXCLUDES(m_playerMutex);

    // --- Progress and seek (ProgressThreads.cpp) ---
    bool SeekForward(bool enable) EXCLUDES(m_playerMutex);
    bool SeekBackward(bool enable) EXCLUDES(m_playerMutex);
    bool SeekToTime(int64_t seconds) EXCLUDES(m_playerMutex);

    // --- Bus messages and album art (BusMessages.cpp, AlbumArt.cpp) ---
    // The bus watch (a GstBusFunc: gboolean is int, gpointer is void*).
    static int OnBusMessage(GstBus* bus, GstMessage* message, void* player);
    void RequestAlbumArt() EXCLUDES(m_playerMutex);
    // Called by the listener after every wait: starts a worker for a
    // pending request once an image is held.
    void CheckAlbumArt() EXCLUDES(m_playerMutex);
    std::string GetBufferedAlbumArt() EXCLUDES(m_playerMutex);

    // --- USB (UsbConnection.cpp) ---
    void OnUsbConnectionEvent(const std::string& device, bool connected, const std::string& errorCode)
        EXCLUDES(m_playerMutex);
    bool IsUsbConnected(const std::string& deviceName) EXCLUDES(m_playerMutex);
    std::string GetUsbErrorCode() EXCLUDES(m_playerMutex);
    CUsbDeviceStatus GetUsbDevice1() EXCLUDES(m_playerMutex);

    // --- Media library (MediaLibrary.cpp) ---
    // The storage index is built without the player lock (a slow stick takes
    // seconds), then put in place under it. The status returned is the
    // walk's failure, else the player's status when the build began.
    SPlayerOutcome<bool> IndexStorageWithStatus(const std::string& path) EXCLUDES(m_playerMutex);
    uint32_t GetStorageCrc32() EXCLUDES(m_playerMutex);
    // A copy of the storage index, for the tag scan that follows an index:
    // copying it costs far less than walking the stick again.
    CStorageIndex StorageIndexCopy() EXCLUDES(m_playerMutex);

private:
    CUsbMediaPlayer();
    ~CUsbMediaPlayer() override;

    // State (UsbMediaPlayer.cpp). The setter is the one place the tickers
    // are woken: whatever changes the state tells them. Like NotifyLocked it
    // returns false when its notification found nobody and stopped playback.
    [[nodiscard]] bool SetPlayerStateLocked(int32_t state) REQUIRES(m_playerMutex);
    int32_t GetPlayerStateLocked() REQUIRES(m_playerMutex);
    bool IsPlayingLocked() REQUIRES(m_playerMutex);
    // Notifications (Notifications.cpp). NotifyLocked is the one way out: it
    // returns false when nobody listened and playback was therefore stopped,
    // so the caller must not go on with the track it had. Each Send... is
    // the one place its message is built.
    [[nodiscard]] bool NotifyLocked(const Json::Value& notification) REQUIRES(m_playerMutex);
    void RefreshClientsLocked() REQUIRES(m_playerMutex);
    [[nodiscard]] bool SendTrackInfoNotificationLocked() REQUIRES(m_playerMutex);
    [[nodiscard]] bool SendTrackAlbumArtNotificationLocked(const std::string& artFilePath) REQUIRES(m_playerMutex);
    [[nodiscard]] bool SendPlayerStateChangedNotificationLocked() REQUIRES(m_playerMutex);
    [[nodiscard]] bool SendRepeatModeChangedNotificationLocked() REQUIRES(m_playerMutex);
    [[nodiscard]] bool SendShuffleModeChangedNotificationLocked() REQUIRES(m_playerMutex);
    [[nodiscard]] bool SendTrackTimeNotificationLocked() REQUIRES(m_playerMutex);
    [[nodiscard]] bool SendEndOfPlayListNotificationLocked() REQUIRES(m_playerMutex);
    [[nodiscard]] bool SendUsbConnectionNotificationLocked(const std::string& deviceName, bool connected,
                                                           const std::string& errorCode) REQUIRES(m_playerMutex);
    STrackInfoValues GetTrackInfoValuesLocked() REQUIRES(m_playerMutex);
    // Pipeline (Pipeline.cpp)
    bool SetTrackLocked(const CFile& file) REQUIRES(m_playerMutex);
    bool ResetPlayingLocked() REQUIRES(m_playerMutex);
    bool PlayTrackLocked() REQUIRES(m_playerMutex);
    bool SetCurrentTrackTimeLocked() REQUIRES(m_playerMutex);
    bool QueryTrackDurationLocked() REQUIRES(m_playerMutex);
    void StopPlayingLocked() REQUIRES(m_playerMutex);
    // Transport and navigation (Transport.cpp)
    bool goToTrackIndexLocked(uint32_t index) REQUIRES(m_playerMutex);
    void OnEndOfStreamLocked() REQUIRES(m_playerMutex);
    void EndPlaylistLocked() REQUIRES(m_playerMutex);
    // Playlists (PlayCommands.cpp)
    void BuildPlayListLocked(const CFile& target, bool fullUsb) REQUIRES(m_playerMutex);
    bool PlayFolderLocked(const CFile& folder) REQUIRES(m_playerMutex);
    bool StartPlaylistLocked(std::vector<CFile> records, uint32_t index) REQUIRES(m_playerMutex);
    // Progress and seek (ProgressThreads.cpp): one tick of each ticker.
    bool ReportProgress() EXCLUDES(m_playerMutex);
    bool StepFastForwardRewind() EXCLUDES(m_playerMutex);
    bool SeekStepLocked(int64_t targetNs) REQUIRES(m_playerMutex);
    int64_t ForwardSeekTargetLocked() REQUIRES(m_playerMutex);
    int64_t BackwardSeekTargetLocked() REQUIRES(m_playerMutex);
    bool SeekRunLocked(bool enable, int32_t runState) REQUIRES(m_playerMutex);
    // Bus messages (BusErrors.cpp, TagMessages.cpp), album art (AlbumArt.cpp)
    void HandleBusErrorLocked(GstMessage* message) REQUIRES(m_playerMutex);
    void HandleBusTagLocked(GstMessage* message) REQUIRES(m_playerMutex);
    void AnnounceAlbumArt(const std::string& path) EXCLUDES(m_playerMutex);
    // USB (UsbConnection.cpp)
    void OnUsbConnectionEventLocked(const std::string& device, bool connected, const std::string& errorCode)
        REQUIRES(m_playerMutex);
    void HandleUsbRemovalLocked(const std::string& device) REQUIRES(m_playerMutex);

    // Guards every member below but the parts that say otherwise; taken
    // before any other lock of the service.
    CMutex m_playerMutex ACQUIRED_BEFORE(m_albumArt.ImageMutex(), m_albumArt.WorkersMutex(),
                                         m_progressTicker.WakeMutex(), m_seekTicker.WakeMutex());

    CTrackInfo m_currentTrack GUARDED_BY(m_playerMutex);
    CPlaylist m_playlist GUARDED_BY(m_playerMutex);
    CMediaLibrary m_library GUARDED_BY(m_playerMutex);
    INotificationSink* m_pTcpServer GUARDED_BY(m_playerMutex) = nullptr;
    std::list<int> m_clients GUARDED_BY(m_playerMutex);
    uint32_t m_currentTime GUARDED_BY(m_playerMutex) = 0;
    // The duration sent in the last trackTimeNotification: pause reports it.
    uint32_t m_trackDuration GUARDED_BY(m_playerMutex) = 0;
    GstPipelinePtr m_pipeline GUARDED_BY(m_playerMutex);
    CUsbDeviceStatus m_usbDevice1 GUARDED_BY(m_playerMutex);
    // Tag messages read for the current track, and missing-file errors in a row.
    uint32_t m_tagMessageCount GUARDED_BY(m_playerMutex) = 0;
    uint32_t m_notFoundCount GUARDED_BY(m_playerMutex) = 0;
    // Written only under the player lock (GetPlayerStateLocked,
    // SetPlayerStateLocked); read without it by the tickers.
    std::atomic<int32_t> m_playerState{STATE_UNKNOWN};
    // Its own locks; the player calls in holding the player lock.
    CAlbumArtStore m_albumArt;
    // Started last, once every member they use exists.
    CTicker m_progressTicker;
    CTicker m_seekTicker;
};
