// The scanner's explicit-stack walk against a plain recursive walk written
// straight from the rules: same records in the same order, also where the
// scanner had to read folders ahead and close them (deeper than its limit
// of open directories) and where equal names leave the order to the sort.
#include "library/FileList.h"

#include "library/FileId.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <dirent.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

using testing_support::TempDir;
using testing_support::WriteFile;

namespace {

constexpr int kDepth = 150;  // well past the scanner's open-directory limit

struct SOptions {
    std::string search;
    bool recursive;
    bool withFolders;
};

bool IsAudio(const std::string& lowerName)
{
    const std::string extension = lowerName.substr(lowerName.size() - 4);
    return extension == ".wma" || extension == ".mp3" || extension == ".wav";
}

// The walk as the rules state it, recursing on the C++ stack.
bool ReferenceWalk(std::vector<CFile>& out, const std::string& path, const SOptions& options, int level)
{
    DIR* dp = opendir(path.c_str());
    if (dp == nullptr) {
        return false;
    }
    const std::string search = ToLowerCopy(options.search);
    bool found = false;
    while (const dirent* entry = readdir(dp)) {
        const std::string name = entry->d_name;
        if (entry->d_type == DT_DIR) {
            if (name[0] == '.') {
                continue;
            }
            const std::string child = path + (path.back() == '/' ? "" : "/") + name;
            if (!ReferenceWalk(out, child, options, level + 1)) {
                continue;
            }
            if (options.recursive && options.withFolders) {
                out.emplace_back(FileId(path, name), name, path, true);
                found = true;
            } else if (options.recursive) {
                found = true;
            } else if (level == 0) {
                out.emplace_back(FileId(path, name), name, path, true);
                found = true;
            } else {
                closedir(dp);
                return true;
            }
        } else if (entry->d_type == DT_REG) {
            const std::string lower = ToLowerCopy(name);
            if (name.size() < 5 || lower[0] == '.' || !IsAudio(lower) || lower.find(search) == std::string::npos) {
                continue;
            }
            if (!options.recursive && level > 0) {
                closedir(dp);
                return true;
            }
            out.emplace_back(FileId(path, name), name, path, false);
            found = true;
        }
    }
    closedir(dp);
    if (options.withFolders) {
        return found;
    }
    return level == 0 && !out.empty();
}

using Record = std::tuple<uint32_t, std::string, std::string, bool>;

std::vector<Record> Records(const std::vector<CFile>& files)
{
    std::vector<Record> records;
    for (const CFile& file : files) {
        records.emplace_back(file.m_id, file.m_name, file.m_path, file.m_isFolder);
    }
    return records;
}

// A chain d/d/d/... where every level holds songs with the same names, a
// side folder with more of them, a hidden song and a text file.
void BuildTree(const std::string& root)
{
    std::string level = root;
    for (int i = 0; i < kDepth; ++i) {
        for (const char* name : {"01.mp3", "Song.WAV", ".hidden.mp3", "notes.txt"}) {
            WriteFile(level + "/" + name, "abc");
        }
        if (i % 3 == 0) {
            WriteFile(level + "/e/01.mp3", "abc");
            WriteFile(level + "/e/x.wma", "abc");
        }
        if (i % 5 == 0) {
            WriteFile(level + "/empty/readme.txt", "abc");
        }
        level += "/d";
    }
}

class WalkOrderTest : public testing::TestWithParam<SOptions> {
protected:
    static void SetUpTestSuite()
    {
        dir = std::make_unique<TempDir>();
        BuildTree(dir->Path());
    }
    static void TearDownTestSuite() { dir.reset(); }

    static std::unique_ptr<TempDir> dir;
};

std::unique_ptr<TempDir> WalkOrderTest::dir;

}  // namespace

TEST_P(WalkOrderTest, SameRecordsInTheSameOrderAsTheRecursiveWalk)
{
    const SOptions& options = GetParam();
    CFileList expected;
    const bool expectedFound = ReferenceWalk(expected.m_files, dir->Path(), options, 0);
    if (expectedFound) {
        expected.Sort();
    }
    CFileList list;
    EXPECT_EQ(list.Scan(dir->Path(), options.search, options.recursive, options.withFolders, false), expectedFound);
    EXPECT_EQ(Records(list.m_files), Records(expected.m_files));
    EXPECT_FALSE(list.m_files.empty());
}

INSTANTIATE_TEST_SUITE_P(Modes, WalkOrderTest,
                         testing::Values(SOptions{"", true, true}, SOptions{"", true, false},
                                         SOptions{"", false, false}, SOptions{"", false, true},
                                         SOptions{"01", true, true}, SOptions{"SONG", true, false}));
