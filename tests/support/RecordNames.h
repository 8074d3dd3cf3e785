#pragma once

#include "library/File.h"

#include <string>
#include <vector>

namespace testing_support {

// The names of file records in their order, for comparing listings.
inline std::vector<std::string> RecordNames(const std::vector<CFile>& files)
{
    std::vector<std::string> names;
    names.reserve(files.size());
    for (const CFile& file : files) {
        names.push_back(file.m_name);
    }
    return names;
}

}  // namespace testing_support
