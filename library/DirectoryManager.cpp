#include "library/DirectoryManager.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <utility>

CDirectoryManager::CDirectoryManager(const std::string& path)
    : m_path(path), m_fd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC))
{
}

CDirectoryManager::CDirectoryManager(const std::string& path, UniqueFd folder) : m_path(path), m_fd(std::move(folder))
{
}

CDirectoryManager::~CDirectoryManager() = default;

CDirectoryManager::CDirectoryManager(CDirectoryManager&& other) noexcept
    : m_path(std::move(other.m_path)),
      m_fd(std::move(other.m_fd)),
      m_buffer(std::move(other.m_buffer)),
      m_filled(std::exchange(other.m_filled, 0)),
      m_next(std::exchange(other.m_next, 0))
{
}

CDirectoryManager& CDirectoryManager::operator=(CDirectoryManager&& other) noexcept
{
    if (this != &other) {
        m_path = std::move(other.m_path);
        m_fd = std::move(other.m_fd);
        m_buffer = std::move(other.m_buffer);
        m_filled = std::exchange(other.m_filled, 0);
        m_next = std::exchange(other.m_next, 0);
    }
    return *this;
}

const dirent64* CDirectoryManager::ReadEntry()
{
    if (!m_fd.IsValid()) {
        return nullptr;
    }
    if (m_next >= m_filled) {
        if (!m_buffer) {
            m_buffer.reset(new char[kBufferBytes]);  // not zeroed: the kernel fills what is read
        }
        const ssize_t read = getdents64(m_fd.Get(), m_buffer.get(), kBufferBytes);
        m_next = 0;
        m_filled = read > 0 ? static_cast<size_t>(read) : 0;
        if (m_filled == 0) {
            return nullptr;  // the end, or a read error with errno set
        }
    }
    const auto* entry = reinterpret_cast<const dirent64*>(m_buffer.get() + m_next);
    m_next += entry->d_reclen;
    return entry;
}

UniqueFd CDirectoryManager::OpenSubfolder(const std::string& name) const
{
    if (!m_fd.IsValid()) {
        return UniqueFd();
    }
    return UniqueFd(openat(m_fd.Get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

bool CDirectoryManager::Identity(SDirectoryIdentity& identity) const
{
    struct stat status {};
    if (!m_fd.IsValid() || fstat(m_fd.Get(), &status) != 0) {
        return false;
    }
    identity.device = status.st_dev;
    identity.inode = status.st_ino;
    return true;
}

void CDirectoryManager::Close()
{
    m_fd.Reset();
    m_buffer.reset();
    m_filled = m_next = 0;
}
