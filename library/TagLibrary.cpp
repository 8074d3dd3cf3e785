#include "library/TagLibrary.h"

#include "core/ThreadPlacement.h"
#include "library/ScanStop.h"
#include "library/StickFolderOpener.h"
#include "library/StorageIndex.h"
#include "library/TagScan.h"

#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>

#include <string>
#include <utility>

namespace {
using Lock = CLockGuard<CMutex>;
constexpr int kScanNiceness = 10;
}  // namespace

const char* LibraryStateName(ELibraryState state)
{
    switch (state) {
    case ELibraryState::kScanning:
        return "scanning";
    case ELibraryState::kReady:
        return "ready";
    case ELibraryState::kFailed:
        return "failed";
    case ELibraryState::kIdle:
        break;
    }
    return "idle";
}

CTagLibrary::CTagLibrary(std::string databaseFolder, StatusListener listener)
    : m_folder(std::move(databaseFolder)), m_listener(std::move(listener))
{
}

CTagLibrary::~CTagLibrary()
{
    Stop();
}

void CTagLibrary::SetStickIdentity(const std::string& device, const std::string& uuid)
{
    const Lock lock(m_controlMutex);
    if (uuid.empty()) {
        m_uuids.erase(device);
    } else {
        m_uuids[device] = uuid;
    }
}

void CTagLibrary::ScanStick(const std::string& root, const std::string& device,
                            std::optional<CStorageIndex> walked)
{
    const Lock lock(m_controlMutex);
    if (m_stopped) {
        return;
    }
    EndScanLocked(EStopReason::kSuperseded);
    StartScanLocked(root, device, std::move(walked));
}

void CTagLibrary::StickRemoved(const std::string& device)
{
    {
        const Lock lock(m_controlMutex);
        m_uuids.erase(device);
        if (device != m_device) {
            return;
        }
        EndScanLocked(EStopReason::kRemoved);
        m_root.clear();
        m_device.clear();
        m_resumeOnPowerOn = false;
        const Lock statusLock(m_statusMutex);
        m_status = SLibraryStatus{};
        m_databasePath.clear();
    }
    Announce();
}

void CTagLibrary::Pause()
{
    const Lock lock(m_controlMutex);
    if (Status().state == ELibraryState::kScanning) {
        m_resumeOnPowerOn = true;
    }
    EndScanLocked(EStopReason::kPaused);
}

void CTagLibrary::Resume()
{
    const Lock lock(m_controlMutex);
    if (!m_resumeOnPowerOn || m_stopped || m_root.empty()) {
        return;
    }
    m_resumeOnPowerOn = false;
    EndScanLocked(EStopReason::kSuperseded);
    StartScanLocked(m_root, m_device, std::nullopt);
}

void CTagLibrary::Stop()
{
    const Lock lock(m_controlMutex);
    m_stopped = true;
    EndScanLocked(EStopReason::kStopped);
}

SLibraryStatus CTagLibrary::Status()
{
    const Lock lock(m_statusMutex);
    return m_status;
}

std::string CTagLibrary::DatabasePath()
{
    const Lock lock(m_statusMutex);
    return m_databasePath;
}

void CTagLibrary::StartScanLocked(const std::string& root, const std::string& device,
                                  std::optional<CStorageIndex> walked)
{
    m_root = root;
    m_device = device;
    const auto uuid = m_uuids.find(device);
    m_stopReason = EStopReason::kNone;
    m_stopScan = false;
    {
        const Lock statusLock(m_statusMutex);
        m_status = SLibraryStatus{ELibraryState::kScanning, 0, 0, m_status.counts};
    }
    Announce();
    m_scanThread = std::thread(&CTagLibrary::RunScan, this, root, uuid != m_uuids.end() ? uuid->second : "",
                               std::move(walked));
}

void CTagLibrary::EndScanLocked(EStopReason reason)
{
    if (!m_scanThread.joinable()) {
        return;
    }
    m_stopReason = reason;
    m_stopScan = true;
    m_scanThread.join();
}

void CTagLibrary::RunScan(std::string root, std::string uuid, std::optional<CStorageIndex> walked)
{
    // Requests and playback come first: the scan runs at a lower priority.
    SetThisThreadNiceness(kScanNiceness);
    ScanOnThread(root, uuid, std::move(walked));
    // The walk and the scan's map of stored files were this thread's: give
    // their memory back rather than keep it for the next scan.
    malloc_trim(0);
}

