#include "library/TreeWalk.h"

#include "core/SystemdNotifier.h"
#include "library/AudioFormats.h"
#include "library/DirectoryManager.h"
#include "library/File.h"
#include "library/FileId.h"
#include "library/ScanStop.h"
#include "library/StickPaths.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <optional>
#include <set>
#include <utility>
#include <vector>

namespace {

// Directory streams kept open at once; deeper folders make the walk read
// the rest of the outermost open folder ahead and close it.
constexpr size_t kMaxOpenDirectories = 64;
constexpr unsigned char kTypeDirectory = DT_DIR;  // 4
constexpr unsigned char kTypeRegular = DT_REG;    // 8

// One entry of a folder that was read ahead of the walk.
struct SEntry {
    std::string name;
    unsigned char type;
};

// The walk's state for one open folder: what a call of the recursive walk
// would hold in its frame.
struct SFrame {
    SFrame(CDirectoryManager&& directory, const SDirectoryIdentity& folder, int frameLevel, bool sticksOnly)
        : dir(std::move(directory)), identity(folder), level(frameLevel), onlySticks(sticksOnly)
    {
    }

    CDirectoryManager dir;
    SDirectoryIdentity identity;
    int level;
    bool onlySticks;  // the mount folder: only the sticks' folders are entered
    bool found = false;
    std::string childName;  // the subfolder being walked below this one

    // Read-ahead entries once the stream was closed to save handles.
    bool readAhead = false;
    std::vector<SEntry> entries;
    size_t next = 0;
    int readErrno = 0;  // the read error that ended the read-ahead
};

// Records name their files by path, and playback opens that path: a folder
// whose path the system cannot open as written (too long, or cut short by a
// NUL byte) is left out, though the walk could open it by name.
bool OpensByPath(const std::string& path)
{
    return path.size() < PATH_MAX && path.find('\0') == std::string::npos;
}

std::string ChildPath(const std::string& path, const std::string& name)
{
    std::string child;
    child.reserve(path.size() + 1 + name.size());
    child = path;
    if (child.empty() || child.back() != '/') {
        child += '/';
    }
    child += name;
    return child;
}

// The depth-first walk behind WalkTree, kept on an explicit stack:
// results, record order and error reports are those of the plain recursive
// walk (a folder's record follows the records found inside it).
class CTreeWalk {
public:
    CTreeWalk(IRecordSink& sink, CError& status, const std::string& searchText, bool recursive, bool withFolders)
        : m_sink(sink), m_status(status), m_search(ToLowerCopy(searchText)), m_recursive(recursive), m_withFolders(withFolders)
    {
    }

    bool Run(const std::string& path, int level, EWalkScope scope)
    {
        if (!EnterStart(path, level, scope)) {
            return false;
        }
        for (;;) {
            std::optional<bool> outcome = Step();
            while (outcome.has_value()) {
                Leave();
                if (m_stack.empty()) {
                    return *outcome;
                }
                outcome = ChildReturned(*outcome);
            }
        }
    }

private:
    // A path outside the sticks is answered as one that cannot be opened, so
    // the reply does not tell whether it exists. The confined folder is opened
    // by its resolved path; records keep the path as given.
    bool EnterStart(const std::string& path, int level, EWalkScope scope)
    {
        if (scope == EWalkScope::kAnyFolder) {
            return Enter(CDirectoryManager(path), level, false);
        }
        const std::optional<SStickPath> confined = ConfineToSticks(path);
        UniqueFd folder = confined ? OpenConfinedFolder(*confined) : UniqueFd();
        const bool mountFolder = confined && confined->area == EStickArea::kMountFolder;
        return Enter(CDirectoryManager(path, std::move(folder)), level, mountFolder);
    }

    // Makes an opened folder the current frame; false when it could not be
    // opened (reported only for the starting level) or when it is one of
    // the folders the walk is already inside. Like find, the walk compares
    // device and inode with its ancestors, so a bind mount of a folder below
    // itself cannot keep it descending for ever.
    bool Enter(CDirectoryManager&& dir, int level, bool onlySticks)
    {
        SDirectoryIdentity identity;
        if (!dir.IsOpen() || !dir.Identity(identity)) {
            if (level == 0) {
                std::fputs("dp == NULL && 0 == dirLevel\n", stderr);
                m_status.SetError("While opendir " + dir.Path(), -1);
            }
            return false;
        }
        if (!m_ancestors.insert(identity).second) {
            return false;  // back in a folder of the walk: it holds nothing new
        }
        m_stack.emplace_back(std::move(dir), identity, level, onlySticks);
        return true;
    }

    void Leave()
    {
        m_ancestors.erase(m_stack.back().identity);
        m_stack.pop_back();
        m_firstOpen = std::min(m_firstOpen, m_stack.size());
    }

    size_t OpenCount() const { return m_stack.size() - m_firstOpen; }

    void ReadAheadOutermost()
    {
        SFrame& frame = m_stack[m_firstOpen++];
        frame.readAhead = true;
        for (;;) {
            errno = 0;
            const dirent64* entry = frame.dir.ReadEntry();
            if (entry == nullptr) {
                frame.readErrno = errno;
                break;
            }
            if (entry->d_type == kTypeDirectory || entry->d_type == kTypeRegular) {
                frame.entries.push_back(SEntry{entry->d_name, entry->d_type});
            }
        }
        frame.dir.Close();
    }

