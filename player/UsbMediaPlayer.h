#pragma once

#include "core/Error.h"
#include "core/Mutex.h"
#include "library/File.h"
#include "library/FileList.h"
#include "library/FolderGroups.h"
#include "player/AlbumArtFiles.h"
#include "player/GstOwners.h"
#include "player/NotificationBuilders.h"
#include "player/NotificationSink.h"
#include "player/PlayerOutcome.h"
#include "player/PlayerState.h"
#include "player/UsbDeviceStatus.h"

#include <json/value.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <string>
#include <thread>
#include <utility>
#include <vector>


// The one object that owns playback: current track, playlist and position,
// repeat and shuffle, the decoding pipeline, the state clients see, the
// progress and seek threads, the USB stick records and the media lists.
//
// Locking (checked by clang's -Wthread-safety, see core/ThreadAnnotations.h):
// every public operation takes m_playerMutex for its whole run, except while
// sleeping or waiting, so the request thread, the main loop's bus watch, the
// worker threads and the album-art workers never touch the player's members
// at the same time. The one exception is the walk of a stick for the storage
// index (IndexStorageWithStatus): it builds an index of its own without the
// lock and takes the lock only to put it in place. Lock order: m_playerMutex, then any of m_stateMutex,
// m_albumArtMutex, m_artWorkersMutex, m_progressMutex, m_seekMutex (leaves:
// none of them is held while another lock is taken). The art folder's lock
// (CAlbumArtFiles) is a leaf taken by a worker that holds no other lock.
// m_stateMutex guards the state alone, so the worker threads can read it in
// their wait conditions while holding their wake mutex (taking the player
// lock there would invert the order, as the player wakes them under it).
// m_albumArtMutex lets an album-art worker copy the image without the player
// lock. The decoder's pad callback runs on a streaming thread and touches no
// player member, so tearing a pipeline down under the lock is safe.
// Notifications are queued to the server without blocking, so they are sent
// with the player lock held.
//
// Public operations take m_playerMutex (a plain mutex) and are marked
// EXCLUDES(m_playerMutex): calling one with the lock held is a compile error
// under clang. Their bodies, and every helper that other operations call,
// are ...Locked functions marked REQUIRES(m_playerMutex).
// The operations are grouped by concern in separate sources: UsbMediaPlayer.cpp
// (state, lifecycle, accessors), Pipeline.cpp, Transport.cpp, Playlist.cpp,
// ProgressThreads.cpp, Notifications.cpp, BusMessages.cpp (dispatch and end of
// stream), BusErrors.cpp, TagMessages.cpp, AlbumArt.cpp, UsbConnection.cpp
// and MediaLibrary.cpp.
class CUsbMediaPlayer : public virtual CError {
public:
    static CUsbMediaPlayer& GetInstance();

    CUsbMediaPlayer(const CUsbMediaPlayer&) = delete;
    CUsbMediaPlayer& operator=(const CUsbMediaPlayer&) = delete;

    // Stops playback and ends and joins the worker threads; called by main
    // before the process exits so nothing runs under the static destructor.
    void Shutdown();

    // --- State (UsbMediaPlayer.cpp) ---
    int32_t GetPlayerState() EXCLUDES(m_playerMutex);
    uint32_t GetCurrentTrackTime() EXCLUDES(m_playerMutex);
    int32_t GetRepeatMode() EXCLUDES(m_playerMutex);
    bool IsShuffle() EXCLUDES(m_playerMutex);
    CTrackInfo GetCurrentTrack() EXCLUDES(m_playerMutex);
    int GetErrorCode() EXCLUDES(m_playerMutex);
    std::string GetErrorMessage() EXCLUDES(m_playerMutex);
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
    // The operations handlers run through RunWithStatus; each is the body of
    // the public operation of the same name without "Locked".
    std::vector<CFile> _getFileListByGroupIDLocked(uint32_t groupId, bool atMaxDepth) REQUIRES(m_playerMutex);
    std::vector<CFile> GetFileListByPathLocked(const std::string& path, bool atMaxDepth) REQUIRES(m_playerMutex);
    std::vector<CFile> SearchFilesLocked(const std::string& path,
                                         const std::string& searchText) REQUIRES(m_playerMutex);
    bool PlayListLocked(const CFile& target, bool fullUsb) REQUIRES(m_playerMutex);
    bool PlayFileByIdLocked(uint32_t id, bool fullUsb) REQUIRES(m_playerMutex);
    bool PlayAllSongsLocked(const std::string& rootPath) REQUIRES(m_playerMutex);
    bool PlayLocked() REQUIRES(m_playerMutex);
    bool PauseLocked() REQUIRES(m_playerMutex);
    bool StopLocked() REQUIRES(m_playerMutex);
    bool RestartTrackLocked() REQUIRES(m_playerMutex);
    bool PreviousTrackLocked() REQUIRES(m_playerMutex);
    bool _nextUSBLocked() REQUIRES(m_playerMutex);
    bool ValidateCurrentTrackLocked() REQUIRES(m_playerMutex);

