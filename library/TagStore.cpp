#include "library/TagStore.h"

#include "library/FileId.h"
#include "library/SortKey.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

namespace {
// Raised whenever the tables change shape: a file of another version is
// dropped and scanned again, never migrated (it is a cache of the stick).
constexpr int kSchemaVersion = 4;
// A scan commits what it wrote at least this often, so a browser on another
// connection sees a long first scan grow and a kill loses little, and at
// most this many files at once; fewer commits write each page fewer times.
constexpr auto kCommitInterval = std::chrono::seconds(1);
constexpr uint32_t kBatchSize = 4096;

const char* const kSchema = R"sql(
-- A file is found by its rowid, which a scan learns with its stamp: no index
-- on the path is kept (it would cost a third of the database).
CREATE TABLE folders(id INTEGER PRIMARY KEY, path TEXT NOT NULL UNIQUE);
CREATE TABLE tracks(
  folderId INTEGER NOT NULL,      -- folders.id: each folder's path is kept once
  name TEXT NOT NULL,
  fileId INTEGER NOT NULL,        -- FileId(folder path, name)
  size INTEGER NOT NULL,
  modifiedNs INTEGER NOT NULL,
  title TEXT NOT NULL, artist TEXT NOT NULL, albumArtist TEXT NOT NULL,
  album TEXT NOT NULL, genre TEXT NOT NULL,
  year INTEGER NOT NULL, trackNumber INTEGER NOT NULL, trackCount INTEGER NOT NULL,
  discNumber INTEGER NOT NULL, discCount INTEGER NOT NULL, duration INTEGER NOT NULL,
  compilation INTEGER NOT NULL, hasPicture INTEGER NOT NULL, unreadable INTEGER NOT NULL,
  titleKey TEXT NOT NULL,         -- SortKey of the title, or of the name without one
  albumId INTEGER NOT NULL,       -- the hash of its album and genre when stored; the rebuild
  genreId INTEGER NOT NULL);      -- moves the rare ones whose hash another name holds
CREATE TABLE artists(id INTEGER PRIMARY KEY, name TEXT NOT NULL, sortKey TEXT NOT NULL,
  albumCount INTEGER NOT NULL, trackCount INTEGER NOT NULL);
CREATE TABLE genres(id INTEGER PRIMARY KEY, name TEXT NOT NULL, sortKey TEXT NOT NULL,
  albumCount INTEGER NOT NULL, trackCount INTEGER NOT NULL);
CREATE TABLE albums(id INTEGER PRIMARY KEY, name TEXT NOT NULL, artist TEXT NOT NULL,
  sortKey TEXT NOT NULL, artistSortKey TEXT NOT NULL, year INTEGER NOT NULL, trackCount INTEGER NOT NULL);
CREATE INDEX artists_order ON artists(sortKey, name);
CREATE INDEX albums_order ON albums(sortKey, name, artistSortKey, artist);
-- A track is by its artist and by its album's artist (one row when they are the same).
CREATE TABLE trackArtists(track INTEGER NOT NULL, artistId INTEGER NOT NULL, PRIMARY KEY(artistId, track))
  WITHOUT ROWID;
-- 0 from the first track a scan writes until the artists, albums and genres
-- are derived again: a scan stopped (or killed) before that leaves it for
-- the next one, even when that one reads nothing.
CREATE TABLE libraryState(linked INTEGER NOT NULL);
INSERT INTO libraryState VALUES(1);
)sql";

// The tracks' indexes. A first scan fills the table without them and makes
// them at its end: sorting once costs less than a third of the scan's
// inserts into three indexes in random order.
const char* const kTrackIndexes = R"sql(
CREATE INDEX IF NOT EXISTS tracks_album ON tracks(albumId);
CREATE INDEX IF NOT EXISTS tracks_genre ON tracks(genreId);
-- The search reads the title keys alone, in their order.
CREATE INDEX IF NOT EXISTS tracks_title ON tracks(titleKey);
)sql";
const char* const kDropTrackIndexes =
    "DROP INDEX IF EXISTS tracks_album; DROP INDEX IF EXISTS tracks_genre; DROP INDEX IF EXISTS tracks_title;";

const char* const kDropAll = R"sql(
DROP TABLE IF EXISTS tracks; DROP TABLE IF EXISTS artists; DROP TABLE IF EXISTS genres;
DROP TABLE IF EXISTS albums; DROP TABLE IF EXISTS trackArtists; DROP TABLE IF EXISTS folders;
DROP TABLE IF EXISTS libraryState;
)sql";

