// usbmedia-faultfs: a FUSE file system that mirrors a source folder read-only
// and misbehaves on command the way USB sticks do. Built only with the tests.
//
//   usbmedia-faultfs SOURCE MOUNTPOINT READY_FD
//
// Writes one byte to READY_FD once the kernel has finished mounting, then
// closes it (a test reads end-of-file instead when the mount failed). Runs in
// the foreground until SIGTERM or until the mount goes away.
//
// Commands are written to the file "/.faultfs-control" at the mount's root
// (it is not listed in its folder); each write is one command and is in
// effect when the write returns:
//
//   fail-read PATH BYTES   reads of PATH (relative to the root) deliver the
//                          first BYTES bytes, then fail with EIO
//   pull eio|enodev        every call fails with EIO or ENODEV from now on
//   pull-after N eio|enodev  the same, after N more calls
//   pull-at PATH eio|enodev  the same, from the first call that names PATH
//                          (the moment a player turns to that file)
//   unpull                 the stick answers again
//   delay readdir|stat|read MICROSECONDS   added to each such call
//   types on|off           off: directory entries come as DT_UNKNOWN
//   latin1 on|off          on: names are presented as their ISO8859-1 bytes
//                          (the source names are UTF-8)
//   fat on|off             on: names are looked up case-blind, symbolic
//                          links are not shown (as on a FAT stick)
//   wait readdir|stat|read|calls N  the write returns once that many such
//                          calls were served since the mount (ETIMEDOUT
//                          after a minute)
//
// Reading the control file gives the counters: "calls N\nreaddir N\n...".

#define FUSE_USE_VERSION 31

#include <fuse.h>

#include "core/Mutex.h"

#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr const char* kControlPath = "/.faultfs-control";

enum class EOp { Readdir, Stat, Read, Other };

struct SState {
    // Set before the mount, only read after it.
    std::string source;
    int readyFd = -1;  // closed by the init call, which comes before any other

    // Guards the faults and the counters below: FUSE serves calls on several
    // threads, and commands arrive on any of them.
    CMutex mutex;
    std::condition_variable changed;  // a call was counted

    std::map<std::string, long long> failReadAfter GUARDED_BY(mutex);  // presented path -> bytes
    int pulledErrno GUARDED_BY(mutex) = 0;                             // 0: answering
    long long pullAfterCalls GUARDED_BY(mutex) = -1;                   // -1: no pull pending
    int pullAfterErrno GUARDED_BY(mutex) = 0;
    std::map<std::string, int> pullAt GUARDED_BY(mutex);  // presented path -> errno
    std::map<EOp, long> delayMicroseconds GUARDED_BY(mutex);
    bool types GUARDED_BY(mutex) = true;
    bool latin1 GUARDED_BY(mutex) = false;
    bool fat GUARDED_BY(mutex) = false;

    unsigned long long calls GUARDED_BY(mutex) = 0;
    std::map<EOp, unsigned long long> counts GUARDED_BY(mutex);
};

SState g_state;

// ISO8859-1 bytes -> UTF-8.
std::string Latin1ToUtf8(const std::string& text)
{
    std::string out;
    for (const unsigned char byte : text) {
        if (byte < 0x80) {
            out += static_cast<char>(byte);
        } else {
            out += static_cast<char>(0xC0 | (byte >> 6));
            out += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    return out;
}

// UTF-8 -> ISO8859-1 when every character fits; otherwise the text unchanged.
std::string Utf8ToLatin1(const std::string& text)
{
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        const unsigned char byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x80) {
            out += static_cast<char>(byte);
            continue;
        }
        if ((byte == 0xC2 || byte == 0xC3) && i + 1 < text.size() &&
            (static_cast<unsigned char>(text[i + 1]) & 0xC0) == 0x80) {
            out += static_cast<char>(((byte & 0x03) << 6) | (static_cast<unsigned char>(text[i + 1]) & 0x3F));
            ++i;
            continue;
        }
        return text;
    }
    return out;
}

