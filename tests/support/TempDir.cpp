#include "tests/support/TempDir.h"

#include <dirent.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <ftw.h>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace testing_support {

namespace {
int RemoveEntry(const char* path, const struct stat*, int, struct FTW*)
{
    return ::remove(path);
}
}  // namespace

TempDir::TempDir()
{
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr ? base : "/tmp") + "/usbmedia-test-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    m_path = pattern;
}

TempDir::~TempDir()
{
    RemoveTree(m_path);
}

MemoryTempDir::MemoryTempDir(const std::string& prefix)
{
    std::string pattern = "/dev/shm/" + prefix + "-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        pattern = "/tmp/" + prefix + "-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
    }
    m_path = pattern;
}

MemoryTempDir::~MemoryTempDir()
{
    RemoveTree(m_path);
}

void RemoveTree(const std::string& path)
{
    // Children may have been made unreadable by a test; give them back first.
    nftw(path.c_str(), [](const char* p, const struct stat* st, int type, struct FTW*) {
        if (type == FTW_D || type == FTW_DNR) {
            chmod(p, (st->st_mode & 07777) | S_IRWXU);
        }
        return 0;
    }, 64, FTW_PHYS);
    nftw(path.c_str(), RemoveEntry, 64, FTW_DEPTH | FTW_PHYS);
}

void MakeDirs(const std::string& path)
{
    for (size_t slash = path.find('/', 1); ; slash = path.find('/', slash + 1)) {
        const std::string prefix = path.substr(0, slash);
        ::mkdir(prefix.c_str(), 0755);
        if (slash == std::string::npos) {
            break;
        }
    }
}

void WriteFile(const std::string& path, const std::string& contents)
{
    const size_t slash = path.rfind('/');
    if (slash != std::string::npos && slash > 0) {
        MakeDirs(path.substr(0, slash));
    }
    std::ofstream out(path, std::ios::binary);
    out << contents;
}

std::set<std::string> FolderNames(const std::string& directory)
{
    std::set<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(directory.c_str()), closedir);
    if (!folder) {
        return names;
    }
    while (const dirent* entry = readdir(folder.get())) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.insert(name);
        }
    }
    return names;
}

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream contents;
    contents << in.rdbuf();
    return contents.str();
}

}  // namespace testing_support
