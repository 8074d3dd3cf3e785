#pragma once

#include <unistd.h>

#include <utility>

namespace Json {
namespace Rpc {

// Owns one file descriptor (a socket, an eventfd) and closes it.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : m_fd(fd) {}
    ~FileDescriptor() { Reset(); }
    FileDescriptor(FileDescriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        if (this != &other) {
            Reset(std::exchange(other.m_fd, -1));
        }
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int Get() const { return m_fd; }
    bool IsValid() const { return m_fd >= 0; }
    // Gives the descriptor up without closing it.
    int Release() { return std::exchange(m_fd, -1); }
    void Reset(int fd = -1)
    {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
        m_fd = fd;
    }

private:
    int m_fd = -1;
};

}  // namespace Rpc
}  // namespace Json
