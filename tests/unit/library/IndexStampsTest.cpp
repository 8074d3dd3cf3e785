// The stamps of a storage index's audio files, taken on two threads when the
// machine has two cores: the size and modification time of every regular
// file, none for a link or a file gone since the walk, none after a stop.
#include "library/IndexStamps.h"

#include "library/StorageIndex.h"
#include "tests/support/StickRootTest.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <string>

using testing_support::WriteFile;

namespace {

class IndexStampsTest : public testing_support::StickRootTest {
protected:
    // Sixty folders of three files each, of sizes that tell them apart.
    void PlaceFolders()
    {
        for (int folder = 0; folder < 60; ++folder) {
            for (int file = 0; file < 3; ++file) {
                char path[64];
                std::snprintf(path, sizeof path, "/F%02d/t%d.mp3", folder, file);
                WriteFile(Stick() + path, std::string(static_cast<size_t>(folder * 3 + file + 1), 'x'));
            }
        }
    }

    CStorageIndex m_index;
    std::atomic<bool> m_stop{false};
};

}  // namespace

TEST_F(IndexStampsTest, EveryFileHasItsSizeAndModificationTime)
{
    PlaceFolders();
    BuildStorageIndex(m_index, Stick(), EWalkScope::kSticksOnly);
    const CIndexStamps stamps(m_index, m_stop, true);
    size_t files = 0;
    for (size_t position = 0; position < m_index.Size(); ++position) {
        const CFile record = m_index.At(position);
        if (record.m_isFolder) {
            EXPECT_EQ(stamps.At(position), nullptr) << record.m_name;
            continue;
        }
        ++files;
        const SFileStamp* stamp = stamps.At(position);
        ASSERT_NE(stamp, nullptr) << record.m_path << "/" << record.m_name;
        SFileStamp expected;
        ASSERT_TRUE(ReadFileStamp(record.m_path + "/" + record.m_name, expected));
        EXPECT_EQ(stamp->size, expected.size) << record.m_name;
        EXPECT_EQ(stamp->modifiedNs, expected.modifiedNs) << record.m_name;
    }
    EXPECT_EQ(files, 180u);
}

TEST_F(IndexStampsTest, ALinkOrAFileGoneSinceTheWalkHasNoStamp)
{
    PlaceFolders();
    BuildStorageIndex(m_index, Stick(), EWalkScope::kSticksOnly);
    // After the walk: one file becomes a link to a file elsewhere, one goes.
    WriteFile(m_dir / "outside.mp3", "outside");
    ASSERT_EQ(unlink((Stick() + "/F10/t1.mp3").c_str()), 0);
    ASSERT_EQ(symlink((m_dir / "outside.mp3").c_str(), (Stick() + "/F10/t1.mp3").c_str()), 0);
    ASSERT_EQ(unlink((Stick() + "/F50/t2.mp3").c_str()), 0);
    const CIndexStamps stamps(m_index, m_stop, true);
    for (size_t position = 0; position < m_index.Size(); ++position) {
        const CFile record = m_index.At(position);
        const std::string path = record.m_path + "/" + record.m_name;
        const bool gone = path == Stick() + "/F10/t1.mp3" || path == Stick() + "/F50/t2.mp3";
        if (!record.m_isFolder) {
            EXPECT_EQ(stamps.At(position) == nullptr, gone) << path;
        }
    }
}

TEST_F(IndexStampsTest, OnOneThreadTheStampsAreTheSame)
{
    PlaceFolders();
    BuildStorageIndex(m_index, Stick(), EWalkScope::kSticksOnly);
    const CIndexStamps spread(m_index, m_stop, true);
    const CIndexStamps alone(m_index, m_stop, false);
    for (size_t position = 0; position < m_index.Size(); ++position) {
        ASSERT_EQ(spread.At(position) == nullptr, alone.At(position) == nullptr) << position;
        if (alone.At(position) != nullptr) {
            EXPECT_EQ(spread.At(position)->size, alone.At(position)->size);
            EXPECT_EQ(spread.At(position)->modifiedNs, alone.At(position)->modifiedNs);
        }
    }
}

TEST_F(IndexStampsTest, ARaisedStopStampsNothing)
{
    PlaceFolders();
    BuildStorageIndex(m_index, Stick(), EWalkScope::kSticksOnly);
    m_stop = true;
    const CIndexStamps stamps(m_index, m_stop, true);
    for (size_t position = 0; position < m_index.Size(); ++position) {
        EXPECT_EQ(stamps.At(position), nullptr);
    }
}
