#pragma once

#include "core/PosixHandles.h"

#include <dirent.h>
#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <string>
#include <tuple>

// Where a folder lives: the same pair means the same folder, whatever path
// led to it (bind mounts, links, a path cut short by a NUL byte).
struct SDirectoryIdentity {
    dev_t device = 0;
    ino_t inode = 0;

    bool operator<(const SDirectoryIdentity& other) const
    {
        return std::tie(device, inode) < std::tie(other.device, other.inode);
    }
};

// Owns one open directory and reads its entries straight from the kernel
// (getdents64, 32 KiB at a time): opened in the constructor, closed in the
// destructor (or earlier by Close). Movable, not copyable.
class CDirectoryManager {
public:
    explicit CDirectoryManager(const std::string& path);
    // Reads the folder `folder` holds open (not open when it holds none);
    // `path` is the name it is known by.
    CDirectoryManager(const std::string& path, UniqueFd folder);
    ~CDirectoryManager();
    CDirectoryManager(CDirectoryManager&& other) noexcept;
    CDirectoryManager& operator=(CDirectoryManager&& other) noexcept;
    CDirectoryManager(const CDirectoryManager&) = delete;
    CDirectoryManager& operator=(const CDirectoryManager&) = delete;

    bool IsOpen() const { return m_fd.IsValid(); }
    const std::string& Path() const { return m_path; }

    // The next entry, or null at the end or on a read error (errno tells
    // which: the caller sets it to 0 before the call). Valid until the next
    // call or until the directory is closed.
    const dirent64* ReadEntry();

    // Opens the subfolder `name` of the open folder; a link in its place is
    // not followed (it fails), so a folder swapped for a link while the walk
    // is below it leads nowhere. Not open on failure.
    UniqueFd OpenSubfolder(const std::string& name) const;

    // The open folder's device and inode; false when it is not open or
    // cannot be examined.
    bool Identity(SDirectoryIdentity& identity) const;

    void Close();

private:
    static constexpr size_t kBufferBytes = 32768;

    std::string m_path;
    UniqueFd m_fd;
    std::unique_ptr<char[]> m_buffer;  // entries read ahead, from the first read on
    size_t m_filled = 0;               // bytes of them the last read gave
    size_t m_next = 0;                 // where the next entry starts
};
