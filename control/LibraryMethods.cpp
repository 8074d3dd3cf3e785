// Browsing by artist, album and genre, the search over them and playing one
// of their lists: the tag library's methods, and the events that start and
// end its scans.
#include "control/UsbMediaRequestHandler.h"

#include "control/LibraryArt.h"
#include "control/Paging.h"
#include "control/ParamReading.h"
#include "control/ReplyHelpers.h"
#include "core/TextConversion.h"
#include "core/UsbSticks.h"
#include "library/StickPaths.h"
#include "player/NotificationBuilders.h"
#include "player/UsbMediaPlayer.h"

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

namespace {
// At most this many entries go in one page, whatever "itemCount" asks: a
// client pages on from "currIndex", and no reply has to hold a whole stick.
constexpr size_t kMaxPageEntries = 1000;

// The albums of one reply that get their cover looked for: the library's
// cover folder keeps as many.
constexpr size_t kMaxCoversPerPage = CLibraryArt::kKeptFiles;

// Which list a request names: "albumID", else "artistID", else "genreID"
// (the presence of the key decides), else the whole library.
enum class EListKind { kAll, kAlbum, kArtist, kGenre };
struct SListChoice {
    EListKind kind = EListKind::kAll;
    uint32_t id = 0;
};

SListChoice ChosenList(const Json::Value& params, bool albumsToo)
{
    if (albumsToo && params.isObject() && params.isMember("albumID")) {
        return {EListKind::kAlbum, ReadUInt(params, "albumID")};
    }
    if (params.isObject() && params.isMember("artistID")) {
        return {EListKind::kArtist, ReadUInt(params, "artistID")};
    }
    if (params.isObject() && params.isMember("genreID")) {
        return {EListKind::kGenre, ReadUInt(params, "genreID")};
    }
    return {};
}

// The page getFileListUSB would send of a list of `total`, and no more than
// kMaxPageEntries of it.
SPageRange BrowseRange(uint32_t total, int startIndex, int itemCount)
{
    const SBrowsePage page = BrowsePage(total, startIndex, itemCount);
    const size_t end = std::min(page.end, page.begin + kMaxPageEntries);
    return {static_cast<uint32_t>(page.begin), static_cast<uint32_t>(end - page.begin)};
}

PageChooser RequestedPage(const Json::Value& params)
{
    const int startIndex = ReadInt(params, "startIndex");
    const int itemCount = ReadInt(params, "itemCount");
    return [startIndex, itemCount](uint32_t total) { return BrowseRange(total, startIndex, itemCount); };
}

// A file's title goes out as UTF-8: a tag's is; a file name stands in the
// stick's bytes and is converted like every name.
std::string TitleText(const STrackEntry& track)
{
    return track.titleIsName ? Latin1ToUtf8(track.title) : track.title;
}

Json::Value CategoryEntry(const SCategoryEntry& entry)
{
    Json::Value object(Json::objectValue);
    object["ID"] = Json::UInt(entry.id);
    object["name"] = entry.name;
    object["albumCount"] = Json::UInt(entry.albumCount);
    object["trackCount"] = Json::UInt(entry.trackCount);
    return object;
}

Json::Value TrackEntry(const STrackEntry& track)
{
    Json::Value object(Json::objectValue);
    object["ID"] = Json::UInt(track.fileId);
    object["name"] = Latin1ToUtf8(track.name);
    object["path"] = Latin1ToUtf8(track.path);
    object["title"] = TitleText(track);
    object["artist"] = track.artist;
    object["album"] = track.album;
    object["trackNumber"] = Json::UInt(track.trackNumber);
    object["discNumber"] = Json::UInt(track.discNumber);
    object["duration"] = Json::UInt(track.duration);
    return object;
}

// {"currIndex", "totalCount", "entries"} of one page, each item made an
// entry by `entry`.
template <typename Item, typename MakeEntry>
Json::Value PageObject(const SPage<Item>& page, const Json::Value& params, MakeEntry&& entry)
{
    Json::Value object(Json::objectValue);
    object["currIndex"] =
        Json::UInt(BrowsePage(page.totalCount, ReadInt(params, "startIndex"), ReadInt(params, "itemCount")).currIndex);
    object["totalCount"] = Json::UInt(page.totalCount);
    Json::Value& entries = object["entries"];
    entries = Json::Value(Json::arrayValue);
    for (const Item& item : page.items) {
        entries.append(entry(item));
    }
    return object;
}

std::vector<CFile> PlaylistOf(const SPage<STrackEntry>& page)
{
    std::vector<CFile> tracks;
    tracks.reserve(page.items.size());
    for (const STrackEntry& track : page.items) {
        tracks.emplace_back(track.fileId, track.name, track.path, false);
    }
    return tracks;
}

// The stick below which `path` lies, for a scan of the whole stick; none for
// the mount folder or any other path.
const SUsbStick* StickHolding(const std::string& path)
{
    const std::optional<SStickPath> confined = ConfineToSticks(path);
    if (!confined || confined->area == EStickArea::kMountFolder) {
        return nullptr;
    }
    return confined->area == EStickArea::kFirstStick ? &kFirstStick : &kSecondStick;
}
}  // namespace

