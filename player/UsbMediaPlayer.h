#pragma once

#include "control/NotificationBuilders.h"
#include "core/Error.h"
#include "core/Mutex.h"
#include "library/File.h"
#include "library/FileList.h"
#include "library/FolderGroups.h"
#include "player/GstHandles.h"
#include "player/PlayerOutcome.h"
#include "player/PlayerState.h"
#include "player/UsbDeviceStatus.h"

#include <gst/gst.h>
#include <json/value.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Json {
namespace Rpc {
class TcpServer;
}
}  // namespace Json

// The one object that owns playback: current track, playlist and position,
// repeat and shuffle, the decoding pipeline, the state clients see, the
// progress and seek threads, the USB stick records and the media lists.
//
// Locking (checked by clang's -Wthread-safety, see core/ThreadAnnotations.h):
// every public operation takes m_playerMutex for its whole run, except while
// sleeping or waiting, so the request thread, the main loop's bus watch, the
// worker threads and the album-art workers never touch the player's members
// at the same time. Private helpers marked REQUIRES(m_playerMutex) assume the
// caller holds it. Lock order: m_playerMutex, then any of m_stateMutex,
// m_albumArtMutex, m_artWorkersMutex, m_progressMutex, m_seekMutex (leaves:
// none of them is held while another lock is taken).
// m_stateMutex guards the state alone, so the worker threads can read it in
// their wait conditions while holding their wake mutex (taking the player
// lock there would invert the order, as the player wakes them under it).
// m_albumArtMutex lets an album-art worker copy the image without the player
// lock. The decoder's pad callback runs on a streaming thread and touches no
// player member, so tearing a pipeline down under the lock is safe.
// Notifications are queued to the server without blocking, so they are sent
// with the player lock held.
//
// Why m_playerMutex is recursive: the public operations are also the
// building blocks of one another and are re-entered on the same thread.
// PlayList -> PlayTrack -> ResetPlaying -> StopPlaying -> SetPlayerState ->
// SendPlayerStateChangedNotification -> SendNotification, which, with no
// client connected, calls StopPlaying again; goToTrackIndex calls
// StopPlaying, PlayTrack and Pause; OnEndOfStream and HandleBusError call
// goToTrackIndex, _nextUSB, PlayAllSongs (-> PlayList) and
// OnUsbConnectionEvent; RunWithStatus holds the lock around any of them.
// A plain mutex needs a ...Locked twin of each of those operations (about
// thirty) with the public ones reduced to "lock, call the twin"; until that
// split is made, the lock stays recursive.
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
        const CLockGuard<CRecursiveMutex> lock(m_playerMutex);
        auto value = operation();
        return {std::move(value), m_errorCode, GetErrorText()};
    }

    // --- Notifications (Notifications.cpp) ---
    void SetTcpServer(Json::Rpc::TcpServer* server);
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
    void WakeProgressThread() EXCLUDES(m_progressMutex);
    void WakeSeekThread() EXCLUDES(m_seekMutex);
    bool ReportProgress();
    int32_t StepFastForwardRewind();
    int64_t ForwardSeekTarget() REQUIRES(m_playerMutex);
    int64_t BackwardSeekTarget() REQUIRES(m_playerMutex);
    // The state as last set, without asking the pipeline or the player lock.
    int32_t CachedPlayerState() EXCLUDES(m_stateMutex);
    void HandleBusError(GstMessage* message);
    void HandleBusTag(GstMessage* message);
    // Album art (AlbumArt.cpp). ReleaseAlbumArt drops the held image, the
    // pending request and the last art path (StopPlaying, end of stream).
    // WaitForAlbumArtWorkers blocks until no worker runs; call it without
    // holding m_playerMutex, as workers take it to notify (Shutdown).
    void ReleaseAlbumArt();
    void WaitForAlbumArtWorkers() EXCLUDES(m_playerMutex, m_artWorkersMutex);
    void RunAlbumArtWorker() EXCLUDES(m_playerMutex);
    std::vector<uint8_t> GetAlbumArtBytes(uint64_t& generation) EXCLUDES(m_albumArtMutex);
    void HandleUsbRemoval(const std::string& device) REQUIRES(m_playerMutex);
    void EndPlaylist();
    bool PlayFolder(const CFile& folder) REQUIRES(m_playerMutex);
    void MoveToFrontOfShuffleOrder(uint32_t index);

    CRecursiveMutex m_playerMutex;

    CTrackInfo m_currentTrack GUARDED_BY(m_playerMutex);
    // The storage index: every folder and file of the stick.
    CFileList m_folderList GUARDED_BY(m_playerMutex);
    Json::Rpc::TcpServer* m_pTcpServer GUARDED_BY(m_playerMutex) = nullptr;
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
