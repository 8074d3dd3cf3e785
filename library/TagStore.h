#pragma once

#include "library/SearchKeys.h"
#include "library/Sqlite.h"
#include "library/TagReader.h"

#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

// What tells a file that did not change since the last scan from one that did.
struct SFileStamp {
    int64_t size = 0;
    int64_t modifiedNs = 0;  // modification time, nanoseconds since the epoch
};

// Size and modification time of the file at `path`; false when it cannot be
// read.
bool ReadFileStamp(const std::string& path, SFileStamp& stamp);
// The same, from what stat gave.
SFileStamp FileStampOf(const struct stat& info);

// One page of a list: the items from the start index asked for, at most the
// count asked for, and how many the whole list holds.
template <typename Item>
struct SPage {
    std::vector<Item> items;
    uint32_t totalCount = 0;
};

// Which items of a list of `totalCount` a page carries: the first position
// and how many. The caller's paging rules decide; the store only counts.
struct SPageRange {
    uint32_t begin = 0;
    uint32_t count = 0;
};
using PageChooser = std::function<SPageRange(uint32_t totalCount)>;
// The plain window: `count` items from `begin`, cut at the end of the list.
PageChooser PageFrom(uint32_t begin, uint32_t count);

// How much the library holds.
struct SLibraryCounts {
    uint32_t tracks = 0;
    uint32_t artists = 0;
    uint32_t albums = 0;
    uint32_t genres = 0;
};

// Where an album's cover may be found: the first of its tracks (in album
// order) with an embedded image, and the folder of its first track.
struct SAlbumArtSource {
    std::string embeddedInFile;  // folder + "/" + name, "" when none has one
    std::string folder;          // "" for an album the store does not hold
};

// An artist or a genre.
struct SCategoryEntry {
    uint32_t id = 0;
    std::string name;
    uint32_t albumCount = 0;
    uint32_t trackCount = 0;
};

struct SAlbumEntry {
    uint32_t id = 0;
    std::string name;
    std::string artist;  // the album artist, the artist, or "Various Artists"
    uint32_t year = 0;   // the earliest year among its tracks, 0 when none has one
    uint32_t trackCount = 0;
};

struct STrackEntry {
    uint32_t fileId = 0;  // FileId(path, name), the ID the folder lists give the file
    std::string name;     // file name
    std::string path;     // folder that holds it
    std::string title;    // the title tag, or the file name when it has none
    bool titleIsName = false;  // `title` is the file name, in the stick's bytes
    std::string artist;
    std::string album;
    uint32_t trackNumber = 0;
    uint32_t discNumber = 0;
    uint32_t duration = 0;  // seconds
};

// The tag library of one stick, kept in one SQLite database file (WAL mode)
// so that a stick plugged in again is not read again. A scan feeds it the
// files a walk finds; it reads the tags of new and changed files only, drops
// files the walk no longer found, and derives the artists, albums and genres
// from the tracks (see docs/tag-library.md for the identities and their IDs).
//
// One object is one connection: it belongs to one thread at a time, and
// needs no lock of its own. Another thread browsing while a scan runs opens
// a store of its own on the same file; WAL lets it read the last committed
// state meanwhile.
class CTagStore {
public:
    enum class EAddOutcome { Unchanged, Read, Failed };

    static constexpr const char* kVariousArtists = "Various Artists";

    // Opens the database at `databasePath`, creating it when missing. A file
    // that is not a database of this layout (corrupt, or an older layout) is
    // replaced by an empty one: it only ever holds what a scan can read again.
    bool Open(const std::string& databasePath);
    // Opens a database a scan has made, for queries only: never creates,
    // replaces or converts it; false when it is missing or of another layout.
    bool OpenExisting(const std::string& databasePath);
    void Close();
    const std::string& LastError() const { return m_error; }

