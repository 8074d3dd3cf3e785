#pragma once

#include "core/Error.h"
#include "library/File.h"
#include "library/FileList.h"
#include "library/FolderGroups.h"
#include "player/GstHandles.h"
#include "player/NotificationBuilders.h"
#include "player/NotificationSink.h"
#include "player/UsbDeviceStatus.h"

#include <gst/gst.h>
#include <json/value.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// Player states as clients see them ("playerState").
enum PlayerState : int32_t {
    STATE_UNKNOWN = -1,
    STATE_STOPPED = 0,
    STATE_PAUSED = 3,
    STATE_PLAYING = 4,
    STATE_FAST_FORWARD = 5,
    STATE_REWIND = 6,
};

// "Playing" in the wide sense: playing, fast forward or rewind.
inline bool IsPlayingState(int32_t state)
{
    return state == STATE_PLAYING || state == STATE_FAST_FORWARD || state == STATE_REWIND;
}

// Repeat modes ("mode"); other values are stored as given and act like none.
enum RepeatMode : int32_t {
    REPEAT_NONE = 0,
    REPEAT_ONE = 1,
    REPEAT_ALL = 2,
};

// What one player operation returned together with the status (code and
// message, "Success" for 0) that it left behind, read as one.
template <typename Result>
struct SPlayerOutcome {
    Result value;
    int code;
    std::string message;
};

// The one object that owns playback: current track, playlist and position,
// repeat and shuffle, the decoding pipeline, the state clients see, the
// progress and seek threads, the USB stick records and the media lists.
//
// Locking: every operation takes m_playerMutex (recursive, as operations
// call each other) for its whole run, except while sleeping or waiting, so
// the request thread, the main loop's bus watch, the worker threads and the
// album-art workers never touch the player's members at the same time.
// m_stateMutex and m_timeMutex are leaf locks for the two values clients
// poll. The decoder's pad callback runs on a streaming thread and touches
// no player member, so tearing a pipeline down under the lock is safe.
// Notifications are queued to the server without blocking, so they are
// sent with the player lock held.
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
    int32_t GetPlayerState();
    void SetPlayerState(int32_t state);
    bool IsPlaying();
    uint32_t GetCurrentTrackTime();
    void SetCurrentTrackTimeValue(uint32_t seconds);
    int32_t GetRepeatMode();
    bool IsShuffle();
    uint32_t GetPlaylistSize();
    uint32_t GetCurrentTrackNumber();
    CTrackInfo GetCurrentTrack();
    int GetErrorCode();
    std::string GetErrorMessage();
    // Runs `operation` (a call of one of this player's operations) and reads
    // the status it left, all under one hold of the player lock: the bus
    // watch and the worker threads set and clear the same status, and
    // between two separate reads a reply could pick up their code or text.
    // The lock is recursive, so the operation takes it again as usual.
    template <typename Operation>
    auto RunWithStatus(Operation operation) -> SPlayerOutcome<decltype(operation())>
    {
        const std::lock_guard<std::recursive_mutex> lock(m_playerMutex);
        auto value = operation();
        return {std::move(value), m_errorCode, GetErrorText()};
    }

    // --- Notifications (Notifications.cpp) ---
    void SetTcpServer(INotificationSink* server);
    void RefreshClients();
    void SendNotification(const Json::Value& notification);
    // The current track as clients see it, read under the player lock.
    STrackInfoValues GetTrackInfoValues();
    void SendTrackInfoNotification();
    void SendTrackAlbumArtNotification(const std::string& artFilePath);
    void SendPlayerStateChangedNotification();
    void SendRepeatModeChangedNotification();
    void SendShuffleModeChangedNotification();
    void SendTrackTimeNotification();
    void SendEndOfPlayListNotification();
    void SendUsbConnectionNotification(const std::string& deviceName, bool connected,
                                       const std::string& errorCode);

    // --- Pipeline (Pipeline.cpp) ---
    bool SetTrack(const CFile& file);
    bool ResetPlaying();
    bool PlayTrack();
    void StopPlaying();
    bool SetCurrentTrackTime();
    bool QueryTrackDuration();

    // --- Transport and navigation (Transport.cpp) ---
    bool Play();
    bool Pause();
    bool Stop();
    bool RestartTrack();
    bool PreviousTrack();
    bool _nextUSB();
    bool goToTrackIndex(uint32_t index);
    void OnEndOfStream();
    void SetRepeatMode(int32_t mode);
    uint32_t GetNextIndex(bool automatic);
    uint32_t GetPreviousIndex(bool automatic);
    // Clears the status and, while playing, re-reads position and duration;
    // true when the status is clear afterwards (getCurrentTrackInfoUSB).
    bool ValidateCurrentTrack();

    // --- Playlists and shuffle (Playlist.cpp) ---
    void BuildPlayList(const CFile& target, bool fullUsb);
    bool PlayList(const CFile& target, bool fullUsb);
    bool PlayFileById(uint32_t id, bool fullUsb);
    bool PlayAllSongs(const std::string& rootPath);
    void Shuffle();
    void EnableShuffle(bool enabled);

    // --- Progress and seek (ProgressThreads.cpp) ---
    bool SeekForward(bool enable);
    bool SeekBackward(bool enable);
    bool SeekToTime(int64_t seconds);

    // --- Bus messages and album art (BusMessages.cpp, AlbumArt.cpp) ---
    static gboolean OnBusMessage(GstBus* bus, GstMessage* message, gpointer player);
    void RequestAlbumArt();
    void CheckAlbumArt();
    std::string GetBufferedAlbumArt();

    // --- USB (UsbConnection.cpp) ---
    void OnUsbConnectionEvent(const std::string& device, bool connected, const std::string& errorCode);
    bool IsUsbConnected(const std::string& deviceName);
    std::string GetUsbErrorCode();
    CUsbDeviceStatus GetUsbDevice1();

    // --- Media library (MediaLibrary.cpp) ---
    std::vector<CFile> _getFileListByGroupID(uint32_t groupId, bool atMaxDepth);
    std::vector<CFile> GetFileListByPath(const std::string& path, bool atMaxDepth);
    std::vector<CFile> SearchFiles(const std::string& path, const std::string& searchText);
    bool IndexStorage(const std::string& path);
    bool IndexDevice(const std::string& deviceName);
    uint32_t GetStorageCrc32();
    std::string GetCurrentRootPath();

