#include "library/IndexStamps.h"

#include "core/ThreadPlacement.h"
#include "library/ScanStop.h"
#include "library/StickFolderOpener.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <thread>

CIndexStamps::CIndexStamps(const CStorageIndex& index, const std::atomic<bool>& stop, bool spread)
    : m_stamps(index.Size()), m_taken(index.Size(), 0)
{
    std::atomic<size_t> nextRun{0};
    if (!spread || std::thread::hardware_concurrency() < 2 || index.FolderCount() <= kFoldersPerRun) {
        StampRuns(index, nextRun, stop);
        return;
    }
    const int niceness = ThisThreadNiceness();
    const CCoreSplit cores;
    std::thread second([this, &index, &nextRun, &stop, niceness, &cores] {
        SetThisThreadNiceness(niceness);
        cores.KeepOffFirstCore();
        StampRuns(index, nextRun, stop);
    });
    StampRuns(index, nextRun, stop);
    second.join();
}

// Takes runs of folders (in the index's path order, which keeps the opener's
// chain short) until none is left: a thread that gets less of its core does
// fewer of them.
void CIndexStamps::StampRuns(const CStorageIndex& index, std::atomic<size_t>& nextRun, const std::atomic<bool>& stop)
{
    const CThreadScanStop threadStop(stop);
    CStickFolderOpener opener(index.RootPath());
    std::string name;  // NUL-terminated for the calls
    const size_t folders = index.FolderCount();
    for (;;) {
        const size_t first = nextRun.fetch_add(1) * kFoldersPerRun;
        if (first >= folders) {
            return;
        }
        for (size_t folder = first; folder < std::min(first + kFoldersPerRun, folders); ++folder) {
            if (ScanStopRequested()) {
                return;
            }
            StampFolder(index, folder, opener, name);
        }
    }
}

void CIndexStamps::StampFolder(const CStorageIndex& index, size_t folder, CStickFolderOpener& opener,
                               std::string& name)
{
    int folderFd = -1;
    bool opened = false;
    for (const uint32_t position : index.FolderRecords(folder)) {
        if (index.IsFolderAt(position)) {
            continue;
        }
        if (!opened) {
            folderFd = opener.Open(index.FolderPath(folder));
            opened = true;
        }
        name.assign(index.NameAt(position));
        struct stat info {};
        if (folderFd >= 0 && fstatat(folderFd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISREG(info.st_mode)) {
            m_stamps[position] = FileStampOf(info);
            m_taken[position] = 1;
        }
    }
}
