#include "library/TagStore.h"

#include "library/FileId.h"
#include "library/SortKey.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace {
// Raised whenever the tables change shape: a file of another version is
// dropped and scanned again, never migrated (it is a cache of the stick).
constexpr int kSchemaVersion = 1;
// Files written per transaction during a scan.
constexpr uint32_t kBatchSize = 256;

const char* const kSchema = R"sql(
CREATE TABLE tracks(
  path TEXT PRIMARY KEY,          -- folder + "/" + name, the file to read
  folder TEXT NOT NULL,
  name TEXT NOT NULL,
  fileId INTEGER NOT NULL,        -- FileId(folder, name)
  size INTEGER NOT NULL,
  modifiedNs INTEGER NOT NULL,
  title TEXT NOT NULL, artist TEXT NOT NULL, albumArtist TEXT NOT NULL,
  album TEXT NOT NULL, genre TEXT NOT NULL,
  year INTEGER NOT NULL, trackNumber INTEGER NOT NULL, trackCount INTEGER NOT NULL,
  discNumber INTEGER NOT NULL, discCount INTEGER NOT NULL, duration INTEGER NOT NULL,
  compilation INTEGER NOT NULL, hasPicture INTEGER NOT NULL, unreadable INTEGER NOT NULL,
  titleKey TEXT NOT NULL,         -- SortKey of the title, or of the name without one
  albumId INTEGER NOT NULL DEFAULT 0,
  genreId INTEGER NOT NULL DEFAULT 0);
CREATE INDEX tracks_album ON tracks(albumId);
CREATE INDEX tracks_genre ON tracks(genreId);
CREATE TABLE artists(id INTEGER PRIMARY KEY, name TEXT NOT NULL, sortKey TEXT NOT NULL,
  albumCount INTEGER NOT NULL, trackCount INTEGER NOT NULL);
CREATE TABLE genres(id INTEGER PRIMARY KEY, name TEXT NOT NULL, sortKey TEXT NOT NULL,
  albumCount INTEGER NOT NULL, trackCount INTEGER NOT NULL);
CREATE TABLE albums(id INTEGER PRIMARY KEY, name TEXT NOT NULL, artist TEXT NOT NULL,
  sortKey TEXT NOT NULL, artistSortKey TEXT NOT NULL, year INTEGER NOT NULL, trackCount INTEGER NOT NULL);
-- A track is by its artist and by its album's artist (one row when they are the same).
CREATE TABLE trackArtists(track INTEGER NOT NULL, artistId INTEGER NOT NULL, PRIMARY KEY(artistId, track));
)sql";

const char* const kDropAll = R"sql(
DROP TABLE IF EXISTS tracks; DROP TABLE IF EXISTS artists; DROP TABLE IF EXISTS genres;
DROP TABLE IF EXISTS albums; DROP TABLE IF EXISTS trackArtists;
)sql";

const char* const kUpsertTrack = R"sql(
INSERT INTO tracks(path, folder, name, fileId, size, modifiedNs, title, artist, albumArtist, album, genre,
  year, trackNumber, trackCount, discNumber, discCount, duration, compilation, hasPicture, unreadable, titleKey)
VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15, ?16, ?17, ?18, ?19, ?20, ?21)
ON CONFLICT(path) DO UPDATE SET fileId = ?4, size = ?5, modifiedNs = ?6, title = ?7, artist = ?8,
  albumArtist = ?9, album = ?10, genre = ?11, year = ?12, trackNumber = ?13, trackCount = ?14,
  discNumber = ?15, discCount = ?16, duration = ?17, compilation = ?18, hasPicture = ?19,
  unreadable = ?20, titleKey = ?21, albumId = 0, genreId = 0)sql";

const char* const kTrackColumns =
    "t.fileId, t.name, t.folder, t.title, t.artist, t.album, "
    "t.trackNumber, t.discNumber, t.duration";

void RemoveDatabaseFiles(const std::string& path)
{
    for (const char* suffix : {"", "-wal", "-shm"}) {
        unlink((path + suffix).c_str());
    }
}

bool IsVariousArtists(const std::string& name)
{
    return SortKey(name) == SortKey(CTagStore::kVariousArtists);
}

