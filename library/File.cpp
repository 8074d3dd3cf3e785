// Placeholder bodies, replaced as the subsystem is built.
#include "library/File.h"

CFile::CFile(uint32_t id, const std::string& name, const std::string& path, bool isFolder)
    : m_name(name), m_path(path), m_isFolder(isFolder), m_id(id)
{
}
CFile CFile::Root() { return CFile(kNoEntryId, "", "/mnt", true); }
void CFile::SetName(const std::string& name) { m_name = name; }
void CFile::SetPath(const std::string& path) { m_path = path; }
CTrackInfo::CTrackInfo() : CFile(Root()), m_artist("Untitled"), m_duration(0) {}
bool CTrackInfo::SetFromFile(const CFile&) { return false; }
void CTrackInfo::ClearTrack() {}
std::string StripTrailingSlashes(std::string text) { return text; }
std::string ToLowerCopy(const std::string& text) { return text; }