    // A scan: BeginScan; for each folder EnterFolder, then AddFile for each
    // of its audio files; EndScan. Writes are committed in batches, so a
    // browser on another connection sees a long first scan grow.
    bool BeginScan();
    // The folder the next files are in: its path as the walk has it (no
    // trailing "/"). A folder may be entered again later in the scan.
    void EnterFolder(const std::string& folder);
    // The file `name` of the current folder. Its tags are read through
    // `read` (no argument, returns STrackTags) only when the file is new or
    // its stamp changed: an unchanged file costs a lookup, no allocation.
    template <typename Read>
    EAddOutcome AddFile(std::string_view name, const SFileStamp& stamp, Read&& read)
    {
        if (!m_scanning) {
            return AddedOutsideAScan();
        }
        if (SeeFile(name, stamp)) {
            return EAddOutcome::Unchanged;
        }
        return StoreFile(name, stamp, read());
    }
    // Checks the files stored before this scan against the stick:
    // BeginVerify once, then VerifyKnownFiles on one thread or two at once,
    // each with its own `stat` (the stamp of `name` in `folder`; false when
    // it cannot be stat'ed); they share the folders in runs, in path order.
    // A file found with its stored stamp needs nothing more this scan
    // (SeeVerifiedFile). Lets a scan stat the stick's known files while its
    // walk goes on, and share what is left when the walk ends; nothing else
    // uses the store meanwhile.
    using StatFunction = std::function<bool(const std::string& folder, const std::string& name, SFileStamp& stamp)>;
    void BeginVerify();
    void VerifyKnownFiles(const StatFunction& stat);
    bool KnownFilesVerified() const { return m_verified; }
    // Whether the scan under way found files stored before it.
    bool KnowsFiles() const { return !m_known.empty(); }
    // True, and the file counts as seen, when `name` of the current folder
    // was verified unchanged; else the scan stamps it and calls AddFile.
    bool SeeVerifiedFile(std::string_view name);

    // Ends the scan. Only a `complete` one (the walk saw the whole stick)
    // removes the files it did not see; a scan stopped early keeps them.
    // Without `rebuild` the artists, albums and genres stay as they were
    // (a scan told to stop commits its files at once and leaves the rest to
    // the next scan).
    bool EndScan(bool complete, bool rebuild = true);
    // Whether the last scan wrote anything (files, or the derived tables).
    bool LastScanWrote() const { return m_wrote; }

    uint32_t TrackCount();
    SLibraryCounts Counts();

    // Paged lists: the store counts the list, `page` picks the items.
    SPage<SCategoryEntry> Artists(const PageChooser& page);
    SPage<SCategoryEntry> Genres(const PageChooser& page);
    SPage<SAlbumEntry> Albums(const PageChooser& page);
    SPage<SAlbumEntry> AlbumsByArtist(uint32_t artistId, const PageChooser& page);
    SPage<SAlbumEntry> AlbumsByGenre(uint32_t genreId, const PageChooser& page);
    // Every track, in the order of an artist's.
    SPage<STrackEntry> Tracks(const PageChooser& page);
    SPage<STrackEntry> TracksByAlbum(uint32_t albumId, const PageChooser& page);
    SPage<STrackEntry> TracksByArtist(uint32_t artistId, const PageChooser& page);
    SPage<STrackEntry> TracksByGenre(uint32_t genreId, const PageChooser& page);
    // Artists, albums and tracks whose name (a track's title or file name)
    // holds `text`, compared by SortKey: case and accents do not count. An
    // empty text finds nothing.
    SPage<SCategoryEntry> SearchArtists(const std::string& text, const PageChooser& page);
    SPage<SAlbumEntry> SearchAlbums(const std::string& text, const PageChooser& page);
    SPage<STrackEntry> SearchTracks(const std::string& text, const PageChooser& page);

