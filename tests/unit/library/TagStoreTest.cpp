// The tag store of one stick: a scan of real tagged files, the derived
// artists, albums and genres, their orders, search, paging, and rescans.
#include "library/TagStore.h"

#include "library/FileId.h"
#include "tests/support/TempDir.h"
#include "tests/support/TagCorpus.h"

#include <gtest/gtest.h>

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

using testing_support::AudioFilesBelow;
using testing_support::Corpus;
using testing_support::MakeTaggedFiles;
using testing_support::TempDir;

namespace {
std::string Folder(const std::string& path)
{
    return path.substr(0, path.rfind('/'));
}

std::string Name(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

template <typename Item>
std::vector<std::string> Names(const SPage<Item>& page)
{
    std::vector<std::string> names;
    for (const Item& item : page.items) {
        names.push_back(item.name);
    }
    return names;
}

std::vector<std::string> Titles(const SPage<STrackEntry>& page)
{
    std::vector<std::string> titles;
    for (const STrackEntry& track : page.items) {
        titles.push_back(track.title);
    }
    return titles;
}

class TagStoreTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NO_FATAL_FAILURE(MakeTaggedFiles(Stick(), Corpus()));
        ASSERT_TRUE(m_store.Open(Database())) << m_store.LastError();
        ASSERT_NO_FATAL_FAILURE(Scan(m_store));
    }

    std::string Stick() const { return m_dir / "stick"; }
    std::string Database() const { return m_dir / "stick.db"; }

    // A complete scan of the stick into `store`, counting the tag reads.
    void Scan(CTagStore& store, bool complete = true, bool rebuild = true)
    {
        ASSERT_TRUE(store.BeginScan()) << store.LastError();
        for (const std::string& path : AudioFilesBelow(Stick())) {
            SFileStamp stamp;
            ASSERT_TRUE(ReadFileStamp(path, stamp)) << path;
            const auto counted = [this, &path] {
                ++m_reads;
                return ReadTags(path);
            };
            store.EnterFolder(Folder(path));
            ASSERT_NE(store.AddFile(Name(path), stamp, counted), CTagStore::EAddOutcome::Failed)
                << path << ": " << store.LastError();
        }
        ASSERT_TRUE(store.EndScan(complete, rebuild)) << store.LastError();
    }

    const SCategoryEntry& Artist(const std::string& name)
    {
        m_artists = m_store.Artists(PageFrom(0, 100));
        for (const SCategoryEntry& artist : m_artists.items) {
            if (artist.name == name) {
                return artist;
            }
        }
        ADD_FAILURE() << "no artist " << name;
        static const SCategoryEntry none;
        return none;
    }

    SAlbumEntry Album(const std::string& name, const std::string& artist)
    {
        for (const SAlbumEntry& album : m_store.Albums(PageFrom(0, 100)).items) {
            if (album.name == name && album.artist == artist) {
                return album;
            }
        }
        ADD_FAILURE() << "no album " << name << " by " << artist;
        return SAlbumEntry();
    }

    TempDir m_dir;
    CTagStore m_store;
    int m_reads = 0;
    SPage<SCategoryEntry> m_artists;
};
}  // namespace

TEST_F(TagStoreTest, EveryFileIsATrackWithTheFileIdOfItsFolderAndName)
{
    EXPECT_EQ(m_store.TrackCount(), Corpus().size());
    EXPECT_EQ(m_reads, static_cast<int>(Corpus().size()));
    const auto tracks = m_store.TracksByAlbum(Album("Hits 2000", "Various Artists").id, PageFrom(0, 10));
    ASSERT_EQ(tracks.items.size(), 2u);
    EXPECT_EQ(tracks.items[0].fileId, FileId(Stick() + "/Comp", "a.mp3"));
    EXPECT_EQ(tracks.items[0].name, "a.mp3");
    EXPECT_EQ(tracks.items[0].path, Stick() + "/Comp");
}