    // The next entry of the current folder; false at its end, with errno
    // telling a read error apart from the plain end.
    bool NextEntry(SFrame& frame, std::string& name, unsigned char& type)
    {
        if (frame.readAhead) {
            if (frame.next == frame.entries.size()) {
                errno = frame.readErrno;
                return false;
            }
            SEntry& entry = frame.entries[frame.next++];
            name = std::move(entry.name);
            type = entry.type;
            return true;
        }
        errno = 0;
        const dirent64* entry = frame.dir.ReadEntry();
        if (entry == nullptr) {
            return false;
        }
        type = entry->d_type;
        if (type == kTypeDirectory || type == kTypeRegular) {
            name = entry->d_name;
        }
        return true;
    }

    // Handles one entry of the current folder; gives the folder's result
    // when its walk is over.
    std::optional<bool> Step()
    {
        SFrame& frame = m_stack.back();
        if (ScanStopRequested()) {
            return EndResult(frame);  // the service is terminating
        }
        FeedWatchdog();
        std::string name;
        unsigned char type = DT_UNKNOWN;
        if (!NextEntry(frame, name, type)) {
            ReportReadError(frame);
            return EndResult(frame);
        }
        if (type == kTypeDirectory) {
            if (!frame.onlySticks || IsStickFolderName(name)) {
                EnterSubfolder(frame, name);
            }
            return std::nullopt;
        }
        if (type == kTypeRegular && !frame.onlySticks) {
            return AudioFile(frame, name);
        }
        return std::nullopt;
    }

    // A scan runs on the listener thread, whose loop feeds a supervising
    // watchdog: while a long scan makes progress it feeds it instead, and a
    // call that hangs feeds nothing, so the supervisor sees the hang.
    void FeedWatchdog()
    {
        if (m_watchdog.WatchdogPeriod().count() != 0) {
            m_watchdog.Alive();
        }
    }

    void ReportReadError(const SFrame& frame) const
    {
        if (errno != 0) {
            std::fprintf(stderr, "(dirp = readdir( dp )) == NULL, errno = %d path = %s\n", errno,
                         frame.dir.Path().c_str());
        }
    }

    bool EndResult(const SFrame& frame) const
    {
        if (m_withFolders) {
            return frame.found;
        }
        return frame.level == 0 && m_sink.HasRecords();
    }

    void EnterSubfolder(SFrame& frame, const std::string& name)
    {
        if (name[0] == '.') {
            return;  // ".", ".." and hidden folders
        }
        const int childLevel = frame.level + 1;
        frame.childName = name;
        const std::string childPath = ChildPath(frame.dir.Path(), name);
        // Opened relative to this folder, before the outermost open folder
        // may be read ahead and closed (this one is the innermost).
        UniqueFd child = OpensByPath(childPath) ? frame.dir.OpenSubfolder(name) : UniqueFd();
        if (OpenCount() >= kMaxOpenDirectories) {
            ReadAheadOutermost();
        }
        // An unopenable subfolder counts as one holding nothing.
        Enter(CDirectoryManager(childPath, std::move(child)), childLevel, false);
    }

    std::optional<bool> AudioFile(SFrame& frame, const std::string& name)
    {
        if (!IsAudioFileName(name)) {
            return std::nullopt;
        }
        if (!m_search.empty() && ToLowerCopy(name).find(m_search) == std::string::npos) {
            return std::nullopt;
        }
        if (!m_recursive && frame.level > 0) {
            return true;  // probing a subfolder: it holds audio
        }
        AppendRecord(frame, name, false);
        frame.found = true;
        return std::nullopt;
    }

    // The current folder's subfolder walk gave `childResult`.
    std::optional<bool> ChildReturned(bool childResult)
    {
        if (!childResult) {
            return std::nullopt;
        }
        SFrame& frame = m_stack.back();
        if (m_recursive) {
            if (m_withFolders) {
                AppendRecord(frame, frame.childName, true);
            }
            frame.found = true;
            return std::nullopt;
        }
        if (frame.level == 0) {
            AppendRecord(frame, frame.childName, true);
            frame.found = true;
            return std::nullopt;
        }
        return true;
    }

    void AppendRecord(const SFrame& frame, const std::string& name, bool isFolder)
    {
        const std::string& path = frame.dir.Path();
        m_sink.Add(FileId(path, name), name, path, isFolder);
    }

    IRecordSink& m_sink;
    CError& m_status;
    const std::string m_search;
    const bool m_recursive;
    const bool m_withFolders;
    SystemdNotifier& m_watchdog = SystemdNotifier::Get();
    std::vector<SFrame> m_stack;
    std::set<SDirectoryIdentity> m_ancestors;  // the folders of m_stack
    size_t m_firstOpen = 0;  // frames below this index were read ahead and closed
};

}  // namespace

bool WalkTree(const std::string& path, const std::string& searchText, bool recursive, bool withFolders, int dirLevel,
              IRecordSink& sink, CError& status, EWalkScope scope)
{
    CTreeWalk walk(sink, status, searchText, recursive, withFolders);
    return walk.Run(path, dirLevel, scope);
}
