// One pass of a tag scan over a stick's storage index: every audio file to
// the store, the progress after each, an early end on the stop flag, and a
// failure only when the stick stops giving readable files.
#include "library/TagScan.h"

#include "library/StorageIndex.h"
#include "library/TagStore.h"
#include "tests/support/MediaFactory.h"
#include "tests/support/StickRootTest.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

using testing_support::MediaFactory;
using testing_support::WriteFile;

namespace {

constexpr double kSeconds = 1.0;

std::string Numbered(const std::string& prefix, int number, const std::string& extension)
{
    char name[64];
    std::snprintf(name, sizeof name, "%s%02d%s", prefix.c_str(), number, extension.c_str());
    return name;
}

class TagScanTest : public testing_support::StickRootTest {
protected:
    void SetUp() override
    {
        StickRootTest::SetUp();
        ASSERT_TRUE(m_store.Open(m_dir / "tags.sqlite")) << m_store.LastError();
    }

    void PlaceSong(const std::string& relativePath, const std::string& title)
    {
        MediaFactory::Place(MediaFactory::Mp3(kSeconds, title, "Band"), Stick() + "/" + relativePath);
    }
    // Bytes no tag reader can parse, under an audio file's name.
    void PlaceBroken(const std::string& relativePath) { WriteFile(Stick() + "/" + relativePath, std::string(4096, 'Z')); }

    // Indexes the stick, then runs a pass over it inside a scan of the store.
    ETagScanEnd Scan(const std::function<void(uint32_t, uint32_t)>& onProgress = {})
    {
        BuildStorageIndex(m_index, Stick(), EWalkScope::kSticksOnly);
        return RunPass(onProgress);
    }
    ETagScanEnd RunPass(const std::function<void(uint32_t, uint32_t)>& onProgress = {})
    {
        EXPECT_TRUE(m_store.BeginScan()) << m_store.LastError();
        CTagScanPass pass(m_store, m_stop, [&](uint32_t scanned, uint32_t total) {
            m_progress.emplace_back(scanned, total);
            if (onProgress) {
                onProgress(scanned, total);
            }
        });
        const ETagScanEnd end = pass.Run(m_index);
        EXPECT_TRUE(m_store.EndScan(end == ETagScanEnd::kComplete)) << m_store.LastError();
        return end;
    }

    std::vector<STrackEntry> Tracks() { return m_store.Tracks(PageFrom(0, 1000)).items; }

    CTagStore m_store;
    CStorageIndex m_index;
    std::atomic<bool> m_stop{false};
    std::vector<std::pair<uint32_t, uint32_t>> m_progress;
};

}  // namespace

TEST_F(TagScanTest, EveryAudioFileIsStoredWithProgressAfterEach)
{
    PlaceSong("Rock/a.mp3", "Alpha");
    PlaceSong("Rock/b.mp3", "Beta");
    PlaceSong("Jazz/c.mp3", "Gamma");
    WriteFile(Stick() + "/Jazz/notes.txt", "not audio");
    EXPECT_EQ(Scan(), ETagScanEnd::kComplete);
    EXPECT_EQ(CTagScanPass::CountTracks(m_index), 3u);
    const std::vector<std::pair<uint32_t, uint32_t>> expected = {{1, 3}, {2, 3}, {3, 3}};
    EXPECT_EQ(m_progress, expected);
    const SLibraryCounts counts = m_store.Counts();
    EXPECT_EQ(counts.tracks, 3u);
    EXPECT_EQ(counts.artists, 1u);
    std::vector<std::string> titles;
    for (const STrackEntry& track : Tracks()) {
        titles.push_back(track.title);
    }
    EXPECT_EQ(titles, (std::vector<std::string>{"Alpha", "Beta", "Gamma"}));
}

TEST_F(TagScanTest, AnEmptyIndexCompletesWithNoProgress)
{
    EXPECT_EQ(Scan(), ETagScanEnd::kComplete);
    EXPECT_TRUE(m_progress.empty());
    EXPECT_EQ(m_store.TrackCount(), 0u);
}

