#include "library/TagDatabaseFolder.h"

#include "core/Environment.h"
#include "core/PosixHandles.h"
#include "library/FileId.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>
#include <vector>

namespace {
constexpr const char* kPrefix = "tags-";
constexpr const char* kSuffix = ".sqlite";
constexpr size_t kMaxPlainIdentity = 64;

bool IsPlain(const std::string& identity)
{
    if (identity.empty() || identity.size() > kMaxPlainIdentity) {
        return false;
    }
    return std::all_of(identity.begin(), identity.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-';
    });
}

bool IsDatabaseName(const std::string& name)
{
    const std::string prefix = kPrefix;
    const std::string suffix = kSuffix;
    return name.size() > prefix.size() + suffix.size() && name.compare(0, prefix.size(), prefix) == 0 &&
           name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0;
}

int64_t ModifiedNs(const struct stat& info)
{
    return static_cast<int64_t>(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec;
}

void RemoveDatabase(const std::string& path)
{
    for (const char* suffix : {"", "-wal", "-shm"}) {
        unlink((path + suffix).c_str());
    }
}
}  // namespace

CTagDatabaseFolder::CTagDatabaseFolder(std::string directory) : m_directory(std::move(directory)) {}

std::string CTagDatabaseFolder::FileNameOf(const std::string& identity)
{
    if (IsPlain(identity)) {
        return kPrefix + identity + kSuffix;
    }
    char hash[16];
    std::snprintf(hash, sizeof hash, "%08x", FileId("", identity));
    return kPrefix + std::string("id-") + hash + kSuffix;
}

std::string CTagDatabaseFolder::PathOf(const std::string& identity) const
{
    if (!MakeStateDirectory(m_directory)) {
        return std::string();
    }
    return m_directory + "/" + FileNameOf(identity);
}

void CTagDatabaseFolder::MarkUsed(const std::string& path) const
{
    // The modification time is the time of last use; a scan writes the WAL
    // file, not always this one.
    utimensat(AT_FDCWD, path.c_str(), nullptr, 0);
    std::vector<std::pair<int64_t, std::string>> databases;
    const DirPtr folder(opendir(m_directory.c_str()));
    if (!folder) {
        return;
    }
    while (const dirent* entry = readdir(folder.get())) {
        const std::string name = entry->d_name;
        struct stat info {};
        const std::string candidate = m_directory + "/" + name;
        if (IsDatabaseName(name) && stat(candidate.c_str(), &info) == 0 && S_ISREG(info.st_mode)) {
            databases.emplace_back(ModifiedNs(info), candidate);
        }
    }
    if (databases.size() <= kKeptSticks) {
        return;
    }
    // Newest first; the one just used is never dropped.
    std::sort(databases.begin(), databases.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    size_t kept = 0;
    for (const auto& [modified, candidate] : databases) {
        if (candidate == path || kept < kKeptSticks - 1) {
            kept += candidate == path ? 0 : 1;
            continue;
        }
        RemoveDatabase(candidate);
    }
}