void UsbMediaRequestHandler::KeepLibraryIn(const std::string& directory, const std::string& artDirectory,
                                           CTagLibrary::StatusListener listener, std::function<void()> listenCaller)
{
    m_listenCaller = std::move(listenCaller);
    m_tagLibrary = std::make_unique<CTagLibrary>(directory, std::move(listener));
    m_libraryArt = std::make_unique<CLibraryArt>(artDirectory);
}

void UsbMediaRequestHandler::ListenToLibrary()
{
    if (m_listenCaller) {
        m_listenCaller();
    }
}

void UsbMediaRequestHandler::StopLibrary()
{
    if (m_tagLibrary) {
        m_tagLibrary->Stop();
    }
}

// After an index of a stick (or of a folder on it), the whole stick is
// scanned; the path indexed names it when it is the stick itself, so the
// tracks' IDs are the ones its folder lists give, and the scan starts from
// that index rather than walk the stick again.
void UsbMediaRequestHandler::ScanLibraryAfterIndex(const std::string& path)
{
    const SUsbStick* stick = StickHolding(path);
    if (!m_tagLibrary || stick == nullptr) {
        return;
    }
    const std::optional<SStickPath> confined = ConfineToSticks(path);
    if (!confined || confined->resolved != confined->root) {
        m_tagLibrary->ScanStick(SystemPath(stick->mountPoint), stick->deviceName);
        return;
    }
    CStorageIndex walked = m_pPlayer->StorageIndexCopy();
    if (walked.RootPath() != path) {
        m_tagLibrary->ScanStick(path, stick->deviceName);
        return;
    }
    m_tagLibrary->ScanStick(path, stick->deviceName, std::move(walked));
}

void UsbMediaRequestHandler::FollowStickEvent(const std::string& device, bool connected, bool usable,
                                              const std::string& fsUuid)
{
    if (!m_tagLibrary) {
        return;
    }
    const auto stick = std::find_if(std::begin(kUsbSticks), std::end(kUsbSticks),
                                    [&](const SUsbStick& candidate) { return device == candidate.deviceName; });
    if (stick == std::end(kUsbSticks)) {
        return;
    }
    if (!connected || !usable) {
        m_tagLibrary->StickRemoved(device);
        return;
    }
    m_tagLibrary->SetStickIdentity(device, fsUuid);
    m_tagLibrary->ScanStick(SystemPath(stick->mountPoint), device);
}

bool UsbMediaRequestHandler::getLibraryStatusUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    ListenToLibrary();
    response["result"] = BuildLibraryStatusObject(m_tagLibrary ? m_tagLibrary->Status() : SLibraryStatus{});
    return true;
}

bool UsbMediaRequestHandler::getArtistsUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    ListenToLibrary();
    const Json::Value& params = Params(request);
    const auto page = ReadLibrary([&](CTagStore& store) { return store.Artists(RequestedPage(params)); });
    response["result"] = PageObject(page, params, CategoryEntry);
    return true;
}