void CTagLibrary::ScanOnThread(const std::string& root, const std::string& uuid,
                               std::optional<CStorageIndex> walked)
{
    const CThreadScanStop walkStop(m_stopScan);
    CStorageIndex index;
    CTagStore writer;
    // The counts stored before this scan, once the writer's scan has begun.
    std::optional<SLibraryCounts> before;
    if (walked) {
        index.Swap(*walked);
    } else {
        before = WalkStick(root, uuid, index, writer);
    }
    if (m_stopScan || ScanStopRequested()) {
        FinishScan(ELibraryState::kIdle, Status().counts);
        return;
    }
    if (!before && index.m_errorCode == 0) {
        before = PrepareScan(writer, uuid.empty() ? "crc-" + std::to_string(StorageIndexCrc32(index)) : "uuid-" + uuid);
    }
    if (index.m_errorCode != 0 || !before) {
        FinishScan(ELibraryState::kFailed, writer.Counts());
        return;
    }
    {
        const Lock statusLock(m_statusMutex);
        m_status.total = CTagScanPass::CountTracks(index);
        m_status.counts = *before;
    }
    CTagScanPass pass(writer, m_stopScan, [this](uint32_t scanned, uint32_t total) { OnProgress(scanned, total); });
    const ETagScanEnd end = pass.Run(index);
    // A stop commits what was read and returns at once: rebuilding the
    // artists and albums of a big stick would hold up the pull or the new
    // scan waiting for this one; the next complete scan does it.
    const bool stored = writer.EndScan(end == ETagScanEnd::kComplete, end != ETagScanEnd::kStopped);
    const SLibraryCounts counts = writer.LastScanWrote() ? writer.Counts() : *before;
    if (end == ETagScanEnd::kStopped) {
        FinishScan(ELibraryState::kIdle, counts);
        return;
    }
    FinishScan(end == ETagScanEnd::kComplete && stored ? ELibraryState::kReady : ELibraryState::kFailed, counts);
}

std::optional<SLibraryCounts> CTagLibrary::WalkStick(const std::string& root, const std::string& uuid,
                                                     CStorageIndex& index, CTagStore& writer)
{
    if (uuid.empty()) {
        BuildStorageIndex(index, root, EWalkScope::kSticksOnly);
        return std::nullopt;
    }
    std::optional<SLibraryCounts> before;
    std::atomic<bool> verifying{false};
    const CCoreSplit cores;
    std::thread preparing([this, &writer, &before, &verifying, &uuid, &root, &cores] {
        SetThisThreadNiceness(kScanNiceness);
        cores.KeepOffFirstCore();
        before = PrepareScan(writer, "uuid-" + uuid);
        if (before) {
            writer.BeginVerify();
            verifying.store(true, std::memory_order_release);
            VerifyKnownFiles(writer, root);
        }
    });
    // With no checksum to compute, nothing needs the scan's sorted order.
    BuildStorageIndex(index, root, EWalkScope::kSticksOnly, CStorageIndex::EOrder::kWalk);
    // What is left to verify is shared: the other core may be slow.
    if (verifying.load(std::memory_order_acquire)) {
        VerifyKnownFiles(writer, root);
    }
    preparing.join();
    return before;
}

void CTagLibrary::VerifyKnownFiles(CTagStore& writer, const std::string& root)
{
    const CThreadScanStop stop(m_stopScan);
    CStickFolderOpener folders(root);
    writer.VerifyKnownFiles([&folders](const std::string& folder, const std::string& name, SFileStamp& stamp) {
        const int folderFd = ScanStopRequested() ? -1 : folders.Open(folder);
        struct stat info {};
        if (folderFd < 0 || fstatat(folderFd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 ||
            !S_ISREG(info.st_mode)) {
            return false;
        }
        stamp = FileStampOf(info);
        return true;
    });
}

std::optional<SLibraryCounts> CTagLibrary::PrepareScan(CTagStore& writer, const std::string& identity)
{
    if (!OpenScanDatabase(writer, identity) || !writer.BeginScan()) {
        return std::nullopt;
    }
    return writer.Counts();
}

bool CTagLibrary::OpenScanDatabase(CTagStore& writer, const std::string& identity)
{
    const std::string path = m_folder.PathOf(identity);
    if (path.empty() || !writer.Open(path)) {
        return false;
    }
    m_folder.MarkUsed(path);
    const Lock statusLock(m_statusMutex);
    m_databasePath = path;
    return true;
}

// The end of a scan is announced, unless a new scan or the stick's removal
// ended it: their own announcement follows.
void CTagLibrary::FinishScan(ELibraryState state, const SLibraryCounts& counts)
{
    const EStopReason reason = m_stopReason;
    if (state == ELibraryState::kIdle && (reason == EStopReason::kSuperseded || reason == EStopReason::kRemoved)) {
        return;
    }
    {
        const Lock statusLock(m_statusMutex);
        m_status.state = state;
        m_status.counts = counts;
    }
    Announce();
}

void CTagLibrary::OnProgress(uint32_t scanned, uint32_t total)
{
    {
        const Lock statusLock(m_statusMutex);
        m_status.scanned = scanned;
        m_status.total = total;
        // The clock is read every few files: an unchanged file takes less
        // than a microsecond.
        if (scanned % kFilesPerClockRead != 0 ||
            std::chrono::steady_clock::now() - m_lastAnnounced < kProgressInterval) {
            return;
        }
    }
    Announce();
}

void CTagLibrary::Announce()
{
    SLibraryStatus status;
    {
        const Lock statusLock(m_statusMutex);
        m_lastAnnounced = std::chrono::steady_clock::now();
        status = m_status;
    }
    if (m_listener) {
        m_listener(status);
    }
}

void CTagLibrary::FollowDatabaseLocked()
{
    std::string path;
    {
        const Lock statusLock(m_statusMutex);
        path = m_databasePath;
    }
    if (path == m_readerPath) {
        return;
    }
    m_reader.Close();
    m_readerPath.clear();
    if (!path.empty() && m_reader.OpenExisting(path)) {
        m_readerPath = path;
    }
}
