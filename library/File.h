#pragma once

#include <cstdint>
#include <string>

// Identifier meaning "no entry".
constexpr uint32_t kNoEntryId = 0xFFFFFFFF;

// One folder or audio file: its own name, the folder that holds it, and a
// 32-bit identifier (the hash of path + name; a folder's id is its group ID).
// Both texts are kept without trailing "/" (a text of length 1 is kept as is).
class CFile {
public:
    CFile(uint32_t id, const std::string& name, const std::string& path, bool isFolder);
    virtual ~CFile() = default;
    CFile(const CFile&) = default;
    CFile& operator=(const CFile&) = default;
    CFile(CFile&&) noexcept = default;
    CFile& operator=(CFile&&) noexcept = default;

    // The record a lookup gives when it finds nothing: no name, the "/mnt"
    // path (under USBMEDIA_ROOT when set), a folder, id kNoEntryId.
    static CFile Root();

    void SetName(const std::string& name);
    void SetPath(const std::string& path);
    uint32_t GetId() const { return m_id; }
    const std::string& GetName() const { return m_name; }
    const std::string& GetPath() const { return m_path; }
    bool IsFolder() const { return m_isFolder; }

    std::string m_name;
    std::string m_path;
    bool m_isFolder;
    uint32_t m_id;
};

// The track the player is on: a file record plus its tags.
class CTrackInfo : public CFile {
public:
    CTrackInfo();

    // Takes path, name and id of an audio file record, titles the track with
    // the file name and clears the folder flag. A folder is refused (false)
    // and nothing changes. Artist, album, duration and extra stay.
    bool SetFromFile(const CFile& file);

    // Empties every text (artist included) and the duration; the id stays.
    void ClearTrack();

    std::string m_title;
    std::string m_artist;
    std::string m_album;
    uint32_t m_duration;
    std::string m_extra;
};

// Drops trailing "/" while the text is longer than one byte.
std::string StripTrailingSlashes(std::string text);

// Byte-wise tolower copy ("C" locale, no UTF-8 awareness).
std::string ToLowerCopy(const std::string& text);

// Byte-wise "C" locale tolower of one byte, whatever the process locale.
inline char ToLowerAscii(char c)
{
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}