// The artist an album belongs to: one "Various Artists" for every
// compilation, else the album artist when tagged, else the track's artist.
// Tracks without an album name form one album, of no artist.
std::string AlbumArtist(const std::string& album, const std::string& albumArtist, const std::string& artist,
                        bool compilation)
{
    if (album.empty()) {
        return std::string();
    }
    if (compilation || IsVariousArtists(albumArtist)) {
        return CTagStore::kVariousArtists;
    }
    return albumArtist.empty() ? artist : albumArtist;
}

uint32_t NameId(const std::string& name)
{
    return FileId("", name);
}

// Albums are keyed (artist, name); the hash reads them as "artist/name".
using AlbumKey = std::pair<std::string, std::string>;
uint32_t AlbumId(const AlbumKey& key)
{
    return FileId(key.first, "/" + key.second);
}

uint32_t ToUint(int64_t value)
{
    return static_cast<uint32_t>(value);
}

STrackEntry TrackFrom(const CSqliteStatement& row)
{
    STrackEntry track;
    track.fileId = ToUint(row.Integer(0));
    track.name = row.Text(1);
    track.path = row.Text(2);
    track.title = row.Text(3);
    if (track.title.empty()) {
        track.title = track.name;
        track.titleIsName = true;
    }
    track.artist = row.Text(4);
    track.album = row.Text(5);
    track.trackNumber = ToUint(row.Integer(6));
    track.discNumber = ToUint(row.Integer(7));
    track.duration = ToUint(row.Integer(8));
    return track;
}

SCategoryEntry CategoryFrom(const CSqliteStatement& row)
{
    return SCategoryEntry{ToUint(row.Integer(0)), row.Text(1), ToUint(row.Integer(2)), ToUint(row.Integer(3))};
}

SAlbumEntry AlbumFrom(const CSqliteStatement& row)
{
    return SAlbumEntry{ToUint(row.Integer(0)), row.Text(1), row.Text(2), ToUint(row.Integer(3)),
                       ToUint(row.Integer(4))};
}

// What one scan derives from the tracks: the rows of the three tables and
// each track's links to them.
struct SIdentities {
    struct STrackRow {
        int64_t rowId = 0;
        std::string artist;
        AlbumKey album;
        std::string genre;
        uint32_t year = 0;
    };
    std::vector<STrackRow> tracks;
    std::set<std::string> artistNames;
    std::set<AlbumKey> albumKeys;
    std::set<std::string> genreNames;
};

SIdentities LoadIdentities(sqlite3* database)
{
    SIdentities identities;
    CSqliteStatement rows(database,
                          "SELECT rowid, artist, albumArtist, album, genre, compilation, year FROM tracks");
    while (rows.Step()) {
        SIdentities::STrackRow track;
        track.rowId = rows.Integer(0);
        track.artist = rows.Text(1);
        const std::string album = rows.Text(3);
        track.album = AlbumKey(AlbumArtist(album, rows.Text(2), track.artist, rows.Integer(5) != 0), album);
        track.genre = rows.Text(4);
        track.year = ToUint(rows.Integer(6));
        identities.artistNames.insert(track.artist);
        if (!track.album.first.empty()) {
            identities.artistNames.insert(track.album.first);
        }
        identities.albumKeys.insert(track.album);
        identities.genreNames.insert(track.genre);
        identities.tracks.push_back(std::move(track));
    }
    return identities;
}

// Counts gathered per artist or genre.
struct SCounts {
    std::set<uint32_t> albums;
    uint32_t tracks = 0;
};
struct SAlbumCounts {
    uint32_t year = 0;
    uint32_t tracks = 0;
};
}  // namespace

bool ReadFileStamp(const std::string& path, SFileStamp& stamp)
{
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) {
        return false;
    }
    stamp.size = static_cast<int64_t>(info.st_size);
    stamp.modifiedNs = static_cast<int64_t>(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec;
    return true;
}

bool CTagStore::Fail(const std::string& what)
{
    m_error = what;
    if (m_database) {
        m_error += ": " + std::string(sqlite3_errmsg(m_database.get()));
    }
    return false;
}

bool CTagStore::Open(const std::string& databasePath)
{
    Close();
    if (OpenFile(databasePath)) {
        return true;
    }
    Close();
    RemoveDatabaseFiles(databasePath);
    return OpenFile(databasePath);
}