// The source path behind a presented path.
std::string SourcePath(const char* presented, bool latin1, bool fat)
{
    std::string path = g_state.source;
    std::stringstream parts(presented);
    std::string part;
    while (std::getline(parts, part, '/')) {
        if (part.empty()) {
            continue;
        }
        std::string name = latin1 ? Latin1ToUtf8(part) : part;
        std::string candidate = path + "/" + name;
        struct stat st {};
        if (fat && ::lstat(candidate.c_str(), &st) != 0) {
            if (DIR* dir = ::opendir(path.c_str())) {
                while (const dirent* entry = ::readdir(dir)) {
                    if (::strcasecmp(entry->d_name, name.c_str()) == 0) {
                        candidate = path + "/" + entry->d_name;
                        break;
                    }
                }
                ::closedir(dir);
            }
        }
        path = candidate;
    }
    return path;
}

struct SView {
    std::string source;
    bool latin1;
    bool fat;
    bool types;
};

// Counts the call, applies a pending or present pull and the delay; returns
// 0 to go on or a negative errno.
int Gate(EOp op, const char* path, SView* view = nullptr)
{
    long delay = 0;
    {
        const CLockGuard<CMutex> lock(g_state.mutex);
        ++g_state.calls;
        ++g_state.counts[op];
        if (g_state.pullAfterCalls >= 0 && g_state.pullAfterCalls-- == 0) {
            g_state.pulledErrno = g_state.pullAfterErrno;
            g_state.pullAfterCalls = -1;
        }
        if (const auto at = g_state.pullAt.find(path); at != g_state.pullAt.end()) {
            g_state.pulledErrno = at->second;
            g_state.pullAt.clear();
        }
        g_state.changed.notify_all();
        if (g_state.pulledErrno != 0) {
            return -g_state.pulledErrno;
        }
        const auto found = g_state.delayMicroseconds.find(op);
        delay = found == g_state.delayMicroseconds.end() ? 0 : found->second;
        if (view != nullptr) {
            view->latin1 = g_state.latin1;
            view->fat = g_state.fat;
            view->types = g_state.types;
            view->source = SourcePath(path, view->latin1, view->fat);
        }
    }
    if (delay > 0) {
        std::this_thread::sleep_for(std::chrono::microseconds(delay));
    }
    return 0;
}

bool IsControl(const char* path)
{
    return std::strcmp(path, kControlPath) == 0;
}

std::string Counters()
{
    const CLockGuard<CMutex> lock(g_state.mutex);
    std::ostringstream out;
    out << "calls " << g_state.calls << "\nreaddir " << g_state.counts[EOp::Readdir] << "\nstat "
        << g_state.counts[EOp::Stat] << "\nread " << g_state.counts[EOp::Read] << "\npulled "
        << g_state.pulledErrno << "\n";
    return out.str();
}

bool ParseOp(const std::string& word, EOp& op)
{
    if (word == "readdir") {
        op = EOp::Readdir;
    } else if (word == "stat") {
        op = EOp::Stat;
    } else if (word == "read") {
        op = EOp::Read;
    } else if (word == "calls") {
        op = EOp::Other;
    } else {
        return false;
    }
    return true;
}

int ParseErrno(const std::string& word)
{
    if (word == "eio") {
        return EIO;
    }
    if (word == "enodev") {
        return ENODEV;
    }
    return 0;
}

// The calls of that kind served since the mount (EOp::Other: all calls).
unsigned long long ServedLocked(EOp op) REQUIRES(g_state.mutex)
{
    return op == EOp::Other ? g_state.calls : g_state.counts[op];
}

