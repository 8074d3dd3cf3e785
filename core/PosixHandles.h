#pragma once

// Owning handles for C library streams, directory streams and file
// descriptors, closed on every path.

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <utility>

struct FileClose {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileClose>;

struct DirClose {
    void operator()(DIR* dir) const { closedir(dir); }
};
using DirPtr = std::unique_ptr<DIR, DirClose>;

// Owns one file descriptor (-1: none).
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_fd(fd) {}
    ~UniqueFd() { Reset(); }
    UniqueFd(UniqueFd&& other) noexcept : m_fd(other.Release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        if (this != &other) {
            Reset(other.Release());
        }
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int Get() const { return m_fd; }
    bool IsValid() const { return m_fd >= 0; }

    // Hands the descriptor over; the owner then holds none.
    int Release() { return std::exchange(m_fd, -1); }
    void Reset(int fd = -1)
    {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
        m_fd = fd;
    }
    // Closes now and says whether the close succeeded: after a write, a
    // failing close can be the first report of lost data.
    bool Close() { return ::close(std::exchange(m_fd, -1)) == 0; }

private:
    int m_fd = -1;
};
