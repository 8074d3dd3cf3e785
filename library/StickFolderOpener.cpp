#include "library/StickFolderOpener.h"

#include <fcntl.h>

#include <algorithm>
#include <utility>

CStickFolderOpener::CStickFolderOpener(std::string start)
    : m_start(std::move(start)), m_confinedStart(ConfineToSticks(m_start))
{
}

int CStickFolderOpener::Open(const std::string& folder)
{
    if (m_opened && folder == m_folder) {
        return m_folderFd;
    }
    m_opened = true;
    m_folder = folder;
    m_folderFd = -1;
    const std::optional<std::string> rest = RestBelowStart(folder);
    if (rest) {
        m_folderFd = OpenBelowStart(*rest);
        return m_folderFd;
    }
    const std::optional<SStickPath> confined = ConfineToSticks(folder);
    m_otherFolder = confined ? OpenConfinedFolder(*confined) : UniqueFd();
    m_folderFd = m_otherFolder.Get();
    return m_folderFd;
}

// A folder of the walk lies below its start, which was resolved once: the
// walk follows no link, so what follows the start in its path are real
// folders. None for any other folder, which is resolved on its own.
std::optional<std::string> CStickFolderOpener::RestBelowStart(const std::string& folder) const
{
    const std::string& start = m_start;
    if (!m_confinedStart || start.empty() || folder.compare(0, start.size(), start) != 0) {
        return std::nullopt;
    }
    if (start.back() != '/' && folder.size() > start.size() && folder[start.size()] != '/') {
        return std::nullopt;  // a sibling whose name merely begins like the start
    }
    const size_t rest = folder.find_first_not_of('/', start.size());
    return rest == std::string::npos ? std::string() : folder.substr(rest);
}

// Opens the folder `rest` below the start one name at a time, never following
// a link, from the deepest folder of the last one opened that it shares: the
// walk gives each folder's files together, so most folders cost one open.
int CStickFolderOpener::OpenBelowStart(const std::string& rest)
{
    if (m_chain.empty()) {
        UniqueFd start = OpenConfinedFolder(*m_confinedStart);
        if (!start.IsValid()) {
            return -1;
        }
        m_chain.push_back({std::string(), std::move(start)});
    }
    std::vector<std::string> names;
    for (size_t at = 0; at < rest.size();) {
        const size_t end = std::min(rest.find('/', at), rest.size());
        if (end > at) {
            names.push_back(rest.substr(at, end - at));
        }
        at = end + 1;
    }
    size_t shared = 0;
    while (shared < names.size() && shared + 1 < m_chain.size() && m_chain[shared + 1].name == names[shared]) {
        ++shared;
    }
    m_chain.resize(shared + 1);
    for (size_t i = shared; i < names.size(); ++i) {
        UniqueFd next(openat(m_chain.back().fd.Get(), names[i].c_str(),
                             O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!next.IsValid()) {
            return -1;
        }
        m_chain.push_back({names[i], std::move(next)});
    }
    return m_chain.back().fd.Get();
}