// ?1 is the row of the file when it is stored already, else NULL for a new
// one.
const char* const kStoreTrack = R"sql(
INSERT OR REPLACE INTO tracks(rowid, folderId, name, fileId, size, modifiedNs, title, artist, albumArtist, album,
  genre, year, trackNumber, trackCount, discNumber, discCount, duration, compilation, hasPicture, unreadable,
  titleKey, albumId, genreId)
VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15, ?16, ?17, ?18, ?19, ?20, ?21, ?22, ?23))sql";

// The tracks with their folders' paths, as the track columns read them.
const std::string kTrackRows = " FROM tracks t JOIN folders f ON f.id = t.folderId";

const char* const kTrackColumns =
    "t.fileId, t.name, f.path, t.title, t.artist, t.album, "
    "t.trackNumber, t.discNumber, t.duration";

void RemoveDatabaseFiles(const std::string& path)
{
    for (const char* suffix : {"", "-wal", "-shm"}) {
        unlink((path + suffix).c_str());
    }
}

bool IsVariousArtists(const std::string& name)
{
    static const std::string key = SortKey(CTagStore::kVariousArtists);
    return !name.empty() && SortKey(name) == key;
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
        uint32_t albumId = 0;  // as stored
        uint32_t genreId = 0;
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
                          "SELECT rowid, artist, albumArtist, album, genre, compilation, year, albumId, genreId FROM tracks");
    while (rows.Step()) {
        SIdentities::STrackRow track;
        track.rowId = rows.Integer(0);
        track.artist = rows.Text(1);
        const std::string album = rows.Text(3);
        track.album = AlbumKey(AlbumArtist(album, rows.Text(2), track.artist, rows.Integer(5) != 0), album);
        track.genre = rows.Text(4);
        track.year = ToUint(rows.Integer(6));
        track.albumId = ToUint(rows.Integer(7));
        track.genreId = ToUint(rows.Integer(8));
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
    stamp = FileStampOf(info);
    return true;
}

