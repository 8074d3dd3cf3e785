#pragma once

#include "core/Mutex.h"
#include "library/StorageIndex.h"
#include "library/TagDatabaseFolder.h"
#include "library/TagStore.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <thread>

enum class ELibraryState { kIdle, kScanning, kReady, kFailed };

// "idle", "scanning", "ready" or "failed", as clients read it.
const char* LibraryStateName(ELibraryState state);

struct SLibraryStatus {
    ELibraryState state = ELibraryState::kIdle;
    uint32_t scanned = 0;  // audio files handled by the scan so far
    uint32_t total = 0;    // audio files the scan's walk found
    SLibraryCounts counts;
};

// The tag library of the stick the service follows: a scan thread that
// reads the tags of the stick's audio files into the stick's database (one
// per stick identity, CTagDatabaseFolder), and the queries clients browse
// it with, on a connection of their own so that a scan never holds them up
// beyond one of its transactions.
//
// Scans start on a plug event and after a storage index; a new scan, a
// pull of the stick, a soft power-off or termination ends the one under way
// within a file's read. Status changes go to the listener: at the start of a
// scan, at most every kProgressInterval while it runs, and at its end.
//
// Locks, in the order they are taken: m_controlMutex (scan control, from
// the request thread and main), m_queryMutex (the query connection),
// m_statusMutex (the status, a leaf). The listener is called without the
// query and status locks; a scan's start is announced under the control lock.
class CTagLibrary {
public:
    using StatusListener = std::function<void(const SLibraryStatus&)>;
    static constexpr std::chrono::milliseconds kProgressInterval{500};
    static constexpr uint32_t kFilesPerClockRead = 32;

    CTagLibrary(std::string databaseFolder, StatusListener listener);
    // Ends a scan under way and waits for its thread.
    ~CTagLibrary();

    CTagLibrary(const CTagLibrary&) = delete;
    CTagLibrary& operator=(const CTagLibrary&) = delete;

    // The file system UUID a plug event gave for `device` ("" when none):
    // the database of the stick is then keyed by it, not by its checksum.
    void SetStickIdentity(const std::string& device, const std::string& uuid) EXCLUDES(m_controlMutex);
    // Scans the stick `device` mounted at `root` (the path its files are
    // listed under), ending any scan under way first. The scan walks the
    // stick, unless given `walked`, a storage index of `root` just built.
    void ScanStick(const std::string& root, const std::string& device,
                   std::optional<CStorageIndex> walked = std::nullopt) EXCLUDES(m_controlMutex);
    // The stick went away: a scan of it ends, and the library is idle and
    // empty until the next scan. Any other device changes nothing.
    void StickRemoved(const std::string& device) EXCLUDES(m_controlMutex);
    // Soft power-off: a scan under way ends (what it stored stays) and
    // starts again on Resume.
    void Pause() EXCLUDES(m_controlMutex);
    void Resume() EXCLUDES(m_controlMutex);
    // Ends a scan under way and waits for it; no scan starts afterwards.
    void Stop() EXCLUDES(m_controlMutex);

    SLibraryStatus Status() EXCLUDES(m_statusMutex);
    // The database file of the library in use, "" with none.
    std::string DatabasePath() EXCLUDES(m_statusMutex);

    // Runs `query` on the query connection of the library in use; with no
    // library, on a closed store, whose lists are empty.
    template <typename Query>
    auto Read(Query&& query) EXCLUDES(m_queryMutex, m_statusMutex)
    {
        const CLockGuard<CMutex> lock(m_queryMutex);
        FollowDatabaseLocked();
        return query(m_reader);
    }

private:
    enum class EStopReason { kNone, kSuperseded, kRemoved, kPaused, kStopped };

    void StartScanLocked(const std::string& root, const std::string& device, std::optional<CStorageIndex> walked)
        REQUIRES(m_controlMutex);
    // Raises the stop flag with `reason` and joins the scan thread.
    void EndScanLocked(EStopReason reason) REQUIRES(m_controlMutex);
    // The scan thread, and the scan it runs.
    void RunScan(std::string root, std::string uuid, std::optional<CStorageIndex> walked);
    void ScanOnThread(const std::string& root, const std::string& uuid, std::optional<CStorageIndex> walked);
    // Walks the stick into `index`. A stick known by its UUID has its
    // database opened into `writer`, and the files stored for it stat'ed, on
    // another core meanwhile: on a stick scanned before, those stats are
    // most of the scan. The counts stored, when its scan has begun so.
    std::optional<SLibraryCounts> WalkStick(const std::string& root, const std::string& uuid, CStorageIndex& index,
                                            CTagStore& writer);
    // Opens the database of the stick `identity` and begins its scan; the
    // counts it holds, none on failure.
    std::optional<SLibraryCounts> PrepareScan(CTagStore& writer, const std::string& identity);
    bool OpenScanDatabase(CTagStore& writer, const std::string& identity);
    // Stats files `writer` holds for the stick at `root`, confined to it,
    // until none is left (CTagStore::VerifyKnownFiles); may run on two
    // threads at once.
    void VerifyKnownFiles(CTagStore& writer, const std::string& root);
    void FinishScan(ELibraryState state, const SLibraryCounts& counts) EXCLUDES(m_statusMutex);
    void OnProgress(uint32_t scanned, uint32_t total) EXCLUDES(m_statusMutex);
    void SetStatus(const SLibraryStatus& status) EXCLUDES(m_statusMutex);
    void Announce() EXCLUDES(m_statusMutex);
    void FollowDatabaseLocked() REQUIRES(m_queryMutex) EXCLUDES(m_statusMutex);

    const CTagDatabaseFolder m_folder;
    const StatusListener m_listener;

    // Guards the scan thread's handle and what decides the next scan.
    CMutex m_controlMutex ACQUIRED_BEFORE(m_queryMutex, m_statusMutex);
    std::thread m_scanThread GUARDED_BY(m_controlMutex);
    std::string m_root GUARDED_BY(m_controlMutex);    // the stick followed, "" for none
    std::string m_device GUARDED_BY(m_controlMutex);  // its device name
    std::map<std::string, std::string> m_uuids GUARDED_BY(m_controlMutex);  // device -> file system UUID
    bool m_resumeOnPowerOn GUARDED_BY(m_controlMutex) = false;
    bool m_stopped GUARDED_BY(m_controlMutex) = false;
    // Raised to end the scan thread; read by it between files. Written only
    // with m_controlMutex held, with the reason first.
    std::atomic<bool> m_stopScan{false};
    std::atomic<EStopReason> m_stopReason{EStopReason::kNone};

    // Guards the query connection and the file it is open on.
    CMutex m_queryMutex ACQUIRED_BEFORE(m_statusMutex);
    CTagStore m_reader GUARDED_BY(m_queryMutex);
    std::string m_readerPath GUARDED_BY(m_queryMutex);

    // Guards the status and the database file the library is in (a leaf).
    CMutex m_statusMutex;
    SLibraryStatus m_status GUARDED_BY(m_statusMutex);
    std::string m_databasePath GUARDED_BY(m_statusMutex);
    std::chrono::steady_clock::time_point m_lastAnnounced GUARDED_BY(m_statusMutex);
};