// Runs one command; 0 or a negative errno.
int RunCommand(const std::string& text)
{
    std::istringstream in(text);
    std::string verb;
    in >> verb;
    CUniqueLock lock(g_state.mutex);
    if (verb == "fail-read") {
        std::string path;
        long long bytes = -1;
        in >> path >> bytes;
        if (path.empty() || bytes < 0) {
            return -EINVAL;
        }
        g_state.failReadAfter[path[0] == '/' ? path : "/" + path] = bytes;
    } else if (verb == "pull") {
        std::string word;
        in >> word;
        const int code = ParseErrno(word);
        if (code == 0) {
            return -EINVAL;
        }
        g_state.pulledErrno = code;
    } else if (verb == "pull-after") {
        long long calls = -1;
        std::string word;
        in >> calls >> word;
        const int code = ParseErrno(word);
        if (calls < 0 || code == 0) {
            return -EINVAL;
        }
        g_state.pullAfterCalls = calls;
        g_state.pullAfterErrno = code;
    } else if (verb == "pull-at") {
        std::string path;
        std::string word;
        in >> path >> word;
        const int code = ParseErrno(word);
        if (path.empty() || code == 0) {
            return -EINVAL;
        }
        g_state.pullAt[path[0] == '/' ? path : "/" + path] = code;
    } else if (verb == "unpull") {
        g_state.pulledErrno = 0;
        g_state.pullAfterCalls = -1;
        g_state.pullAt.clear();
    } else if (verb == "delay") {
        std::string word;
        long microseconds = -1;
        in >> word >> microseconds;
        EOp op;
        if (!ParseOp(word, op) || op == EOp::Other || microseconds < 0) {
            return -EINVAL;
        }
        g_state.delayMicroseconds[op] = microseconds;
    } else if (verb == "types" || verb == "latin1" || verb == "fat") {
        std::string word;
        in >> word;
        if (word != "on" && word != "off") {
            return -EINVAL;
        }
        bool& flag = verb == "types" ? g_state.types : verb == "latin1" ? g_state.latin1 : g_state.fat;
        flag = word == "on";
    } else if (verb == "wait") {
        std::string word;
        unsigned long long count = 0;
        in >> word >> count;
        EOp op;
        if (!ParseOp(word, op)) {
            return -EINVAL;
        }
        // A loop rather than a predicate: the analysis sees the lock held here,
        // not inside a lambda.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        while (ServedLocked(op) < count) {
            if (g_state.changed.wait_until(lock.Native(), deadline) == std::cv_status::timeout &&
                ServedLocked(op) < count) {
                return -ETIMEDOUT;
            }
        }
    } else {
        return -EINVAL;
    }
    return 0;
}

void* Init(fuse_conn_info*, fuse_config* config)
{
    // Nothing cached in the kernel: every call reaches the file system, so a
    // pull takes effect at once.
    config->direct_io = 1;
    config->kernel_cache = 0;
    config->entry_timeout = 0;
    config->negative_timeout = 0;
    config->attr_timeout = 0;
    config->use_ino = 0;
    if (g_state.readyFd >= 0) {
        const char ready = '1';
        if (::write(g_state.readyFd, &ready, 1) != 1) {
            std::perror("faultfs: ready");
        }
        ::close(g_state.readyFd);
        g_state.readyFd = -1;
    }
    return nullptr;
}

int GetAttr(const char* path, struct stat* st, fuse_file_info*)
{
    if (IsControl(path)) {
        std::memset(st, 0, sizeof(*st));
        st->st_mode = S_IFREG | 0666;
        st->st_nlink = 1;
        return 0;
    }
    SView view;
    if (const int gate = Gate(EOp::Stat, path, &view); gate != 0) {
        return gate;
    }
    if (::lstat(view.source.c_str(), st) != 0) {
        return -errno;
    }
    if (view.fat && S_ISLNK(st->st_mode)) {
        return -ENOENT;
    }
    return 0;
}

int ReadDir(const char* path, void* buffer, fuse_fill_dir_t fill, off_t, fuse_file_info*, fuse_readdir_flags)
{
    SView view;
    if (const int gate = Gate(EOp::Readdir, path, &view); gate != 0) {
        return gate;
    }
    DIR* dir = ::opendir(view.source.c_str());
    if (dir == nullptr) {
        return -errno;
    }
    while (const dirent* entry = ::readdir(dir)) {
        if (view.fat && entry->d_type == DT_LNK) {
            continue;
        }
        struct stat st {};
        st.st_ino = entry->d_ino;
        st.st_mode = view.types ? static_cast<mode_t>(DTTOIF(entry->d_type)) : 0;
        const std::string name = view.latin1 ? Utf8ToLatin1(entry->d_name) : std::string(entry->d_name);
        if (fill(buffer, name.c_str(), &st, 0, static_cast<fuse_fill_dir_flags>(0)) != 0) {
            break;
        }
    }
    ::closedir(dir);
    return 0;
}