TEST_F(TagStoreTest, ArtistsInFoldedOrderWithTheirCounts)
{
    const auto artists = m_store.Artists(PageFrom(0, 100));
    EXPECT_EQ(Names(artists), (std::vector<std::string>{"", "ABBA", "Alpha", "Beta", "Queen", "Various Artists",
                                                         "Vintage Band", "Wave Artist", "Zoë"}));
    EXPECT_EQ(artists.totalCount, 9u);
    const SCategoryEntry& zoe = Artist("Zoë");
    EXPECT_EQ(zoe.id, FileId("", "Zoë"));
    EXPECT_EQ(zoe.albumCount, 1u);
    EXPECT_EQ(zoe.trackCount, 3u);
    // The compilation's artist holds its two tracks, each by an artist of its own too.
    EXPECT_EQ(Artist("Various Artists").trackCount, 2u);
    EXPECT_EQ(Artist("Alpha").albumCount, 1u);
    // The untagged and the unreadable file: one artist "", on the one album "".
    EXPECT_EQ(Artist("").trackCount, 2u);
    EXPECT_EQ(Artist("").albumCount, 1u);
}

TEST_F(TagStoreTest, ACompilationIsOneAlbumAndOneNameByTwoArtistsIsTwo)
{
    const auto albums = m_store.Albums(PageFrom(0, 100));
    EXPECT_EQ(Names(albums), (std::vector<std::string>{"", "Classics", "Été", "Greatest Hits", "Greatest Hits",
                                                        "Hits 2000", "Wave Album"}));
    EXPECT_EQ(albums.items[3].artist, "ABBA");
    EXPECT_EQ(albums.items[4].artist, "Queen");
    EXPECT_NE(albums.items[3].id, albums.items[4].id);
    const SAlbumEntry hits = Album("Hits 2000", "Various Artists");
    EXPECT_EQ(hits.trackCount, 2u);
    EXPECT_EQ(hits.year, 2000u);
    EXPECT_EQ(hits.id, FileId("Various Artists", "/Hits 2000"));
    EXPECT_EQ(Album("", "").trackCount, 2u);
}

TEST_F(TagStoreTest, AnAlbumsTracksByDiscThenTrackNumber)
{
    const auto tracks = m_store.TracksByAlbum(Album("Été", "Zoë").id, PageFrom(0, 10));
    EXPECT_EQ(Titles(tracks), (std::vector<std::string>{"Aube", "Café Noir", "Ünïcödé ☃"}));
    EXPECT_EQ(tracks.items[1].trackNumber, 3u);
    EXPECT_EQ(tracks.items[2].discNumber, 2u);
    EXPECT_EQ(tracks.items[0].album, "Été");
    EXPECT_EQ(tracks.items[0].artist, "Zoë");
    EXPECT_GE(tracks.items[0].duration, 1u);
    EXPECT_EQ(tracks.totalCount, 3u);
}

TEST_F(TagStoreTest, UntaggedAndUnreadableTracksShowTheirFileNames)
{
    const auto tracks = m_store.TracksByAlbum(Album("", "").id, PageFrom(0, 10));
    EXPECT_EQ(Titles(tracks), (std::vector<std::string>{"broken.wma", "none.mp3"}));
}

TEST_F(TagStoreTest, AlbumsAndTracksOfAnArtist)
{
    // ABBA's album first (1975), then Queen's track appears under Queen only.
    EXPECT_EQ(Names(m_store.AlbumsByArtist(Artist("Queen").id, PageFrom(0, 10))), (std::vector<std::string>{"Greatest Hits"}));
    EXPECT_EQ(m_store.AlbumsByArtist(Artist("Queen").id, PageFrom(0, 10)).items[0].artist, "Queen");
    EXPECT_EQ(Titles(m_store.TracksByArtist(Artist("Zoë").id, PageFrom(0, 10))),
              (std::vector<std::string>{"Aube", "Café Noir", "Ünïcödé ☃"}));
    EXPECT_EQ(Titles(m_store.TracksByArtist(Artist("Various Artists").id, PageFrom(0, 10))),
              (std::vector<std::string>{"First Hit", "Second Hit"}));
    EXPECT_EQ(Names(m_store.AlbumsByArtist(Artist("Beta").id, PageFrom(0, 10))), (std::vector<std::string>{"Hits 2000"}));
}

