#include "library/DirectoryManager.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <utility>

CDirectoryManager::CDirectoryManager(const std::string& path) : m_path(path), m_dir(opendir(path.c_str()))
{
}

CDirectoryManager::CDirectoryManager(const std::string& path, UniqueFd folder) : m_path(path)
{
    if (!folder.IsValid()) {
        return;
    }
    m_dir = fdopendir(folder.Get());
    if (m_dir != nullptr) {
        folder.Release();  // the stream owns it now
    }
}

CDirectoryManager::~CDirectoryManager()
{
    Close();
}

CDirectoryManager::CDirectoryManager(CDirectoryManager&& other) noexcept
    : m_path(std::move(other.m_path)), m_dir(std::exchange(other.m_dir, nullptr))
{
}

CDirectoryManager& CDirectoryManager::operator=(CDirectoryManager&& other) noexcept
{
    if (this != &other) {
        Close();
        m_path = std::move(other.m_path);
        m_dir = std::exchange(other.m_dir, nullptr);
    }
    return *this;
}

const dirent* CDirectoryManager::ReadEntry()
{
    return m_dir != nullptr ? readdir(m_dir) : nullptr;
}

UniqueFd CDirectoryManager::OpenSubfolder(const std::string& name) const
{
    if (m_dir == nullptr) {
        return UniqueFd();
    }
    return UniqueFd(openat(dirfd(m_dir), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

bool CDirectoryManager::Identity(SDirectoryIdentity& identity) const
{
    struct stat status {};
    if (m_dir == nullptr || fstat(dirfd(m_dir), &status) != 0) {
        return false;
    }
    identity.device = status.st_dev;
    identity.inode = status.st_ino;
    return true;
}

void CDirectoryManager::Close()
{
    if (m_dir != nullptr) {
        closedir(m_dir);
        m_dir = nullptr;
    }
}