int Open(const char* path, fuse_file_info* info)
{
    info->direct_io = 1;
    if (IsControl(path)) {
        info->fh = static_cast<uint64_t>(-1);
        return 0;
    }
    if ((info->flags & O_ACCMODE) != O_RDONLY) {
        return -EROFS;
    }
    SView view;
    if (const int gate = Gate(EOp::Other, path, &view); gate != 0) {
        return gate;
    }
    const int fd = ::open(view.source.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return -errno;
    }
    info->fh = static_cast<uint64_t>(fd);
    return 0;
}

int Read(const char* path, char* buffer, size_t size, off_t offset, fuse_file_info* info)
{
    if (IsControl(path)) {
        const std::string text = Counters();
        if (offset >= static_cast<off_t>(text.size())) {
            return 0;
        }
        const size_t count = std::min(size, text.size() - static_cast<size_t>(offset));
        std::memcpy(buffer, text.data() + offset, count);
        return static_cast<int>(count);
    }
    if (const int gate = Gate(EOp::Read, path); gate != 0) {
        return gate;
    }
    {
        const CLockGuard<CMutex> lock(g_state.mutex);
        const auto found = g_state.failReadAfter.find(path);
        if (found != g_state.failReadAfter.end()) {
            if (offset >= found->second) {
                return -EIO;
            }
            size = std::min<size_t>(size, static_cast<size_t>(found->second - offset));
        }
    }
    const ssize_t count = ::pread(static_cast<int>(info->fh), buffer, size, offset);
    return count < 0 ? -errno : static_cast<int>(count);
}

int Write(const char* path, const char* buffer, size_t size, off_t, fuse_file_info*)
{
    if (!IsControl(path)) {
        return -EROFS;
    }
    const int result = RunCommand(std::string(buffer, size));
    return result != 0 ? result : static_cast<int>(size);
}

int Truncate(const char* path, off_t, fuse_file_info*)
{
    return IsControl(path) ? 0 : -EROFS;
}

int Release(const char* path, fuse_file_info* info)
{
    if (!IsControl(path)) {
        ::close(static_cast<int>(info->fh));
    }
    return 0;
}

int StatFs(const char* path, struct statvfs* st)
{
    SView view;
    if (const int gate = Gate(EOp::Stat, path, &view); gate != 0) {
        return gate;
    }
    return ::statvfs(view.source.c_str(), st) == 0 ? 0 : -errno;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s SOURCE MOUNTPOINT READY_FD\n", argv[0]);
        return 2;
    }
    char* resolved = ::realpath(argv[1], nullptr);
    if (resolved == nullptr) {
        std::perror("faultfs: source");
        return 2;
    }
    g_state.source = resolved;
    std::free(resolved);
    g_state.readyFd = std::atoi(argv[3]);

    fuse_operations operations{};
    operations.init = Init;
    operations.getattr = GetAttr;
    operations.readdir = ReadDir;
    operations.open = Open;
    operations.read = Read;
    operations.write = Write;
    operations.truncate = Truncate;
    operations.release = Release;
    operations.statfs = StatFs;

    std::vector<std::string> arguments{argv[0], argv[2], "-f", "-o", "fsname=faultfs,subtype=faultfs"};
    if (::geteuid() == 0) {
        arguments.back() += ",allow_other";
    }
    std::vector<char*> raw;
    for (std::string& argument : arguments) {
        raw.push_back(argument.data());
    }
    return fuse_main(static_cast<int>(raw.size()), raw.data(), &operations, nullptr);
}