TEST_F(TagStoreTest, GenresWithTheirAlbumsAndTracks)
{
    const auto genres = m_store.Genres(PageFrom(0, 10));
    EXPECT_EQ(Names(genres), (std::vector<std::string>{"", "Ambient", "Jazz", "Pop", "Rock"}));
    const SCategoryEntry& pop = genres.items[3];
    EXPECT_EQ(pop.id, FileId("", "Pop"));
    EXPECT_EQ(pop.albumCount, 2u);  // ABBA's Greatest Hits and the compilation
    EXPECT_EQ(pop.trackCount, 3u);
    const auto albums = m_store.AlbumsByGenre(pop.id, PageFrom(0, 10));
    EXPECT_EQ(Names(albums), (std::vector<std::string>{"Greatest Hits", "Hits 2000"}));
    EXPECT_EQ(albums.items[0].artist, "ABBA");
    EXPECT_EQ(Titles(m_store.TracksByGenre(pop.id, PageFrom(0, 10))),
              (std::vector<std::string>{"Dancing", "First Hit", "Second Hit"}));
    EXPECT_EQ(Titles(m_store.TracksByGenre(genres.items[4].id, PageFrom(0, 10))),
              (std::vector<std::string>{"Old Song", "Bohemian"}));
}

TEST_F(TagStoreTest, SearchIgnoresCaseAndAccents)
{
    const auto cafe = m_store.SearchTracks("cafe", PageFrom(0, 10));
    ASSERT_EQ(cafe.totalCount, 1u);
    EXPECT_EQ(cafe.items[0].title, "Café Noir");
    EXPECT_EQ(cafe.items[0].name, "01.mp3");
    EXPECT_EQ(cafe.items[0].path, Stick() + "/Rock/Ete");
    EXPECT_EQ(cafe.items[0].fileId, FileId(Stick() + "/Rock/Ete", "01.mp3"));
    EXPECT_EQ(m_store.SearchTracks("CAFÉ", PageFrom(0, 10)).totalCount, 1u);
    EXPECT_EQ(m_store.SearchArtists("cafe", PageFrom(0, 10)).totalCount, 0u);

    const auto zoe = m_store.SearchArtists("ZOE", PageFrom(0, 10));
    ASSERT_EQ(zoe.totalCount, 1u);
    EXPECT_EQ(zoe.items[0].name, "Zoë");
    EXPECT_EQ(m_store.SearchTracks("ZOE", PageFrom(0, 10)).totalCount, 0u);

    // Each kind is a list of its own, in name order.
    const auto albums = m_store.SearchAlbums("hit", PageFrom(0, 10));
    ASSERT_EQ(albums.totalCount, 3u);
    EXPECT_EQ(albums.items[0].artist, "ABBA");
    EXPECT_EQ(albums.items[2].name, "Hits 2000");
    EXPECT_EQ(Titles(m_store.SearchTracks("hit", PageFrom(0, 10))),
              (std::vector<std::string>{"First Hit", "Second Hit"}));
    EXPECT_EQ(m_store.SearchTracks("", PageFrom(0, 10)).totalCount, 0u);
    EXPECT_EQ(m_store.SearchAlbums("nothing like it", PageFrom(0, 10)).totalCount, 0u);
}

TEST_F(TagStoreTest, PagingEdges)
{
    const auto middle = m_store.Artists(PageFrom(2, 3));
    EXPECT_EQ(Names(middle), (std::vector<std::string>{"Alpha", "Beta", "Queen"}));
    EXPECT_EQ(middle.totalCount, 9u);
    const auto rest = m_store.Artists(PageFrom(7, 100));
    EXPECT_EQ(Names(rest), (std::vector<std::string>{"Wave Artist", "Zoë"}));
    const auto pastEnd = m_store.Artists(PageFrom(9, 5));
    EXPECT_TRUE(pastEnd.items.empty());
    EXPECT_EQ(pastEnd.totalCount, 9u);
    const auto none = m_store.Albums(PageFrom(0, 0));
    EXPECT_TRUE(none.items.empty());
    EXPECT_EQ(none.totalCount, 7u);
    EXPECT_TRUE(m_store.SearchAlbums("hit", PageFrom(5, 5)).items.empty());
    EXPECT_EQ(Titles(m_store.TracksByAlbum(Album("Été", "Zoë").id, PageFrom(2, 1))), (std::vector<std::string>{"Ünïcödé ☃"}));
    EXPECT_TRUE(m_store.TracksByArtist(12345, PageFrom(0, 10)).items.empty());
}