bool CTagStore::OpenExisting(const std::string& databasePath)
{
    Close();
    sqlite3* database = nullptr;
    const int opened = sqlite3_open_v2(databasePath.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr);
    m_database.reset(database);
    if (opened != SQLITE_OK) {
        Fail("cannot open " + databasePath);
        Close();
        return false;
    }
    sqlite3_busy_timeout(m_database.get(), 2000);
    CSqliteStatement version(m_database.get(), "PRAGMA user_version");
    if (!version.Step() || version.Integer(0) != kSchemaVersion) {
        version = CSqliteStatement();
        Fail("no library of this layout in " + databasePath);
        Close();
        return false;
    }
    return true;
}

bool CTagStore::OpenFile(const std::string& databasePath)
{
    sqlite3* database = nullptr;
    const int opened =
        sqlite3_open_v2(databasePath.c_str(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    m_database.reset(database);  // owned even when the open failed, to be closed
    if (opened != SQLITE_OK) {
        return Fail("cannot open " + databasePath);
    }
    // A scan holds the write lock for one batch; a reader on another
    // connection waits for it rather than failing at once.
    sqlite3_busy_timeout(m_database.get(), 2000);
    CSqliteStatement version(m_database.get(), "PRAGMA user_version");
    if (!version.Step()) {
        return Fail("cannot read " + databasePath);
    }
    const int64_t found = version.Integer(0);
    version.Reset();
    std::string error;
    // NORMAL is safe with WAL: a power cut may lose the last batch, never
    // the file.
    if (!SqliteExec(m_database.get(), "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;", error)) {
        return Fail("cannot set WAL mode on " + databasePath);
    }
    if (found == kSchemaVersion) {
        return true;
    }
    const std::string create = std::string("BEGIN;") + kDropAll + kSchema +
                               "PRAGMA user_version=" + std::to_string(kSchemaVersion) + "; COMMIT;";
    if (!SqliteExec(m_database.get(), create, error)) {
        m_error = "cannot create the tables: " + error;
        return false;
    }
    return true;
}

void CTagStore::Close()
{
    m_upsert = CSqliteStatement();  // statements go before their connection
    m_database.reset();
    m_scanning = false;
    m_unseen.clear();
}

bool CTagStore::BeginScan()
{
    if (!m_database || m_scanning) {
        return Fail("no scan can start now");
    }
    std::string error;
    if (!SqliteExec(m_database.get(), "BEGIN", error)) {
        return Fail("cannot begin a scan");
    }
    m_upsert = CSqliteStatement(m_database.get(), kUpsertTrack);
    if (!m_upsert.IsValid() || !LoadKnownStamps()) {
        SqliteExec(m_database.get(), "ROLLBACK", error);
        return Fail("cannot prepare a scan");
    }
    m_scanning = true;
    m_pendingWrites = 0;
    m_changed = false;
    return true;
}

bool CTagStore::CommitBatchIfFull()
{
    if (++m_pendingWrites < kBatchSize) {
        return true;
    }
    m_pendingWrites = 0;
    std::string error;
    return SqliteExec(m_database.get(), "COMMIT; BEGIN;", error) || Fail("cannot commit a batch");
}

CTagStore::EAddOutcome CTagStore::AddFile(const std::string& folder, const std::string& name, const SFileStamp& stamp,
                                          const TagReadFunction& read)
{
    if (!m_scanning) {
        Fail("a file was added outside a scan");
        return EAddOutcome::Failed;
    }
    const std::string path = folder + "/" + name;
    const auto known = m_unseen.find(path);
    if (known != m_unseen.end()) {
        const bool unchanged = known->second.size == stamp.size && known->second.modifiedNs == stamp.modifiedNs;
        m_unseen.erase(known);
        if (unchanged) {
            return EAddOutcome::Unchanged;
        }
    }
    const STrackTags tags = read(path);
    // An unreadable file's title is its name: kept as no title, since the
    // name is in the stick's bytes, not the tags' UTF-8.
    const std::string title = tags.unreadable ? std::string() : tags.title;
    const std::string& shownTitle = title.empty() ? name : title;

    CSqliteStatement& upsert = m_upsert;
    upsert.Bind(1, path).Bind(2, folder).Bind(3, name).Bind(4, static_cast<int64_t>(FileId(folder, name)));
    upsert.Bind(5, stamp.size).Bind(6, stamp.modifiedNs).Bind(7, title).Bind(8, tags.artist);
    upsert.Bind(9, tags.albumArtist).Bind(10, tags.album).Bind(11, tags.genre).Bind(12, int64_t{tags.year});
    upsert.Bind(13, int64_t{tags.trackNumber}).Bind(14, int64_t{tags.trackCount});
    upsert.Bind(15, int64_t{tags.discNumber}).Bind(16, int64_t{tags.discCount});
    upsert.Bind(17, int64_t{tags.durationSeconds}).Bind(18, int64_t{tags.compilation});
    upsert.Bind(19, int64_t{tags.hasPicture}).Bind(20, int64_t{tags.unreadable}).Bind(21, SortKey(shownTitle));
    if (!upsert.Run()) {
        Fail("cannot store " + path);
        return EAddOutcome::Failed;
    }
    m_changed = true;
    return CommitBatchIfFull() ? EAddOutcome::Read : EAddOutcome::Failed;
}

bool CTagStore::RemoveUnseen()
{
    CSqliteStatement remove(m_database.get(), "DELETE FROM tracks WHERE path = ?");
    for (const auto& gone : m_unseen) {
        if (!remove.Bind(1, gone.first).Run()) {
            return Fail("cannot remove " + gone.first);
        }
    }
    m_changed = m_changed || !m_unseen.empty();
    return true;
}

// One query for every stored stamp: a re-plug of an unchanged stick then
// costs a stat and a lookup per file, no statement.
bool CTagStore::LoadKnownStamps()
{
    m_unseen.clear();
    CSqliteStatement stamps(m_database.get(), "SELECT path, size, modifiedNs FROM tracks");
    while (stamps.Step()) {
        m_unseen.emplace(stamps.Text(0), SFileStamp{stamps.Integer(1), stamps.Integer(2)});
    }
    return !stamps.Failed() || Fail("cannot read the stored files");
}

bool CTagStore::EndScan(bool complete, bool rebuild)
{
    if (!m_scanning) {
        return Fail("no scan to end");
    }
    m_scanning = false;
    std::string error;
    // Tracks stored by a scan that stopped before its rebuild are still
    // unlinked (album 0): a later scan links them even when it changed nothing.
    bool stored = !complete || RemoveUnseen();
    const bool relink = m_changed || Count("SELECT EXISTS(SELECT 1 FROM tracks WHERE albumId = 0)", 0) != 0;
    stored = stored && (!relink || !rebuild || RebuildIdentities());
    m_unseen.clear();
    m_upsert = CSqliteStatement();
    if (!stored) {
        SqliteExec(m_database.get(), "ROLLBACK", error);
        return false;
    }
    return SqliteExec(m_database.get(), "COMMIT", error) || Fail("cannot commit the scan");
}

bool CTagStore::RebuildIdentities()
{
    const SIdentities found = LoadIdentities(m_database.get());
    const auto artistIds = AssignIds<std::string>(found.artistNames, NameId);
    const auto albumIds = AssignIds<AlbumKey>(found.albumKeys, AlbumId);
    const auto genreIds = AssignIds<std::string>(found.genreNames, NameId);

    std::string error;
    if (!SqliteExec(m_database.get(),
                    "DELETE FROM artists; DELETE FROM genres; DELETE FROM albums; DELETE FROM trackArtists;", error)) {
        return Fail("cannot clear the derived tables");
    }
    std::map<uint32_t, SCounts> artistCounts;
    std::map<uint32_t, SCounts> genreCounts;
    std::map<uint32_t, SAlbumCounts> albumCounts;
    CSqliteStatement link(m_database.get(), "UPDATE tracks SET albumId = ?, genreId = ? WHERE rowid = ?");
    CSqliteStatement byArtist(m_database.get(), "INSERT INTO trackArtists(track, artistId) VALUES(?, ?)");
    for (const auto& track : found.tracks) {
        const uint32_t albumId = albumIds.at(track.album);
        const uint32_t genreId = genreIds.at(track.genre);
        bool linked = link.Bind(1, int64_t{albumId}).Bind(2, int64_t{genreId}).Bind(3, track.rowId).Run();
        // A track is by its artist and by its album's artist; it counts once
        // for an artist who is both.
        std::set<uint32_t> byWhom{artistIds.at(track.artist)};
        if (!track.album.first.empty()) {
            byWhom.insert(artistIds.at(track.album.first));
        }
        for (const uint32_t artistId : byWhom) {
            linked = linked && byArtist.Bind(1, track.rowId).Bind(2, int64_t{artistId}).Run();
            artistCounts[artistId].albums.insert(albumId);
            artistCounts[artistId].tracks++;
        }
        if (!linked) {
            return Fail("cannot link the tracks");
        }
        genreCounts[genreId].albums.insert(albumId);
        genreCounts[genreId].tracks++;
        SAlbumCounts& album = albumCounts[albumId];
        album.tracks++;
        if (track.year != 0 && (album.year == 0 || track.year < album.year)) {
            album.year = track.year;
        }
    }

    CSqliteStatement artist(m_database.get(),
                            "INSERT INTO artists(id, name, sortKey, albumCount, trackCount) VALUES(?, ?, ?, ?, ?)");
    for (const auto& [name, id] : artistIds) {
        const SCounts& counts = artistCounts[id];
        if (!artist.Bind(1, int64_t{id}).Bind(2, name).Bind(3, SortKey(name))
                 .Bind(4, static_cast<int64_t>(counts.albums.size())).Bind(5, int64_t{counts.tracks}).Run()) {
            return Fail("cannot store the artists");
        }
    }
    CSqliteStatement genre(m_database.get(),
                           "INSERT INTO genres(id, name, sortKey, albumCount, trackCount) VALUES(?, ?, ?, ?, ?)");
    for (const auto& [name, id] : genreIds) {
        const SCounts& counts = genreCounts[id];
        if (!genre.Bind(1, int64_t{id}).Bind(2, name).Bind(3, SortKey(name))
                 .Bind(4, static_cast<int64_t>(counts.albums.size())).Bind(5, int64_t{counts.tracks}).Run()) {
            return Fail("cannot store the genres");
        }
    }
    CSqliteStatement album(m_database.get(), "INSERT INTO albums(id, name, artist, sortKey, artistSortKey, year, "
                                             "trackCount) VALUES(?, ?, ?, ?, ?, ?, ?)");
    for (const auto& [key, id] : albumIds) {
        const SAlbumCounts& counts = albumCounts[id];
        if (!album.Bind(1, int64_t{id}).Bind(2, key.second).Bind(3, key.first).Bind(4, SortKey(key.second))
                 .Bind(5, SortKey(key.first)).Bind(6, int64_t{counts.year}).Bind(7, int64_t{counts.tracks}).Run()) {
            return Fail("cannot store the albums");
        }
    }
    return true;
}

PageChooser PageFrom(uint32_t begin, uint32_t count)
{
    return [begin, count](uint32_t totalCount) {
        if (begin >= totalCount) {
            return SPageRange{begin, 0};
        }
        return SPageRange{begin, std::min(count, totalCount - begin)};
    };
}

uint32_t CTagStore::Count(const std::string& sql, int64_t key)
{
    CSqliteStatement count(m_database.get(), sql);
    count.Bind(1, key);
    return count.Step() ? ToUint(count.Integer(0)) : 0;
}

uint32_t CTagStore::CountText(const std::string& sql, const std::string& text)
{
    CSqliteStatement count(m_database.get(), sql);
    count.Bind(1, text);
    return count.Step() ? ToUint(count.Integer(0)) : 0;
}

// Counts the list with `countSql`, lets `chooser` pick the page, and reads
// it with `itemsSql`, which ends in "LIMIT ? OFFSET ?"; both take the text
// or the key (when given) as their first parameter.
template <typename Item>
SPage<Item> CTagStore::Page(const std::string& countSql, const std::string& itemsSql, const int64_t* key,
                            const std::string* text, const PageChooser& chooser,
                            Item (*from)(const CSqliteStatement&))
{
    SPage<Item> page;
    if (!m_database) {
        return page;
    }
    page.totalCount = text != nullptr ? CountText(countSql, *text) : Count(countSql, key != nullptr ? *key : 0);
    const SPageRange range = chooser(page.totalCount);
    if (range.count == 0 || range.begin >= page.totalCount) {
        return page;
    }
    CSqliteStatement items(m_database.get(), itemsSql);
    int position = 1;
    if (text != nullptr) {
        items.Bind(position++, *text);
    } else if (key != nullptr) {
        items.Bind(position++, *key);
    }
    items.Bind(position, static_cast<int64_t>(range.count)).Bind(position + 1, static_cast<int64_t>(range.begin));
    while (items.Step()) {
        page.items.push_back(from(items));
    }
    return page;
}

uint32_t CTagStore::TrackCount()
{
    return m_database ? Count("SELECT COUNT(*) FROM tracks", 0) : 0;
}

SLibraryCounts CTagStore::Counts()
{
    if (!m_database) {
        return {};
    }
    return {Count("SELECT COUNT(*) FROM tracks", 0), Count("SELECT COUNT(*) FROM artists", 0),
            Count("SELECT COUNT(*) FROM albums", 0), Count("SELECT COUNT(*) FROM genres", 0)};
}

namespace {
const char* const kCategoryColumns = "SELECT id, name, albumCount, trackCount";
const char* const kCategoryOrder = " ORDER BY sortKey, name LIMIT ? OFFSET ?";
const char* const kAlbumColumns = "SELECT a.id, a.name, a.artist, a.year, a.trackCount";
const char* const kAlbumOrder = " ORDER BY a.sortKey, a.name, a.artistSortKey, a.artist LIMIT ? OFFSET ?";
// The albums holding a track of the artist (as track or album artist) or of
// the genre bound as the first parameter.
const char* const kAlbumsOfArtist =
    " FROM albums a WHERE a.id IN (SELECT t.albumId FROM tracks t JOIN trackArtists ta ON ta.track = t.rowid "
    "WHERE ta.artistId = ?)";
const char* const kAlbumsOfGenre = " FROM albums a WHERE a.id IN (SELECT albumId FROM tracks WHERE genreId = ?)";
const char* const kAlbumsNamed = " FROM albums a WHERE instr(a.sortKey, ?) > 0";
// An artist's tracks, and the whole list: album year, album, disc, track.
const char* const kArtistTrackOrder =
    " ORDER BY a.year, a.sortKey, a.id, t.discNumber, t.trackNumber, t.titleKey, t.path LIMIT ? OFFSET ?";

std::string Select(const char* columns, const std::string& rest)
{
    return std::string(columns) + rest;
}
}  // namespace

SPage<SCategoryEntry> CTagStore::Artists(const PageChooser& page)
{
    return Page<SCategoryEntry>("SELECT COUNT(*) FROM artists", Select(kCategoryColumns, " FROM artists") +
                                kCategoryOrder, nullptr, nullptr, page, CategoryFrom);
}

SPage<SCategoryEntry> CTagStore::Genres(const PageChooser& page)
{
    return Page<SCategoryEntry>("SELECT COUNT(*) FROM genres", Select(kCategoryColumns, " FROM genres") +
                                kCategoryOrder, nullptr, nullptr, page, CategoryFrom);
}

SPage<SAlbumEntry> CTagStore::Albums(const PageChooser& page)
{
    return Page<SAlbumEntry>("SELECT COUNT(*) FROM albums", Select(kAlbumColumns, " FROM albums a") + kAlbumOrder,
                             nullptr, nullptr, page, AlbumFrom);
}

SPage<SAlbumEntry> CTagStore::AlbumsByArtist(uint32_t artistId, const PageChooser& page)
{
    const int64_t key = artistId;
    return Page<SAlbumEntry>(Select("SELECT COUNT(*)", kAlbumsOfArtist), Select(kAlbumColumns, kAlbumsOfArtist) +
                             kAlbumOrder, &key, nullptr, page, AlbumFrom);
}

SPage<SAlbumEntry> CTagStore::AlbumsByGenre(uint32_t genreId, const PageChooser& page)
{
    const int64_t key = genreId;
    return Page<SAlbumEntry>(Select("SELECT COUNT(*)", kAlbumsOfGenre), Select(kAlbumColumns, kAlbumsOfGenre) +
                             kAlbumOrder, &key, nullptr, page, AlbumFrom);
}

SPage<STrackEntry> CTagStore::Tracks(const PageChooser& page)
{
    return Page<STrackEntry>("SELECT COUNT(*) FROM tracks",
                             Select("SELECT ", kTrackColumns) +
                                 " FROM tracks t JOIN albums a ON a.id = t.albumId" + kArtistTrackOrder,
                             nullptr, nullptr, page, TrackFrom);
}

SPage<STrackEntry> CTagStore::TracksByAlbum(uint32_t albumId, const PageChooser& page)
{
    const int64_t key = albumId;
    return Page<STrackEntry>("SELECT COUNT(*) FROM tracks WHERE albumId = ?",
                             Select("SELECT ", kTrackColumns) +
                                 " FROM tracks t WHERE t.albumId = ? "
                                 "ORDER BY t.discNumber, t.trackNumber, t.titleKey, t.path LIMIT ? OFFSET ?",
                             &key, nullptr, page, TrackFrom);
}

SPage<STrackEntry> CTagStore::TracksByArtist(uint32_t artistId, const PageChooser& page)
{
    const int64_t key = artistId;
    return Page<STrackEntry>("SELECT COUNT(*) FROM trackArtists WHERE artistId = ?",
                             Select("SELECT ", kTrackColumns) +
                                 " FROM trackArtists ta JOIN tracks t ON t.rowid = ta.track"
                                 " JOIN albums a ON a.id = t.albumId WHERE ta.artistId = ?" + kArtistTrackOrder,
                             &key, nullptr, page, TrackFrom);
}

SPage<STrackEntry> CTagStore::TracksByGenre(uint32_t genreId, const PageChooser& page)
{
    const int64_t key = genreId;
    return Page<STrackEntry>("SELECT COUNT(*) FROM tracks WHERE genreId = ?",
                             Select("SELECT ", kTrackColumns) +
                                 " FROM tracks t JOIN albums a ON a.id = t.albumId WHERE t.genreId = ?"
                                 " ORDER BY a.sortKey, a.id, t.discNumber, t.trackNumber, t.titleKey, t.path"
                                 " LIMIT ? OFFSET ?",
                             &key, nullptr, page, TrackFrom);
}

SPage<SCategoryEntry> CTagStore::SearchArtists(const std::string& text, const PageChooser& page)
{
    const std::string key = SortKey(text);
    if (key.empty()) {
        return {};
    }
    return Page<SCategoryEntry>("SELECT COUNT(*) FROM artists WHERE instr(sortKey, ?) > 0",
                                Select(kCategoryColumns, " FROM artists WHERE instr(sortKey, ?) > 0") +
                                    kCategoryOrder,
                                nullptr, &key, page, CategoryFrom);
}

SPage<SAlbumEntry> CTagStore::SearchAlbums(const std::string& text, const PageChooser& page)
{
    const std::string key = SortKey(text);
    if (key.empty()) {
        return {};
    }
    return Page<SAlbumEntry>(Select("SELECT COUNT(*)", kAlbumsNamed), Select(kAlbumColumns, kAlbumsNamed) +
                             kAlbumOrder, nullptr, &key, page, AlbumFrom);
}

SPage<STrackEntry> CTagStore::SearchTracks(const std::string& text, const PageChooser& page)
{
    const std::string key = SortKey(text);
    if (key.empty()) {
        return {};
    }
    return Page<STrackEntry>("SELECT COUNT(*) FROM tracks WHERE instr(titleKey, ?) > 0",
                             Select("SELECT ", kTrackColumns) +
                                 " FROM tracks t WHERE instr(t.titleKey, ?) > 0"
                                 " ORDER BY t.titleKey, t.path LIMIT ? OFFSET ?",
                             nullptr, &key, page, TrackFrom);
}

SAlbumArtSource CTagStore::AlbumArtSource(uint32_t albumId)
{
    SAlbumArtSource source;
    if (!m_database) {
        return source;
    }
    CSqliteStatement tracks(m_database.get(),
                            "SELECT folder, name, hasPicture FROM tracks WHERE albumId = ? "
                            "ORDER BY discNumber, trackNumber, titleKey, path");
    tracks.Bind(1, int64_t{albumId});
    while (tracks.Step()) {
        if (source.folder.empty()) {
            source.folder = tracks.Text(0);
        }
        if (tracks.Integer(2) != 0) {
            source.embeddedInFile = tracks.Text(0) + "/" + tracks.Text(1);
            break;
        }
    }
    return source;
}