    // --- Notifications (Notifications.cpp) ---
    void SetTcpServer(INotificationSink* server) EXCLUDES(m_playerMutex);
    // The current track as clients see it, read under the player lock.
    STrackInfoValues GetTrackInfoValues() EXCLUDES(m_playerMutex);

    // --- Pipeline (Pipeline.cpp) ---
    void StopPlaying() EXCLUDES(m_playerMutex);

    // --- Transport and navigation (Transport.cpp) ---
    bool Play() EXCLUDES(m_playerMutex);
    bool Pause() EXCLUDES(m_playerMutex);
    bool Stop() EXCLUDES(m_playerMutex);
    bool RestartTrack() EXCLUDES(m_playerMutex);
    bool PreviousTrack() EXCLUDES(m_playerMutex);
    bool _nextUSB() EXCLUDES(m_playerMutex);
    void SetRepeatMode(int32_t mode) EXCLUDES(m_playerMutex);
    // Clears the status and, while playing, re-reads position and duration;
    // true when the status is clear afterwards (getCurrentTrackInfoUSB).
    bool ValidateCurrentTrack() EXCLUDES(m_playerMutex);

    // --- Playlists and shuffle (Playlist.cpp) ---
    bool PlayList(const CFile& target, bool fullUsb) EXCLUDES(m_playerMutex);
    bool PlayFileById(uint32_t id, bool fullUsb) EXCLUDES(m_playerMutex);
    bool PlayAllSongs(const std::string& rootPath) EXCLUDES(m_playerMutex);
    void EnableShuffle(bool enabled) EXCLUDES(m_playerMutex);

    // --- Progress and seek (ProgressThreads.cpp) ---
    bool SeekForward(bool enable) EXCLUDES(m_playerMutex);
    bool SeekBackward(bool enable) EXCLUDES(m_playerMutex);
    bool SeekToTime(int64_t seconds);

    // --- Bus messages and album art (BusMessages.cpp, AlbumArt.cpp) ---
    // The bus watch (a GstBusFunc: gboolean is int, gpointer is void*).
    static int OnBusMessage(GstBus* bus, GstMessage* message, void* player);
    void RequestAlbumArt() EXCLUDES(m_playerMutex);
    void CheckAlbumArt();
    std::string GetBufferedAlbumArt() EXCLUDES(m_playerMutex);

    // --- USB (UsbConnection.cpp) ---
    void OnUsbConnectionEvent(const std::string& device, bool connected, const std::string& errorCode)
        EXCLUDES(m_playerMutex);
    bool IsUsbConnected(const std::string& deviceName) EXCLUDES(m_playerMutex);
    std::string GetUsbErrorCode() EXCLUDES(m_playerMutex);
    CUsbDeviceStatus GetUsbDevice1() EXCLUDES(m_playerMutex);

    // --- Media library (MediaLibrary.cpp) ---
    std::vector<CFile> _getFileListByGroupID(uint32_t groupId, bool atMaxDepth) EXCLUDES(m_playerMutex);
    std::vector<CFile> GetFileListByPath(const std::string& path, bool atMaxDepth) EXCLUDES(m_playerMutex);
    std::vector<CFile> SearchFiles(const std::string& path, const std::string& searchText) EXCLUDES(m_playerMutex);
    // The storage index is built without the player lock (a slow stick takes
    // seconds), then put in place under it. The status returned is the
    // walk's failure, else the player's status when the build began.
    SPlayerOutcome<bool> IndexStorageWithStatus(const std::string& path) EXCLUDES(m_playerMutex);
    bool IndexStorage(const std::string& path) EXCLUDES(m_playerMutex);
    bool IndexDevice(const std::string& deviceName) EXCLUDES(m_playerMutex);
    uint32_t GetStorageCrc32() EXCLUDES(m_playerMutex);
    std::string GetCurrentRootPath() EXCLUDES(m_playerMutex);

private:
    CUsbMediaPlayer();
    ~CUsbMediaPlayer() override;