TEST_F(TagStoreTest, ARescanOfAnUnchangedStickReadsNoFile)
{
    m_store.Close();
    CTagStore again;  // as after a re-plug: the file is all that is left
    ASSERT_TRUE(again.Open(Database())) << again.LastError();
    m_reads = 0;
    ASSERT_NO_FATAL_FAILURE(Scan(again));
    EXPECT_EQ(m_reads, 0);
    EXPECT_EQ(again.TrackCount(), Corpus().size());
    EXPECT_EQ(again.Artists(PageFrom(0, 100)).totalCount, 9u);
}

TEST_F(TagStoreTest, AChangedFileIsReadAgain)
{
    testing_support::STaggedFile retagged = Corpus()[6];  // Queen's track
    retagged.tags["artist"] = "Queen & Co";
    ASSERT_NO_FATAL_FAILURE(MakeTaggedFiles(Stick(), {retagged}));
    m_reads = 0;
    ASSERT_NO_FATAL_FAILURE(Scan(m_store));
    EXPECT_EQ(m_reads, 1);
    const auto queen = m_store.SearchArtists("queen", PageFrom(0, 10));
    ASSERT_EQ(queen.totalCount, 1u);
    EXPECT_EQ(queen.items[0].name, "Queen & Co");
}

TEST_F(TagStoreTest, AFileNoLongerThereIsRemovedWithWhatOnlyItHeld)
{
    ASSERT_EQ(unlink((Stick() + "/Wav/info.wav").c_str()), 0);
    m_reads = 0;
    ASSERT_NO_FATAL_FAILURE(Scan(m_store));
    EXPECT_EQ(m_reads, 0);
    EXPECT_EQ(m_store.TrackCount(), Corpus().size() - 1);
    EXPECT_EQ(m_store.SearchArtists("wave", PageFrom(0, 10)).totalCount, 0u);
    EXPECT_EQ(Names(m_store.Genres(PageFrom(0, 10))), (std::vector<std::string>{"", "Jazz", "Pop", "Rock"}));
}

// The files a store holds can be stat'ed before the walk has found them: one
// found with its stored stamp needs no stamp of the walk's, one changed does.
TEST_F(TagStoreTest, KnownFilesVerifiedUnchangedNeedNoStampAndAChangedOneIsRead)
{
    testing_support::STaggedFile retagged = Corpus()[6];  // Queen's track
    retagged.tags["artist"] = "Queen & Co";
    ASSERT_NO_FATAL_FAILURE(MakeTaggedFiles(Stick(), {retagged}));
    ASSERT_TRUE(m_store.BeginScan()) << m_store.LastError();
    std::vector<std::string> folders;
    m_store.BeginVerify();
    m_store.VerifyKnownFiles([&folders](const std::string& folder, const std::string& name, SFileStamp& stamp) {
        folders.push_back(folder);
        return ReadFileStamp(folder + "/" + name, stamp);
    });
    EXPECT_TRUE(m_store.KnownFilesVerified());
    EXPECT_EQ(folders.size(), Corpus().size());
    EXPECT_TRUE(std::is_sorted(folders.begin(), folders.end())) << "folders go in path order";
    m_reads = 0;
    for (const std::string& path : AudioFilesBelow(Stick())) {
        m_store.EnterFolder(Folder(path));
        if (m_store.SeeVerifiedFile(Name(path))) {
            continue;
        }
        EXPECT_EQ(Name(path), "queen.mp3");
        SFileStamp stamp;
        ASSERT_TRUE(ReadFileStamp(path, stamp));
        EXPECT_EQ(m_store.AddFile(Name(path), stamp, [&] { ++m_reads; return ReadTags(path); }),
                  CTagStore::EAddOutcome::Read);
    }
    ASSERT_TRUE(m_store.EndScan(true)) << m_store.LastError();
    EXPECT_EQ(m_reads, 1);
    EXPECT_EQ(m_store.TrackCount(), Corpus().size());
    EXPECT_EQ(m_store.SearchArtists("queen & co", PageFrom(0, 10)).totalCount, 1u);
}