    SAlbumArtSource AlbumArtSource(uint32_t albumId);

private:
    bool OpenFile(const std::string& databasePath);
    EAddOutcome AddedOutsideAScan();
    // Marks `name` of the current folder as seen; true when it is stored
    // with `stamp`, else remembers its row (if any) for StoreFile.
    bool SeeFile(std::string_view name, const SFileStamp& stamp);
    EAddOutcome StoreFile(std::string_view name, const SFileStamp& stamp, const STrackTags& tags);
    bool MarkUnlinked();
    void ForgetScan();
    bool Fail(const std::string& what);
    bool CommitBatchIfDue();
    bool RemoveUnseen();
    bool RebuildIdentities();
    uint32_t Count(const std::string& sql, int64_t key);
    template <typename Item>
    SPage<Item> Page(const std::string& countSql, const std::string& itemsSql, const int64_t* key,
                     const PageChooser& chooser, Item (*from)(const CSqliteStatement&));
    bool LoadKnownStamps();
    bool LoadSearchKeys();
    // The row of the folder entered in the folders table, added when new;
    // 0 on failure.
    int64_t CurrentFolderId();

    SqliteHandle m_database;
    std::string m_error;
    // The scan under way. The files stored before it, sorted by folder and
    // name, with their names back to back: what is left unseen at a complete
    // end is gone. The folders table by path, the folder entered and its
    // run of known files, the row StoreFile replaces, writes since the last
    // commit, and whether anything changed at all.
    bool m_scanning = false;
    struct SKnownFile {
        int64_t folderId = 0;
        uint32_t nameOffset = 0;
        uint32_t nameLength = 0;
        SFileStamp stamp;
        int64_t rowId = 0;
        bool seen = false;
        bool verified = false;  // stat'ed during this scan with the stored stamp
    };
    // The known file `name` in the current folder's run; null when none.
    SKnownFile* FindKnown(std::string_view name);
    std::vector<SKnownFile> m_known;
    std::string m_knownNames;
    std::unordered_map<std::string, int64_t> m_folderIds;
    std::string m_folder;
    int64_t m_folderId = 0;  // 0 while the folder entered is not stored yet
    size_t m_folderKnownBegin = 0;
    size_t m_folderKnownEnd = 0;
    std::optional<int64_t> m_replacedRow;
    // The search keys of the tracks' titles, the artists and the albums, as
    // of one data version of the file.
    struct SSearchLists {
        CSearchKeys titles;   // rows of tracks
        CSearchKeys artists;  // artist IDs
        CSearchKeys albums;   // album IDs
        int64_t dataVersion = -1;
    };
    SSearchLists m_search;
    template <typename Item>
    SPage<Item> Search(const std::string& text, CSearchKeys SSearchLists::*keys, const PageChooser& chooser,
                       const std::string& rowSql, Item (*from)(const CSqliteStatement&));
    CSqliteStatement m_store;
    CSqliteStatement m_addFolder;
    uint32_t m_pendingWrites = 0;
    std::chrono::steady_clock::time_point m_lastCommit;
    bool m_changed = false;
    bool m_wrote = false;     // for LastScanWrote
    bool m_verified = false;  // BeginVerify was called in this scan
    static constexpr size_t kFoldersPerVerifyRun = 16;
    // The known folders (path, id) in path order, and the next run of them
    // to verify.
    std::vector<std::pair<std::string, int64_t>> m_verifyFolders;
    std::atomic<size_t> m_nextVerifyRun{0};
};

// Gives each name of `names` (in their byte order) its 32-bit ID: `hash` of
// the name, or when an earlier name holds that ID already, the next free one
// upwards (wrapping, never 0xFFFFFFFF, which means "no entry", nor 0, which
// marks a track not yet linked to its album). The same set
// of names always gets the same IDs, whatever order the files were scanned in.
template <typename Name>
std::map<Name, uint32_t> AssignIds(const std::set<Name>& names, const std::function<uint32_t(const Name&)>& hash)
{
    constexpr uint32_t kNoEntry = 0xFFFFFFFF;
    std::map<Name, uint32_t> ids;
    std::set<uint32_t> taken;
    for (const Name& name : names) {
        uint32_t id = hash(name);
        while (id == kNoEntry || id == 0 || taken.count(id) != 0) {
            ++id;
        }
        taken.insert(id);
        ids.emplace(name, id);
    }
    return ids;
}