    // The player's own steps, run with m_playerMutex held: the bodies of
    // public operations that other operations also call, and the helpers.
    // State (UsbMediaPlayer.cpp)
    void SetPlayerStateLocked(int32_t state) REQUIRES(m_playerMutex);
    bool IsPlayingLocked() REQUIRES(m_playerMutex);
    void SetCurrentTrackTimeValueLocked(uint32_t seconds) REQUIRES(m_playerMutex);
    uint32_t GetPlaylistSizeLocked() REQUIRES(m_playerMutex);
    uint32_t GetCurrentTrackNumberLocked() REQUIRES(m_playerMutex);
    int32_t GetPlayerStateLocked() REQUIRES(m_playerMutex);
    uint32_t GetCurrentTrackTimeLocked() REQUIRES(m_playerMutex);
    // Notifications (Notifications.cpp)
    void RefreshClientsLocked() REQUIRES(m_playerMutex);
    void SendNotificationLocked(const Json::Value& notification) REQUIRES(m_playerMutex);
    void SendTrackInfoNotificationLocked() REQUIRES(m_playerMutex);
    void SendTrackAlbumArtNotificationLocked(const std::string& artFilePath) REQUIRES(m_playerMutex);
    void SendPlayerStateChangedNotificationLocked() REQUIRES(m_playerMutex);
    void SendRepeatModeChangedNotificationLocked() REQUIRES(m_playerMutex);
    void SendShuffleModeChangedNotificationLocked() REQUIRES(m_playerMutex);
    void SendTrackTimeNotificationLocked() REQUIRES(m_playerMutex);
    void SendEndOfPlayListNotificationLocked() REQUIRES(m_playerMutex);
    void SendUsbConnectionNotificationLocked(const std::string& deviceName, bool connected,
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
    uint32_t GetNextIndexLocked(bool automatic) REQUIRES(m_playerMutex);
    uint32_t GetPreviousIndexLocked(bool automatic) REQUIRES(m_playerMutex);
    // Playlists and shuffle (Playlist.cpp)
    void BuildPlayListLocked(const CFile& target, bool fullUsb) REQUIRES(m_playerMutex);
    void ShuffleLocked() REQUIRES(m_playerMutex);
    // USB (UsbConnection.cpp)
    void OnUsbConnectionEventLocked(const std::string& device, bool connected, const std::string& errorCode)
        REQUIRES(m_playerMutex);
    // Media library (MediaLibrary.cpp)
    std::string GetCurrentRootPathLocked() REQUIRES(m_playerMutex);
    SPlayerOutcome<uint64_t> ClearStorageIndex() EXCLUDES(m_playerMutex);
    void InstallStorageIndexLocked(CStorageIndex& built, const std::string& path, uint64_t removalsBefore)
        REQUIRES(m_playerMutex);

    static void TrackProgressUpdate(CUsbMediaPlayer* player);
    static void SeekFastForwardRewind(CUsbMediaPlayer* player);
    bool SeekStepLocked(int64_t targetNs) REQUIRES(m_playerMutex);
    void WakeProgressThread() EXCLUDES(m_progressMutex);
    void WakeSeekThread() EXCLUDES(m_seekMutex);
    bool ReportProgress() EXCLUDES(m_playerMutex);
    int32_t StepFastForwardRewind() EXCLUDES(m_playerMutex);
    int64_t ForwardSeekTarget() REQUIRES(m_playerMutex);
    int64_t BackwardSeekTarget() REQUIRES(m_playerMutex);
    // The state as last set, without asking the pipeline or the player lock.
    int32_t CachedPlayerState() EXCLUDES(m_stateMutex);
    void HandleBusErrorLocked(GstMessage* message) REQUIRES(m_playerMutex);
    void HandleBusTagLocked(GstMessage* message) REQUIRES(m_playerMutex);
    // Album art (AlbumArt.cpp). ReleaseAlbumArtLocked drops the held image, the
    // pending request and the last art path (StopPlaying, end of stream).
    // WaitForAlbumArtWorkers blocks until no worker runs; call it without
    // holding m_playerMutex, as workers take it to notify (Shutdown).
    void ReleaseAlbumArtLocked() REQUIRES(m_playerMutex);
    void WaitForAlbumArtWorkers() EXCLUDES(m_playerMutex, m_artWorkersMutex);
    void RunAlbumArtWorker() EXCLUDES(m_playerMutex);
    // The held image's bytes, or false (nothing copied) when it is larger
    // than the art folder takes.
    bool GetAlbumArtBytes(std::vector<uint8_t>& bytes, uint64_t& generation) EXCLUDES(m_albumArtMutex);
    void HandleUsbRemoval(const std::string& device) REQUIRES(m_playerMutex);
    void EndPlaylistLocked() REQUIRES(m_playerMutex);
    bool PlayFolder(const CFile& folder) REQUIRES(m_playerMutex);
    void MoveToFrontOfShuffleOrderLocked(uint32_t index) REQUIRES(m_playerMutex);

    CMutex m_playerMutex;

    CTrackInfo m_currentTrack GUARDED_BY(m_playerMutex);
    // The storage index: every folder and file of the stick.
    CStorageIndex m_folderList GUARDED_BY(m_playerMutex);
    // Stick removals so far: each empties the index, so an index whose build
    // saw one go by is stale and is not put in place.
    uint64_t m_stickRemovals GUARDED_BY(m_playerMutex) = 0;
    INotificationSink* m_pTcpServer GUARDED_BY(m_playerMutex) = nullptr;
    std::list<int> m_clients GUARDED_BY(m_playerMutex);
    CFileList m_playlist GUARDED_BY(m_playerMutex);
    // Holds m_usbFileList, the folder last browsed.
    CFolderGroups m_folderGroups GUARDED_BY(m_playerMutex);
    bool m_isShuffle GUARDED_BY(m_playerMutex) = false;
    int32_t m_repeatMode GUARDED_BY(m_playerMutex) = REPEAT_NONE;
    uint32_t m_playlistSize GUARDED_BY(m_playerMutex) = 0;
    uint32_t m_index GUARDED_BY(m_playerMutex) = 0;
    uint32_t m_currentTime GUARDED_BY(m_playerMutex) = 0;
    uint32_t m_trackDuration GUARDED_BY(m_playerMutex) = 0;
    bool m_trackInfoSent GUARDED_BY(m_playerMutex) = true;
    bool m_atMaxDepth GUARDED_BY(m_playerMutex) = false;
    GstPipelinePtr m_pipeline GUARDED_BY(m_playerMutex);
    std::vector<uint32_t> m_shuffleOrder GUARDED_BY(m_playerMutex);
    int32_t m_shuffleIndex GUARDED_BY(m_playerMutex) = 0;
    CUsbDeviceStatus m_usbDevice1 GUARDED_BY(m_playerMutex);
    // Written under the player lock; read without it by the listener loop
    // after every wait, so that an idle check costs no lock.
    std::atomic<bool> m_albumArtRequested{false};

    // Tag and album-art state of the current track.
    uint32_t m_tagMessageCount GUARDED_BY(m_playerMutex) = 0;
    uint32_t m_notFoundCount GUARDED_BY(m_playerMutex) = 0;
    std::string m_lastArtFilePath GUARDED_BY(m_playerMutex);
    CMutex m_albumArtMutex;
    GstSamplePtr m_albumArtSample GUARDED_BY(m_albumArtMutex);
    uint64_t m_albumArtGeneration GUARDED_BY(m_albumArtMutex) = 0;  // bumped on release
    CMutex m_artWorkersMutex;
    std::condition_variable m_artWorkersDone;
    uint32_t m_artWorkers GUARDED_BY(m_artWorkersMutex) = 0;
    // The folder the workers write images to; it has its own (leaf) lock.
    CAlbumArtFiles m_artFiles;

    CMutex m_stateMutex;
    int32_t m_playerState GUARDED_BY(m_stateMutex) = STATE_UNKNOWN;

    // Worker threads and their wake-ups.
    std::atomic<bool> m_stopThreads{false};
    CMutex m_progressMutex;
    std::condition_variable m_progressCond;
    CMutex m_seekMutex;
    std::condition_variable m_seekCond;
    std::thread m_progressThread;
    std::thread m_seekThread;
};
