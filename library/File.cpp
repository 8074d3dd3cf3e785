#include "library/File.h"

#include "core/Environment.h"
#include "core/UsbSticks.h"

CFile::CFile(uint32_t id, const std::string& name, const std::string& path, bool isFolder)
    : m_name(StripTrailingSlashes(name)), m_path(StripTrailingSlashes(path)), m_isFolder(isFolder), m_id(id)
{
}

CFile CFile::Root()
{
    return CFile(kNoEntryId, "", SystemPath(kStickMountFolder), true);
}

void CFile::SetName(const std::string& name)
{
    m_name = StripTrailingSlashes(name);
}

void CFile::SetPath(const std::string& path)
{
    m_path = StripTrailingSlashes(path);
}

CTrackInfo::CTrackInfo() : CFile(Root()), m_artist("Untitled"), m_duration(0)
{
}

bool CTrackInfo::SetFromFile(const CFile& file)
{
    if (file.m_isFolder) {
        return false;
    }
    SetPath(file.m_path);
    SetName(file.m_name);
    m_isFolder = false;
    m_title = m_name;
    m_id = file.m_id;
    return true;
}

void CTrackInfo::ClearTrack()
{
    m_title.clear();
    m_artist.clear();
    m_album.clear();
    m_extra.clear();
    m_name.clear();
    m_path.clear();
    m_duration = 0;
}

std::string StripTrailingSlashes(std::string text)
{
    while (text.size() > 1 && text.back() == '/') {
        text.pop_back();
    }
    return text;
}

std::string ToLowerCopy(const std::string& text)
{
    std::string lower(text);
    for (char& c : lower) {
        c = ToLowerAscii(c);
    }
    return lower;
}
