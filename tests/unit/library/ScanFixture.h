#pragma once

// A scanner test's tree: files made below a fresh directory, the list the
// scan fills, and the records described relative to the tree's root.

#include "library/FileList.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace library_test {

// "D name" for a folder, "F name" for a file, each with its folder path
// relative to `root`.
inline std::vector<std::string> Describe(const CFileList& list, const std::string& root)
{
    std::vector<std::string> lines;
    for (const CFile& file : list.m_files) {
        std::string path = file.m_path;
        if (path.compare(0, root.size(), root) == 0) {
            path = "." + path.substr(root.size());
        }
        lines.push_back((file.m_isFolder ? "D " : "F ") + path + " " + file.m_name);
    }
    return lines;
}

class ScanTest : public testing::Test {
protected:
    // A small file at `relative` below the root, its folders made.
    void Touch(const std::string& relative) { testing_support::WriteFile(dir / relative, "abc"); }
    std::string Root() const { return dir.Path(); }

    testing_support::TempDir dir;
    CFileList list;
};

}  // namespace library_test
