#pragma once

#include <set>
#include <string>

namespace testing_support {

// A fresh directory under $TMPDIR (or /tmp), removed with its contents at
// the end of the test.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& Path() const { return m_path; }
    std::string operator/(const std::string& relative) const { return m_path + "/" + relative; }

private:
    std::string m_path;
};

// A fresh directory "<prefix>-XXXXXX" in memory (/dev/shm) when that is
// there, else in /tmp, removed with its contents at the end: for trees of
// thousands of files, which are slow to make and remove on disk.
class MemoryTempDir {
public:
    explicit MemoryTempDir(const std::string& prefix);
    ~MemoryTempDir();
    MemoryTempDir(const MemoryTempDir&) = delete;
    MemoryTempDir& operator=(const MemoryTempDir&) = delete;

    const std::string& Path() const { return m_path; }
    std::string operator/(const std::string& relative) const { return m_path + "/" + relative; }

private:
    std::string m_path;
};

// Creates a directory and its parents.
void MakeDirs(const std::string& path);
// Writes a file, creating its parents.
void WriteFile(const std::string& path, const std::string& contents);
std::string ReadFile(const std::string& path);
// Every name in `directory` but "." and "..", sorted; none when it cannot be read.
std::set<std::string> FolderNames(const std::string& directory);
void RemoveTree(const std::string& path);

}  // namespace testing_support