// Two threads verify at once, sharing the folders: each file is checked once.
TEST_F(TagStoreTest, TwoThreadsVerifyingShareTheFolders)
{
    ASSERT_TRUE(m_store.BeginScan()) << m_store.LastError();
    m_store.BeginVerify();
    std::vector<std::string> first;
    std::vector<std::string> second;
    const auto recorder = [](std::vector<std::string>& into) {
        return [&into](const std::string& folder, const std::string& name, SFileStamp& stamp) {
            into.push_back(folder + "/" + name);
            return ReadFileStamp(folder + "/" + name, stamp);
        };
    };
    std::thread other([&] { m_store.VerifyKnownFiles(recorder(second)); });
    m_store.VerifyKnownFiles(recorder(first));
    other.join();
    std::vector<std::string> both = first;
    both.insert(both.end(), second.begin(), second.end());
    std::sort(both.begin(), both.end());
    EXPECT_EQ(both, AudioFilesBelow(Stick()));
    for (const std::string& path : AudioFilesBelow(Stick())) {
        m_store.EnterFolder(Folder(path));
        EXPECT_TRUE(m_store.SeeVerifiedFile(Name(path))) << path;
    }
    ASSERT_TRUE(m_store.EndScan(true)) << m_store.LastError();
    EXPECT_EQ(m_store.TrackCount(), Corpus().size());
}

// A file verified before the walk but not found by it (gone meanwhile) is
// removed at a complete end like any other file not found.
TEST_F(TagStoreTest, AVerifiedFileTheWalkDidNotFindIsRemoved)
{
    ASSERT_TRUE(m_store.BeginScan()) << m_store.LastError();
    m_store.BeginVerify();
    m_store.VerifyKnownFiles([](const std::string& folder, const std::string& name, SFileStamp& stamp) {
        return ReadFileStamp(folder + "/" + name, stamp);
    });
    for (const std::string& path : AudioFilesBelow(Stick())) {
        if (Name(path) != "info.wav") {
            m_store.EnterFolder(Folder(path));
            EXPECT_TRUE(m_store.SeeVerifiedFile(Name(path))) << path;
        }
    }
    ASSERT_TRUE(m_store.EndScan(true)) << m_store.LastError();
    EXPECT_EQ(m_store.TrackCount(), Corpus().size() - 1);
    EXPECT_EQ(m_store.SearchArtists("wave", PageFrom(0, 10)).totalCount, 0u);
}

TEST_F(TagStoreTest, AScanStoppedEarlyRemovesNothing)
{
    ASSERT_EQ(unlink((Stick() + "/Wav/info.wav").c_str()), 0);
    ASSERT_NO_FATAL_FAILURE(Scan(m_store, false));
    EXPECT_EQ(m_store.TrackCount(), Corpus().size());
}

namespace {
// Runs `sql` on the database file at `path` through a connection of its own.
void ExecuteOn(const std::string& path, const std::string& sql)
{
    sqlite3* opened = nullptr;
    sqlite3_open(path.c_str(), &opened);
    const SqliteHandle database(opened);
    std::string error;
    ASSERT_TRUE(SqliteExec(database.get(), sql, error)) << sql << ": " << error;
}

std::vector<std::string> TrackIndexes(const std::string& path)
{
    sqlite3* opened = nullptr;
    sqlite3_open(path.c_str(), &opened);
    const SqliteHandle database(opened);
    CSqliteStatement names(database.get(),
                           "SELECT name FROM sqlite_master WHERE type = 'index' AND tbl_name = 'tracks' ORDER BY name");
    std::vector<std::string> found;
    while (names.Step()) {
        found.push_back(names.Text(0));
    }
    return found;
}
}  // namespace

