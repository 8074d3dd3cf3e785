#pragma once

#include <cstddef>
#include <string>

// The folder the sticks' tag databases are kept in: one file per stick
// identity (its file system UUID, else its storage checksum), and only the
// sticks used most recently, so a head unit that sees many sticks does not
// fill its storage with the libraries of sticks long gone.
class CTagDatabaseFolder {
public:
    static constexpr size_t kKeptSticks = 8;

    explicit CTagDatabaseFolder(std::string directory);

    // The database file of `identity` ("uuid-..." or "crc-..."), the folder
    // created (as the state folder) when missing; "" when it cannot be.
    std::string PathOf(const std::string& identity) const;

    // Marks the database at `path` as used now and deletes the least
    // recently used ones beyond kKeptSticks, each with its WAL files.
    void MarkUsed(const std::string& path) const;

    // A file name for `identity`: kept as it is when it is short and plain
    // (letters, digits, "-"), else named by its hash.
    static std::string FileNameOf(const std::string& identity);

    const std::string& Directory() const { return m_directory; }

private:
    const std::string m_directory;
};