private:
    CUsbMediaPlayer();
    ~CUsbMediaPlayer() override;

    static void TrackProgressUpdate(CUsbMediaPlayer* player);
    static void SeekFastForwardRewind(CUsbMediaPlayer* player);
    bool SeekStep(int64_t targetNs);
    void WakeProgressThread();
    void WakeSeekThread();
    bool ReportProgress();
    int32_t StepFastForwardRewind();
    int64_t ForwardSeekTarget();
    int64_t BackwardSeekTarget();
    int32_t CachedPlayerState();
    void HandleBusError(GstMessage* message);
    void HandleBusTag(GstMessage* message);
    // Album art (AlbumArt.cpp). ReleaseAlbumArt drops the held image, the
    // pending request and the last art path (StopPlaying, end of stream).
    // WaitForAlbumArtWorkers blocks until no worker runs; call it without
    // holding m_playerMutex, as workers take it to notify (Shutdown).
    void ReleaseAlbumArt();
    void WaitForAlbumArtWorkers();
    void RunAlbumArtWorker();
    std::vector<uint8_t> GetAlbumArtBytes(uint64_t& generation);
    void HandleUsbRemoval(const std::string& device);
    void EndPlaylist();
    bool PlayFolder(const CFile& folder);
    void MoveToFrontOfShuffleOrder(uint32_t index);

    std::recursive_mutex m_playerMutex;

    CTrackInfo m_currentTrack;
    CStorageIndex m_folderList;  // the storage index: every folder and file of the stick
    INotificationSink* m_pTcpServer = nullptr;
    std::list<int> m_clients;
    CFileList m_playlist;
    CFolderGroups m_folderGroups;  // holds m_usbFileList, the folder last browsed
    bool m_isShuffle = false;
    int32_t m_repeatMode = REPEAT_NONE;
    uint32_t m_playlistSize = 0;
    uint32_t m_index = 0;
    uint32_t m_currentTime = 0;         // guarded by m_timeMutex
    int32_t m_playerState = STATE_UNKNOWN;  // guarded by m_stateMutex
    uint32_t m_trackDuration = 0;
    bool m_trackInfoSent = true;
    bool m_atMaxDepth = false;
    GstPipelinePtr m_pipeline;  // owns the pipeline; the elements below are views into it
    GstElement* m_source = nullptr;
    GstElement* m_decoder = nullptr;
    GstElement* m_audioBin = nullptr;
    GstElement* m_audioConvert = nullptr;
    GstElement* m_audioSink = nullptr;
    guint m_busWatchId = 0;
    std::vector<uint32_t> m_shuffleOrder;
    int32_t m_shuffleIndex = 0;
    CUsbDeviceStatus m_usbDevice1;
    CUsbDeviceStatus m_usbDevice2;
    // Written under the player lock; read without it by the listener loop
    // after every wait, so that an idle check costs no lock.
    std::atomic<bool> m_albumArtRequested{false};

    // Tag and album-art state of the current track.
    uint32_t m_tagMessageCount = 0;
    uint32_t m_notFoundCount = 0;
    GstSample* m_albumArtSample = nullptr;  // guarded by m_albumArtMutex
    std::string m_lastArtFilePath;
    std::mutex m_albumArtMutex;
    uint64_t m_albumArtGeneration = 0;  // guarded by m_albumArtMutex; bumped on release
    std::mutex m_artWorkersMutex;
    std::condition_variable m_artWorkersDone;
    uint32_t m_artWorkers = 0;  // guarded by m_artWorkersMutex

    std::mutex m_notifyMutex;  // one notification at a time on the client sockets
    std::mutex m_stateMutex;
    std::mutex m_timeMutex;

    // Worker threads and their wake-ups.
    std::atomic<bool> m_stopThreads{false};
    std::mutex m_progressMutex;
    std::condition_variable m_progressCond;
    std::mutex m_seekMutex;
    std::condition_variable m_seekCond;
    std::thread m_progressThread;
    std::thread m_seekThread;
};