bool UsbMediaRequestHandler::getGenresUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    ListenToLibrary();
    const Json::Value& params = Params(request);
    const auto page = ReadLibrary([&](CTagStore& store) { return store.Genres(RequestedPage(params)); });
    response["result"] = PageObject(page, params, CategoryEntry);
    return true;
}

bool UsbMediaRequestHandler::getAlbumsUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    ListenToLibrary();
    const Json::Value& params = Params(request);
    const SListChoice list = ChosenList(params, false);
    const auto page = ReadLibrary([&](CTagStore& store) {
        switch (list.kind) {
        case EListKind::kArtist:
            return store.AlbumsByArtist(list.id, RequestedPage(params));
        case EListKind::kGenre:
            return store.AlbumsByGenre(list.id, RequestedPage(params));
        default:
            return store.Albums(RequestedPage(params));
        }
    });
    response["result"] = PageObject(page, params, [this, covers = size_t{0}](const SAlbumEntry& album) mutable {
        return AlbumEntry(album, covers++ < kMaxCoversPerPage);
    });
    return true;
}

Json::Value UsbMediaRequestHandler::AlbumEntry(const SAlbumEntry& album, bool withCover)
{
    Json::Value object(Json::objectValue);
    object["ID"] = Json::UInt(album.id);
    object["name"] = album.name;
    object["artist"] = album.artist;
    object["year"] = Json::UInt(album.year);
    object["trackCount"] = Json::UInt(album.trackCount);
    object["artFilePath"] = withCover && m_tagLibrary ? m_libraryArt->PathOf(*m_tagLibrary, album.id) : std::string();
    return object;
}

SPage<STrackEntry> UsbMediaRequestHandler::ChosenTracks(const Json::Value& params, const PageChooser& page)
{
    const SListChoice list = ChosenList(params, true);
    return ReadLibrary([&](CTagStore& store) {
        switch (list.kind) {
        case EListKind::kAlbum:
            return store.TracksByAlbum(list.id, page);
        case EListKind::kArtist:
            return store.TracksByArtist(list.id, page);
        case EListKind::kGenre:
            return store.TracksByGenre(list.id, page);
        default:
            return store.Tracks(page);
        }
    });
}

bool UsbMediaRequestHandler::getTracksUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    ListenToLibrary();
    const Json::Value& params = Params(request);
    response["result"] = PageObject(ChosenTracks(params, RequestedPage(params)), params, TrackEntry);
    return true;
}

bool UsbMediaRequestHandler::searchLibraryUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    ListenToLibrary();
    const Json::Value& params = Params(request);
    const std::string text = ReadString(params, "text");
    Json::Value result(Json::objectValue);
    result["artists"] = PageObject(
        ReadLibrary([&](CTagStore& store) { return store.SearchArtists(text, RequestedPage(params)); }), params,
        CategoryEntry);
    result["albums"] = PageObject(
        ReadLibrary([&](CTagStore& store) { return store.SearchAlbums(text, RequestedPage(params)); }), params,
        [this, covers = size_t{0}](const SAlbumEntry& album) mutable {
            return AlbumEntry(album, covers++ < kMaxCoversPerPage);
        });
    result["tracks"] = PageObject(
        ReadLibrary([&](CTagStore& store) { return store.SearchTracks(text, RequestedPage(params)); }), params,
        TrackEntry);
    response["result"] = result;
    return true;
}

bool UsbMediaRequestHandler::playTracksUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    ListenToLibrary();
    const Json::Value& params = Params(request);
    // The whole list: a playlist holds every track of it, as a folder's does.
    std::vector<CFile> tracks =
        PlaylistOf(ChosenTracks(params, [](uint32_t total) { return SPageRange{0, total}; }));
    std::optional<uint32_t> startTrackId;
    if (params.isObject() && params.isMember("startTrackID")) {
        startTrackId = ReadUInt(params, "startTrackID");
    }
    ReplySuccess(m_pPlayer->RunWithStatus(&CUsbMediaPlayer::PlayTracksLocked, std::move(tracks), startTrackId),
                 response);
    return true;
}