TEST_F(TagScanTest, TheStopFlagEndsThePassBeforeTheNextFile)
{
    for (int song = 1; song <= 5; ++song) {
        PlaceSong(Numbered("s", song, ".mp3"), "Song " + std::to_string(song));
    }
    const ETagScanEnd end = Scan([this](uint32_t scanned, uint32_t) {
        if (scanned == 2) {
            m_stop = true;
        }
    });
    EXPECT_EQ(end, ETagScanEnd::kStopped);
    ASSERT_EQ(m_progress.size(), 2u) << "a file was handled after the stop";
    EXPECT_EQ(m_progress.back(), std::make_pair(2u, 5u));
    EXPECT_EQ(m_store.TrackCount(), 2u);
}

TEST_F(TagScanTest, ARaisedStopFlagHandlesNoFile)
{
    PlaceSong("a.mp3", "Alpha");
    m_stop = true;
    EXPECT_EQ(Scan(), ETagScanEnd::kStopped);
    EXPECT_TRUE(m_progress.empty());
    EXPECT_EQ(m_store.TrackCount(), 0u);
}

TEST_F(TagScanTest, TwentyUnreadableFilesInARowFailThePass)
{
    for (int broken = 1; broken <= 20; ++broken) {
        PlaceBroken(Numbered("a", broken, ".wma"));
    }
    PlaceSong("b.mp3", "After");
    EXPECT_EQ(Scan(), ETagScanEnd::kFailed);
    EXPECT_EQ(m_progress.size(), 19u) << "the twentieth ends the pass";
    // What was found is stored: the twenty, not the file after them.
    EXPECT_EQ(m_store.TrackCount(), 20u);
}

TEST_F(TagScanTest, NineteenUnreadableThenAGoodOneGoOn)
{
    for (int broken = 1; broken <= 19; ++broken) {
        PlaceBroken(Numbered("a", broken, ".wma"));
    }
    PlaceSong("b.mp3", "Between");
    for (int broken = 1; broken <= 19; ++broken) {
        PlaceBroken(Numbered("c", broken, ".wma"));
    }
    EXPECT_EQ(Scan(), ETagScanEnd::kComplete);
    EXPECT_EQ(m_progress.size(), 39u);
    EXPECT_EQ(m_store.TrackCount(), 39u);
    // An unreadable file lists under its name.
    const auto found = m_store.SearchTracks("a07", PageFrom(0, 10)).items;
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].title, "a07.wma");
    EXPECT_TRUE(found[0].titleIsName);
}

TEST_F(TagScanTest, AFileThatCannotBeLocatedIsStoredByItsName)
{
    PlaceSong("Music/gone.mp3", "Gone Song");
    PlaceSong("Music/moved.mp3", "Moved Song");
    PlaceSong("Music/stays.mp3", "Staying");
    MediaFactory::Place(MediaFactory::Mp3(kSeconds, "Outside", "Elsewhere"), m_dir / "outside/elsewhere.mp3");
    BuildStorageIndex(m_index, Stick(), EWalkScope::kSticksOnly);
    // After the walk, one file goes and one becomes a link off the stick.
    ASSERT_EQ(unlink((Stick() + "/Music/gone.mp3").c_str()), 0);
    ASSERT_EQ(unlink((Stick() + "/Music/moved.mp3").c_str()), 0);
    ASSERT_EQ(symlink((m_dir / "outside/elsewhere.mp3").c_str(), (Stick() + "/Music/moved.mp3").c_str()), 0);
    EXPECT_EQ(RunPass(), ETagScanEnd::kComplete);
    const std::vector<STrackEntry> tracks = Tracks();
    ASSERT_EQ(tracks.size(), 3u);
    for (const STrackEntry& track : tracks) {
        if (track.name == "stays.mp3") {
            EXPECT_EQ(track.title, "Staying");
            continue;
        }
        EXPECT_EQ(track.title, track.name) << "the tags of a file off the stick were read";
        EXPECT_TRUE(track.titleIsName) << track.name;
        EXPECT_EQ(track.artist, "") << track.name;
    }
}
