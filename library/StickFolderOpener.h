#pragma once

#include "core/PosixHandles.h"
#include "library/StickPaths.h"

#include <optional>
#include <string>
#include <vector>

// Opens the folders of one walk of a stick, each confined to the stick and
// without following a link, cheaply: the walk's start is resolved once, and
// a folder below it is opened one name at a time from the deepest folder it
// shares with the last one opened (a walk gives each folder's files
// together, so most folders cost one open). Any other folder is resolved on
// its own (ConfineToSticks, OpenConfinedFolder). One object belongs to one
// thread.
class CStickFolderOpener {
public:
    // `start` is where the walk started, as the walk has it.
    explicit CStickFolderOpener(std::string start);

    // The folder `folder` (a path as the walk has it, no trailing "/") open
    // for reading, or -1; valid until the next call.
    int Open(const std::string& folder);

private:
    std::optional<std::string> RestBelowStart(const std::string& folder) const;
    int OpenBelowStart(const std::string& rest);

    const std::string m_start;
    const std::optional<SStickPath> m_confinedStart;
    // The folders open from the start down to the last folder below it (the
    // start's own entry has no name), and the last folder outside it.
    struct SOpenFolder {
        std::string name;
        UniqueFd fd;
    };
    std::vector<SOpenFolder> m_chain;
    UniqueFd m_otherFolder;
    std::string m_folder;  // the folder last asked for, open on m_folderFd
    int m_folderFd = -1;
    bool m_opened = false;
};
