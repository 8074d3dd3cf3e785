#include "player/AlbumArtFiles.h"

#include "core/PosixHandles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace {
constexpr mode_t kArtDirectoryMode = 0770;
// Names someone else took are skipped, but only this many in a row: a
// folder filled by another program must not turn one write into a long
// probe.
constexpr int kMaxTakenNames = 64;
// More digits than this are not a number the sequence reaches.
constexpr size_t kMaxDigits = 18;
constexpr const char* kPrefix = "art";
constexpr const char* kSuffix = ".dat";

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool EndsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}
}  // namespace

CAlbumArtFiles::CAlbumArtFiles(std::string directory, size_t keptFiles)
    : m_directory(std::move(directory)), m_keptFiles(keptFiles)
{
}

std::string CAlbumArtFiles::FileName(uint64_t sequence)
{
    if (sequence == 0) {
        return std::string(kPrefix) + kSuffix;
    }
    return kPrefix + std::to_string(sequence - 1) + kSuffix;
}

bool CAlbumArtFiles::ParseFileName(const std::string& name, uint64_t& sequence)
{
    const std::string prefix(kPrefix);
    const std::string suffix(kSuffix);
    if (name.size() < prefix.size() + suffix.size() || name.compare(0, prefix.size(), prefix) != 0 ||
        !EndsWith(name, suffix)) {
        return false;
    }
    const std::string digits = name.substr(prefix.size(), name.size() - prefix.size() - suffix.size());
    if (digits.empty()) {
        sequence = 0;
        return true;
    }
    const bool canonical = digits.size() <= kMaxDigits && (digits.size() == 1 || digits[0] != '0');
    if (!canonical || !std::all_of(digits.begin(), digits.end(), IsDigit)) {
        return false;
    }
    sequence = std::stoull(digits) + 1;
    return true;
}

std::string CAlbumArtFiles::PathOf(uint64_t sequence) const
{
    return m_directory + "/" + FileName(sequence);
}

std::string CAlbumArtFiles::Write(const std::vector<uint8_t>& bytes)
{
    if (bytes.size() > kMaxImageBytes) {
        return std::string();
    }
    const CLockGuard<CMutex> lock(m_mutex);
    // A second round only when the folder vanished since it was read.
    for (int round = 0; round < 2; ++round) {
        if (!m_learned && !LearnFolderLocked()) {
            return std::string();
        }
        std::string path;
        if (CreateNextLocked(bytes, path)) {
            RemoveBeyondKeptLocked();
            return path;
        }
        if (m_learned) {
            return std::string();
        }
    }
    return std::string();
}

// Reads the folder once: the next number follows the highest name found,
// and names beyond the newest kKeptFiles (left by an earlier run, or by a
// version that kept them all) are removed. A missing folder is created.
bool CAlbumArtFiles::LearnFolderLocked()
{
    m_kept.clear();
    m_next = 0;
    DirPtr folder(opendir(m_directory.c_str()));
    if (!folder) {
        if (errno != ENOENT || mkdir(m_directory.c_str(), kArtDirectoryMode) != 0) {
            return false;
        }
        // chmod as well: the process umask must not narrow the mode.
        chmod(m_directory.c_str(), kArtDirectoryMode);
        m_learned = true;
        return true;
    }
    std::vector<uint64_t> found;
    while (const dirent* entry = readdir(folder.get())) {
        uint64_t sequence = 0;
        if (ParseFileName(entry->d_name, sequence)) {
            found.push_back(sequence);
        }
    }
    folder.reset();
    std::sort(found.begin(), found.end());
    m_kept.assign(found.begin(), found.end());
    m_next = found.empty() ? 0 : found.back() + 1;
    RemoveBeyondKeptLocked();
    m_learned = true;
    return true;
}

// Creates the next name exclusively (never over another file) and writes
// the bytes. Returns true with `path` once the file was created, even when
// the disk took fewer bytes than given.
bool CAlbumArtFiles::CreateNextLocked(const std::vector<uint8_t>& bytes, std::string& path)
{
    for (int attempt = 0; attempt < kMaxTakenNames; ++attempt) {
        const uint64_t sequence = m_next;
        path = PathOf(sequence);
        const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor < 0 && errno == EEXIST) {
            ++m_next;  // not ours: skipped and left alone
            continue;
        }
        if (descriptor < 0) {
            // The folder went away: read (and make) it again next time.
            m_learned = m_learned && errno != ENOENT;
            return false;
        }
        ++m_next;
        FilePtr file(fdopen(descriptor, "w"));
        if (!file) {
            close(descriptor);
            unlink(path.c_str());
            return false;
        }
        m_kept.push_back(sequence);
        if (!bytes.empty()) {
            std::fwrite(bytes.data(), 1, bytes.size(), file.get());
        }
        return true;
    }
    return false;
}

void CAlbumArtFiles::RemoveBeyondKeptLocked()
{
    while (m_kept.size() > m_keptFiles) {
        unlink(PathOf(m_kept.front()).c_str());
        m_kept.pop_front();
    }
}
