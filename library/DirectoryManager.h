#pragma once

#include <dirent.h>

#include <string>

// Owns one open directory stream: opened in the constructor, closed in the
// destructor (or earlier by Close). Movable, not copyable.
class CDirectoryManager {
public:
    explicit CDirectoryManager(const std::string& path);
    ~CDirectoryManager();
    CDirectoryManager(CDirectoryManager&& other) noexcept;
    CDirectoryManager& operator=(CDirectoryManager&& other) noexcept;
    CDirectoryManager(const CDirectoryManager&) = delete;
    CDirectoryManager& operator=(const CDirectoryManager&) = delete;

    bool IsOpen() const { return m_dir != nullptr; }
    const std::string& Path() const { return m_path; }

    // The next entry, or null at the end or on a read error (errno tells
    // which: the caller sets it to 0 before the call). Valid until the next
    // call or until the directory is closed.
    const dirent* ReadEntry();

    void Close();

private:
    std::string m_path;
    DIR* m_dir = nullptr;
};