// A track keeps the album ID it was stored with unless the rebuild finds
// another: one stored under a wrong ID (as when another name held its hash)
// is moved to its album's.
TEST_F(TagStoreTest, ATrackUnderAnotherAlbumIdIsMovedToItsAlbumsByTheNextRebuild)
{
    const uint32_t album = Album("Greatest Hits", "Queen").id;
    ASSERT_EQ(m_store.TracksByAlbum(album, PageFrom(0, 10)).totalCount, 1u);
    m_store.Close();
    ASSERT_NO_FATAL_FAILURE(ExecuteOn(Database(), "UPDATE tracks SET albumId = 7 WHERE albumId = " +
                                                      std::to_string(album) + "; UPDATE libraryState SET linked = 0;"));
    ASSERT_TRUE(m_store.Open(Database())) << m_store.LastError();
    EXPECT_EQ(m_store.TracksByAlbum(album, PageFrom(0, 10)).totalCount, 0u);
    m_reads = 0;
    ASSERT_NO_FATAL_FAILURE(Scan(m_store));
    EXPECT_EQ(m_reads, 0);
    EXPECT_EQ(m_store.TracksByAlbum(album, PageFrom(0, 10)).totalCount, 1u);
    EXPECT_EQ(m_store.TracksByAlbum(7, PageFrom(0, 10)).totalCount, 0u);
}

// A first scan fills the tracks without their indexes and makes them at its
// end, stopped or not.
TEST_F(TagStoreTest, TheTrackIndexesAreMadeAtTheEndOfAFirstScanEvenAStoppedOne)
{
    const std::vector<std::string> indexes{"tracks_album", "tracks_genre", "tracks_title"};
    EXPECT_EQ(TrackIndexes(Database()), indexes);
    const TempDir other;
    CTagStore store;
    ASSERT_TRUE(store.Open(other / "first.db")) << store.LastError();
    ASSERT_NO_FATAL_FAILURE(Scan(store, false, false));
    EXPECT_EQ(TrackIndexes(other / "first.db"), indexes);
    EXPECT_EQ(store.TrackCount(), Corpus().size());
}

TEST_F(TagStoreTest, TheDatabaseIsInWalModeAndReadableFromASecondConnection)
{
    struct stat info {};
    EXPECT_EQ(stat((Database() + "-wal").c_str(), &info), 0) << "no write-ahead log beside " << Database();
    CTagStore reader;
    ASSERT_TRUE(reader.Open(Database())) << reader.LastError();
    EXPECT_EQ(reader.TrackCount(), Corpus().size());
}

TEST(TagStoreFileTest, AFileThatIsNoDatabaseIsReplacedByAnEmptyOne)
{
    const TempDir dir;
    testing_support::WriteFile(dir / "stick.db", std::string(8192, 'x'));
    CTagStore store;
    ASSERT_TRUE(store.Open(dir / "stick.db")) << store.LastError();
    EXPECT_EQ(store.TrackCount(), 0u);
    EXPECT_TRUE(store.Artists(PageFrom(0, 10)).items.empty());
}

TEST(TagStoreFileTest, AFileCannotBeAddedOutsideAScan)
{
    const TempDir dir;
    CTagStore store;
    ASSERT_TRUE(store.Open(dir / "stick.db")) << store.LastError();
    store.EnterFolder(dir.Path());
    EXPECT_EQ(store.AddFile("a.mp3", SFileStamp(), [] { return STrackTags(); }), CTagStore::EAddOutcome::Failed);
    EXPECT_FALSE(store.EndScan(true));
}

TEST_F(TagStoreTest, TracksStoredByAStoppedScanAreLinkedByTheNextOneThatChangesNothing)
{
    testing_support::STaggedFile retagged = Corpus()[6];  // Queen's track
    retagged.tags["artist"] = "Queen & Co";
    ASSERT_NO_FATAL_FAILURE(MakeTaggedFiles(Stick(), {retagged}));
    ASSERT_NO_FATAL_FAILURE(Scan(m_store, false, false));  // stored, not linked
    EXPECT_EQ(m_store.SearchArtists("queen & co", PageFrom(0, 10)).totalCount, 0u);
    m_reads = 0;
    ASSERT_NO_FATAL_FAILURE(Scan(m_store));
    EXPECT_EQ(m_reads, 0);
    EXPECT_EQ(m_store.SearchArtists("queen & co", PageFrom(0, 10)).totalCount, 1u);
}