SFileStamp FileStampOf(const struct stat& info)
{
    return {static_cast<int64_t>(info.st_size),
            static_cast<int64_t>(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec};
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
    std::string error;
    SqliteExec(m_database.get(), "PRAGMA cache_size=-512;", error);
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
    // A small page cache: the queries read few pages, the scan writes in
    // batches, and the device has little memory.
    if (!SqliteExec(m_database.get(), "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA cache_size=-512;",
                    error)) {
        return Fail("cannot set WAL mode on " + databasePath);
    }
    if (found == kSchemaVersion) {
        return true;
    }
    const std::string create = std::string("BEGIN;") + kDropAll + kSchema + kTrackIndexes +
                               "PRAGMA user_version=" + std::to_string(kSchemaVersion) + "; COMMIT;";
    if (!SqliteExec(m_database.get(), create, error)) {
        m_error = "cannot create the tables: " + error;
        return false;
    }
    return true;
}

void CTagStore::Close()
{
    ForgetScan();  // its statements go before their connection
    m_database.reset();
    m_scanning = false;
    m_search = SSearchLists{};  // a data version means something on its connection alone
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
    const bool first = Count("SELECT NOT EXISTS(SELECT 1 FROM tracks)", 0) != 0;
    const bool indexed = SqliteExec(m_database.get(), first ? kDropTrackIndexes : kTrackIndexes, error);
    m_store = CSqliteStatement(m_database.get(), kStoreTrack);
    m_addFolder = CSqliteStatement(m_database.get(), "INSERT INTO folders(path) VALUES(?)");
    if (!indexed || !m_store.IsValid() || !m_addFolder.IsValid() || !LoadKnownStamps()) {
        SqliteExec(m_database.get(), "ROLLBACK", error);
        return Fail("cannot prepare a scan");
    }
    m_scanning = true;
    m_wrote = false;
    m_verified = false;
    m_pendingWrites = 0;
    m_lastCommit = std::chrono::steady_clock::now();
    m_changed = false;
    m_folder.clear();
    m_folderId = 0;
    m_folderKnownBegin = m_folderKnownEnd = 0;
    return true;
}

bool CTagStore::CommitBatchIfDue()
{
    const auto now = std::chrono::steady_clock::now();
    if (++m_pendingWrites < kBatchSize && now - m_lastCommit < kCommitInterval) {
        return true;
    }
    m_pendingWrites = 0;
    m_lastCommit = now;
    std::string error;
    return SqliteExec(m_database.get(), "COMMIT; BEGIN;", error) || Fail("cannot commit a batch");
}

void CTagStore::EnterFolder(const std::string& folder)
{
    if (folder == m_folder && (m_folderId != 0 || m_folderKnownBegin == m_folderKnownEnd)) {
        return;
    }
    m_folder = folder;
    const auto known = m_folderIds.find(folder);
    m_folderId = known != m_folderIds.end() ? known->second : 0;
    const auto byFolder = [](const SKnownFile& file, int64_t id) { return file.folderId < id; };
    const auto begin = std::lower_bound(m_known.begin(), m_known.end(), m_folderId, byFolder);
    const auto end = std::find_if(begin, m_known.end(), [this](const SKnownFile& file) {
        return file.folderId != m_folderId;
    });
    m_folderKnownBegin = m_folderId != 0 ? static_cast<size_t>(begin - m_known.begin()) : 0;
    m_folderKnownEnd = m_folderId != 0 ? static_cast<size_t>(end - m_known.begin()) : 0;
}

CTagStore::EAddOutcome CTagStore::AddedOutsideAScan()
{
    Fail("a file was added outside a scan");
    return EAddOutcome::Failed;
}

CTagStore::SKnownFile* CTagStore::FindKnown(std::string_view name)
{
    const auto first = m_known.begin() + static_cast<std::ptrdiff_t>(m_folderKnownBegin);
    const auto last = m_known.begin() + static_cast<std::ptrdiff_t>(m_folderKnownEnd);
    const auto found = std::lower_bound(first, last, name, [this](const SKnownFile& file, std::string_view wanted) {
        return std::string_view(m_knownNames).substr(file.nameOffset, file.nameLength) < wanted;
    });
    if (found == last || std::string_view(m_knownNames).substr(found->nameOffset, found->nameLength) != name) {
        return nullptr;
    }
    return &*found;
}

bool CTagStore::SeeFile(std::string_view name, const SFileStamp& stamp)
{
    m_replacedRow.reset();
    SKnownFile* known = FindKnown(name);
    if (known == nullptr || known->seen) {
        return false;
    }
    known->seen = true;
    if (known->stamp.size == stamp.size && known->stamp.modifiedNs == stamp.modifiedNs) {
        return true;
    }
    m_replacedRow = known->rowId;
    return false;
}

bool CTagStore::SeeVerifiedFile(std::string_view name)
{
    SKnownFile* known = m_scanning ? FindKnown(name) : nullptr;
    if (known == nullptr || known->seen || !known->verified) {
        return false;
    }
    known->seen = true;
    return true;
}

void CTagStore::BeginVerify()
{
    m_verifyFolders.assign(m_folderIds.begin(), m_folderIds.end());
    std::sort(m_verifyFolders.begin(), m_verifyFolders.end());
    m_nextVerifyRun = 0;
    m_verified = m_scanning;
}

void CTagStore::VerifyKnownFiles(const StatFunction& stat)
{
    const auto byFolder = [](const SKnownFile& file, int64_t id) { return file.folderId < id; };
    std::string name;
    for (;;) {
        const size_t first = m_nextVerifyRun.fetch_add(1) * kFoldersPerVerifyRun;
        if (first >= m_verifyFolders.size()) {
            return;
        }
        const size_t last = std::min(first + kFoldersPerVerifyRun, m_verifyFolders.size());
        for (size_t folder = first; folder < last; ++folder) {
            const auto& [path, id] = m_verifyFolders[folder];
            for (auto file = std::lower_bound(m_known.begin(), m_known.end(), id, byFolder);
                 file != m_known.end() && file->folderId == id; ++file) {
                name.assign(m_knownNames, file->nameOffset, file->nameLength);
                SFileStamp stamp;
                file->verified = stat(path, name, stamp) && stamp.size == file->stamp.size &&
                                 stamp.modifiedNs == file->stamp.modifiedNs;
            }
        }
    }
}

CTagStore::EAddOutcome CTagStore::StoreFile(std::string_view name, const SFileStamp& stamp, const STrackTags& tags)
{
    const int64_t folderId = CurrentFolderId();
    if (folderId == 0 || (!m_changed && !MarkUnlinked())) {
        Fail("cannot store the folder " + m_folder);
        return EAddOutcome::Failed;
    }
    m_changed = true;
    const std::string fileName(name);
    // An unreadable file's title is its name: kept as no title, since the
    // name is in the stick's bytes, not the tags' UTF-8.
    const std::string title = tags.unreadable ? std::string() : tags.title;
    const std::string& shownTitle = title.empty() ? fileName : title;
    const AlbumKey album(AlbumArtist(tags.album, tags.albumArtist, tags.artist, tags.compilation), tags.album);

    CSqliteStatement& upsert = m_store;
    if (m_replacedRow) {
        upsert.Bind(1, *m_replacedRow);
    }
    upsert.Bind(2, folderId).Bind(3, fileName).Bind(4, static_cast<int64_t>(FileId(m_folder, fileName)));
    upsert.Bind(5, stamp.size).Bind(6, stamp.modifiedNs).Bind(7, title).Bind(8, tags.artist);
    upsert.Bind(9, tags.albumArtist).Bind(10, tags.album).Bind(11, tags.genre).Bind(12, int64_t{tags.year});
    upsert.Bind(13, int64_t{tags.trackNumber}).Bind(14, int64_t{tags.trackCount});
    upsert.Bind(15, int64_t{tags.discNumber}).Bind(16, int64_t{tags.discCount});
    upsert.Bind(17, int64_t{tags.durationSeconds}).Bind(18, int64_t{tags.compilation});
    upsert.Bind(19, int64_t{tags.hasPicture}).Bind(20, int64_t{tags.unreadable}).Bind(21, SortKey(shownTitle));
    upsert.Bind(22, int64_t{AlbumId(album)}).Bind(23, int64_t{NameId(tags.genre)});
    m_replacedRow.reset();
    if (!upsert.Run()) {
        Fail("cannot store " + m_folder + "/" + fileName);
        return EAddOutcome::Failed;
    }
    return CommitBatchIfDue() ? EAddOutcome::Read : EAddOutcome::Failed;
}

// The first write of a scan marks the library as not linked, in the same
// transaction: whatever stops the scan after it, the next one relinks.
bool CTagStore::MarkUnlinked()
{
    std::string error;
    return SqliteExec(m_database.get(), "UPDATE libraryState SET linked = 0", error);
}

int64_t CTagStore::CurrentFolderId()
{
    if (m_folderId != 0) {
        return m_folderId;
    }
    if (!m_addFolder.Bind(1, m_folder).Run()) {
        return 0;
    }
    m_folderId = sqlite3_last_insert_rowid(m_database.get());
    m_folderIds.emplace(m_folder, m_folderId);
    return m_folderId;
}

bool CTagStore::RemoveUnseen()
{
    CSqliteStatement remove(m_database.get(), "DELETE FROM tracks WHERE rowid = ?");
    bool removed = false;
    for (const SKnownFile& file : m_known) {
        if (file.seen) {
            continue;
        }
        if ((!m_changed && !removed && !MarkUnlinked()) || !remove.Bind(1, file.rowId).Run()) {
            return Fail("cannot remove a file gone from the stick");
        }
        removed = true;
    }
    if (!removed) {
        return true;  // a folder empties only when files go
    }
    m_changed = true;
    std::string error;
    return SqliteExec(m_database.get(), "DELETE FROM folders WHERE id NOT IN (SELECT folderId FROM tracks)", error) ||
           Fail("cannot remove the empty folders");
}

// One query for every stored stamp, sorted here by folder and name: a
// re-plug of an unchanged stick then costs a stat and a lookup per file.
bool CTagStore::LoadKnownStamps()
{
    m_known.clear();
    m_knownNames.clear();
    m_folderIds.clear();
    CSqliteStatement folders(m_database.get(), "SELECT path, id FROM folders");
    while (folders.Step()) {
        m_folderIds.emplace(folders.Text(0), folders.Integer(1));
    }
    CSqliteStatement stamps(m_database.get(), "SELECT folderId, name, size, modifiedNs, rowid FROM tracks");
    while (stamps.Step()) {
        const std::string_view name = stamps.TextView(1);
        m_known.push_back(SKnownFile{stamps.Integer(0), static_cast<uint32_t>(m_knownNames.size()),
                                     static_cast<uint32_t>(name.size()),
                                     SFileStamp{stamps.Integer(2), stamps.Integer(3)}, stamps.Integer(4), false});
        m_knownNames.append(name);
    }
    const std::string_view names = m_knownNames;
    std::sort(m_known.begin(), m_known.end(), [names](const SKnownFile& a, const SKnownFile& b) {
        if (a.folderId != b.folderId) {
            return a.folderId < b.folderId;
        }
        return names.substr(a.nameOffset, a.nameLength) < names.substr(b.nameOffset, b.nameLength);
    });
    return (!stamps.Failed() && !folders.Failed()) || Fail("cannot read the stored files");
}

bool CTagStore::EndScan(bool complete, bool rebuild)
{
    if (!m_scanning) {
        return Fail("no scan to end");
    }
    m_scanning = false;
    // data_version tells of other connections' writes only: what this one
    // writes makes the search lists stale here.
    m_search = SSearchLists{};
    std::string error;
    bool stored = !complete || RemoveUnseen();
    // A scan stopped before its rebuild left the library unlinked: a later
    // one links it even when it changed nothing.
    const bool relink = m_changed || Count("SELECT linked = 0 FROM libraryState", 0) != 0;
    stored = stored && (!relink || !rebuild || RebuildIdentities());
    m_wrote = m_changed || (relink && rebuild);
    stored = stored && (SqliteExec(m_database.get(), kTrackIndexes, error) || Fail("cannot index the tracks"));
    ForgetScan();
    if (!stored) {
        SqliteExec(m_database.get(), "ROLLBACK", error);
        return false;
    }
    return SqliteExec(m_database.get(), "COMMIT", error) || Fail("cannot commit the scan");
}

void CTagStore::ForgetScan()
{
    std::vector<SKnownFile>().swap(m_known);
    std::string().swap(m_knownNames);
    std::unordered_map<std::string, int64_t>().swap(m_folderIds);
    std::vector<std::pair<std::string, int64_t>>().swap(m_verifyFolders);
    m_folder.clear();
    m_folderId = 0;
    m_folderKnownBegin = m_folderKnownEnd = 0;
    m_replacedRow.reset();
    m_store = CSqliteStatement();
    m_addFolder = CSqliteStatement();
}

// The artists, albums and genres derived again from every track, and each
// track's links to them. A track keeps the album and genre IDs it was stored
// with unless another name now holds them; the (artist, track) pairs are
// written in their key's order.
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
    std::vector<std::pair<uint32_t, int64_t>> byArtist;  // (artistId, track)
    byArtist.reserve(found.tracks.size() * 2);
    CSqliteStatement link(m_database.get(), "UPDATE tracks SET albumId = ?, genreId = ? WHERE rowid = ?");
    for (const auto& track : found.tracks) {
        const uint32_t albumId = albumIds.at(track.album);
        const uint32_t genreId = genreIds.at(track.genre);
        if ((albumId != track.albumId || genreId != track.genreId) &&
            !link.Bind(1, int64_t{albumId}).Bind(2, int64_t{genreId}).Bind(3, track.rowId).Run()) {
            return Fail("cannot link the tracks");
        }
        // A track is by its artist and by its album's artist; it counts once
        // for an artist who is both.
        const uint32_t artistId = artistIds.at(track.artist);
        const uint32_t albumArtistId = track.album.first.empty() ? artistId : artistIds.at(track.album.first);
        const auto countFor = [&](uint32_t byWhom) {
            byArtist.emplace_back(byWhom, track.rowId);
            artistCounts[byWhom].albums.insert(albumId);
            artistCounts[byWhom].tracks++;
        };
        countFor(artistId);
        if (albumArtistId != artistId) {
            countFor(albumArtistId);
        }
        genreCounts[genreId].albums.insert(albumId);
        genreCounts[genreId].tracks++;
        SAlbumCounts& album = albumCounts[albumId];
        album.tracks++;
        if (track.year != 0 && (album.year == 0 || track.year < album.year)) {
            album.year = track.year;
        }
    }
    std::sort(byArtist.begin(), byArtist.end());
    CSqliteStatement pair(m_database.get(), "INSERT INTO trackArtists(artistId, track) VALUES(?, ?)");
    for (const auto& [artistId, track] : byArtist) {
        if (!pair.Bind(1, int64_t{artistId}).Bind(2, track).Run()) {
            return Fail("cannot link the tracks to their artists");
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
    return SqliteExec(m_database.get(), "UPDATE libraryState SET linked = 1", error) ||
           Fail("cannot mark the library linked");
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

// Counts the list with `countSql`, lets `chooser` pick the page, and reads
// it with `itemsSql`, which ends in "LIMIT ? OFFSET ?"; both take the key
// (when given) as their first parameter.
template <typename Item>
SPage<Item> CTagStore::Page(const std::string& countSql, const std::string& itemsSql, const int64_t* key,
                            const PageChooser& chooser, Item (*from)(const CSqliteStatement&))
{
    SPage<Item> page;
    if (!m_database) {
        return page;
    }
    page.totalCount = Count(countSql, key != nullptr ? *key : 0);
    const SPageRange range = chooser(page.totalCount);
    if (range.count == 0 || range.begin >= page.totalCount) {
        return page;
    }
    CSqliteStatement items(m_database.get(), itemsSql);
    int position = 1;
    if (key != nullptr) {
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
// An artist's tracks, and the whole list: album year, album, disc, track.
const char* const kArtistTrackOrder =
    " ORDER BY a.year, a.sortKey, a.id, t.discNumber, t.trackNumber, t.titleKey, f.path, t.name LIMIT ? OFFSET ?";

std::string Select(const char* columns, const std::string& rest)
{
    return std::string(columns) + rest;
}
}  // namespace

SPage<SCategoryEntry> CTagStore::Artists(const PageChooser& page)
{
    return Page<SCategoryEntry>("SELECT COUNT(*) FROM artists", Select(kCategoryColumns, " FROM artists") +
                                kCategoryOrder, nullptr, page, CategoryFrom);
}

SPage<SCategoryEntry> CTagStore::Genres(const PageChooser& page)
{
    return Page<SCategoryEntry>("SELECT COUNT(*) FROM genres", Select(kCategoryColumns, " FROM genres") +
                                kCategoryOrder, nullptr, page, CategoryFrom);
}

SPage<SAlbumEntry> CTagStore::Albums(const PageChooser& page)
{
    return Page<SAlbumEntry>("SELECT COUNT(*) FROM albums", Select(kAlbumColumns, " FROM albums a") + kAlbumOrder,
                             nullptr, page, AlbumFrom);
}

SPage<SAlbumEntry> CTagStore::AlbumsByArtist(uint32_t artistId, const PageChooser& page)
{
    const int64_t key = artistId;
    return Page<SAlbumEntry>(Select("SELECT COUNT(*)", kAlbumsOfArtist), Select(kAlbumColumns, kAlbumsOfArtist) +
                             kAlbumOrder, &key, page, AlbumFrom);
}

SPage<SAlbumEntry> CTagStore::AlbumsByGenre(uint32_t genreId, const PageChooser& page)
{
    const int64_t key = genreId;
    return Page<SAlbumEntry>(Select("SELECT COUNT(*)", kAlbumsOfGenre), Select(kAlbumColumns, kAlbumsOfGenre) +
                             kAlbumOrder, &key, page, AlbumFrom);
}

SPage<STrackEntry> CTagStore::Tracks(const PageChooser& page)
{
    return Page<STrackEntry>("SELECT COUNT(*) FROM tracks",
                             Select("SELECT ", kTrackColumns) +
                                 kTrackRows + " JOIN albums a ON a.id = t.albumId" + kArtistTrackOrder,
                             nullptr, page, TrackFrom);
}

SPage<STrackEntry> CTagStore::TracksByAlbum(uint32_t albumId, const PageChooser& page)
{
    const int64_t key = albumId;
    return Page<STrackEntry>("SELECT COUNT(*) FROM tracks WHERE albumId = ?",
                             Select("SELECT ", kTrackColumns) +
                                 kTrackRows + " WHERE t.albumId = ? "
                                 "ORDER BY t.discNumber, t.trackNumber, t.titleKey, f.path, t.name LIMIT ? OFFSET ?",
                             &key, page, TrackFrom);
}

SPage<STrackEntry> CTagStore::TracksByArtist(uint32_t artistId, const PageChooser& page)
{
    const int64_t key = artistId;
    return Page<STrackEntry>("SELECT COUNT(*) FROM trackArtists WHERE artistId = ?",
                             Select("SELECT ", kTrackColumns) +
                                 " FROM trackArtists ta JOIN tracks t ON t.rowid = ta.track"
                                 " JOIN folders f ON f.id = t.folderId"
                                 " JOIN albums a ON a.id = t.albumId WHERE ta.artistId = ?" + kArtistTrackOrder,
                             &key, page, TrackFrom);
}

SPage<STrackEntry> CTagStore::TracksByGenre(uint32_t genreId, const PageChooser& page)
{
    const int64_t key = genreId;
    return Page<STrackEntry>("SELECT COUNT(*) FROM tracks WHERE genreId = ?",
                             Select("SELECT ", kTrackColumns) +
                                 kTrackRows + " JOIN albums a ON a.id = t.albumId WHERE t.genreId = ?"
                                 " ORDER BY a.sortKey, a.id, t.discNumber, t.trackNumber, t.titleKey, f.path, t.name"
                                 " LIMIT ? OFFSET ?",
                             &key, page, TrackFrom);
}

// The lists a search reads, kept in memory and loaded again when any
// connection has written since (data_version).
bool CTagStore::LoadSearchKeys()
{
    CSqliteStatement version(m_database.get(), "PRAGMA data_version");
    const int64_t current = version.Step() ? version.Integer(0) : -1;
    if (current == m_search.dataVersion && current >= 0) {
        return true;
    }
    m_search = SSearchLists{};
    const auto load = [this](const std::string& sql, CSearchKeys& keys) {
        CSqliteStatement rows(m_database.get(), sql);
        while (rows.Step()) {
            keys.Add(rows.TextView(0), rows.Integer(1));
        }
        return !rows.Failed();
    };
    if (!load("SELECT t.titleKey, t.rowid" + kTrackRows + " ORDER BY t.titleKey, f.path, t.name", m_search.titles) ||
        !load("SELECT sortKey, id FROM artists ORDER BY sortKey, name", m_search.artists) ||
        !load("SELECT sortKey, id FROM albums ORDER BY sortKey, name, artistSortKey, artist", m_search.albums)) {
        m_search = SSearchLists{};
        return false;
    }
    m_search.dataVersion = current;
    return true;
}

// The page `chooser` picks of the rows whose key in the list `keys` holds
// the folded `text`, each read with `rowSql`, which takes the row as its
// parameter.
template <typename Item>
SPage<Item> CTagStore::Search(const std::string& text, CSearchKeys SSearchLists::*keys, const PageChooser& chooser,
                              const std::string& rowSql, Item (*from)(const CSqliteStatement&))
{
    const std::string key = SortKey(text);
    SPage<Item> page;
    if (key.empty() || !m_database || !LoadSearchKeys()) {
        return page;
    }
    const std::vector<int64_t> rows = (m_search.*keys).RowsHolding(key);
    page.totalCount = static_cast<uint32_t>(rows.size());
    const SPageRange range = chooser(page.totalCount);
    CSqliteStatement row(m_database.get(), rowSql);
    for (uint32_t i = 0; i < range.count && range.begin + i < rows.size(); ++i) {
        row.Reset();
        row.Bind(1, rows[range.begin + i]);
        if (row.Step()) {
            page.items.push_back(from(row));
        }
    }
    return page;
}

SPage<SCategoryEntry> CTagStore::SearchArtists(const std::string& text, const PageChooser& page)
{
    return Search<SCategoryEntry>(text, &SSearchLists::artists, page,
                                  Select(kCategoryColumns, " FROM artists WHERE id = ?"), CategoryFrom);
}

SPage<SAlbumEntry> CTagStore::SearchAlbums(const std::string& text, const PageChooser& page)
{
    return Search<SAlbumEntry>(text, &SSearchLists::albums, page, Select(kAlbumColumns, " FROM albums a WHERE a.id = ?"),
                               AlbumFrom);
}

SPage<STrackEntry> CTagStore::SearchTracks(const std::string& text, const PageChooser& page)
{
    return Search<STrackEntry>(text, &SSearchLists::titles, page,
                               Select("SELECT ", kTrackColumns) + kTrackRows + " WHERE t.rowid = ?", TrackFrom);
}

SAlbumArtSource CTagStore::AlbumArtSource(uint32_t albumId)
{
    SAlbumArtSource source;
    if (!m_database) {
        return source;
    }
    CSqliteStatement tracks(m_database.get(),
                            "SELECT f.path, t.name, t.hasPicture FROM tracks t JOIN folders f ON f.id = t.folderId "
                            "WHERE t.albumId = ? ORDER BY t.discNumber, t.trackNumber, t.titleKey, f.path, t.name");
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
