// The tag library as clients see it over TCP: the corpus of tagged files
// browsed by artist, genre and album, searched, paged like the folder lists,
// played as album lists, and the albums' covers.

#include "tests/integration/TagLibraryFixture.h"

#include "tests/support/PlayerStates.h"
#include "tests/support/TagCorpus.h"
#include "tests/support/TempDir.h"

#include <sys/stat.h>

#include <string>
#include <utility>
#include <vector>

using tag_library_test::EntryNamed;
using tag_library_test::TagLibraryTest;
using tag_library_test::Texts;
using testing_support::Corpus;
using testing_support::MakeTaggedFiles;
using testing_support::ReadFile;
using testing_support::STaggedFile;
using tag_library_test::Compact;

namespace {

using Names = std::vector<std::string>;

// The 1x1 PNG tests/support/tag_files.py embeds as a cover.
std::string TaggerPng()
{
    const std::string hex =
        "89504e470d0a1a0a0000000d4948445200000001000000010806000000"
        "1f15c4890000000d49444154789c6360000002000154a24f5d0000000049454e44ae426082";
    std::string bytes;
    for (size_t at = 0; at + 1 < hex.size(); at += 2) {
        bytes += static_cast<char>(std::stoi(hex.substr(at, 2), nullptr, 16));
    }
    return bytes;
}

// The corpus, and one file whose artist, album and title are in capitals
// with an accent, for the search.
std::vector<STaggedFile> Stick()
{
    std::vector<STaggedFile> files = Corpus();
    files.push_back({"Cafe/x.mp3", "id3v24", "utf8",
                     {{"title", "CAFÉ DEL MAR"}, {"artist", "CAFÉ Society"}, {"album", "CAFÉ Sessions"},
                      {"track", "1"}}});
    return files;
}

const Names kArtists = {"",      "ABBA",         "Alpha",       "Beta", "CAFÉ Society",
                        "Queen", "Various Artists", "Vintage Band", "Wave Artist", "Zoë"};
const Names kAlbums = {"", "CAFÉ Sessions", "Classics", "Été", "Greatest Hits", "Greatest Hits", "Hits 2000",
                       "Wave Album"};

class LibraryWireTest : public TagLibraryTest {
protected:
    // The corpus on the first stick, indexed and scanned.
    void SetUpCorpus()
    {
        ASSERT_NO_FATAL_FAILURE(MakeTaggedFiles(Stick1(), Stick()));
        StartLibraryDaemon();
        const Json::Value ready = IndexStickAndWaitUntilReady();
        ASSERT_EQ(ready["state"], "ready") << ready.toStyledString();
    }

    Json::Value Album(const std::string& name, const std::string& artist)
    {
        const Json::Value albums = All("getAlbumsUSB");
        const Json::Value album = EntryNamed(albums, "name", name, artist);
        EXPECT_FALSE(album.isNull()) << name << " by " << artist << " not in " << albums.toStyledString();
        return album;
    }

    Json::Value TracksOf(const std::string& selector, const Json::Value& id)
    {
        Json::Value params(Json::objectValue);
        params[selector] = id;
        return All("getTracksUSB", params);
    }

    // The file's ID in its folder's getFileListUSB page.
    uint32_t ListedId(const std::string& folder, const std::string& name)
    {
        const Json::Value list = Browse(folder);
        for (const Json::Value& entry : list["result"]["filelist"]) {
            if (entry["name"].asString() == name) {
                return entry["ID"].asUInt();
            }
        }
        ADD_FAILURE() << name << " not listed in " << list.toStyledString();
        return 0;
    }
};

}  // namespace

TEST_F(LibraryWireTest, ArtistsAndGenresInFoldedOrderWithTheirCounts)
{
    ASSERT_NO_FATAL_FAILURE(SetUpCorpus());
    const Json::Value status = Status();
    EXPECT_EQ(Compact(status), R"({"albums":8,"artists":10,"genres":5,"scanned":12,"state":"ready",)"
                                R"("total":12,"tracks":12})");

    const Json::Value artists = All("getArtistsUSB");
    EXPECT_EQ(Texts(artists, "name"), kArtists) << artists.toStyledString();
    EXPECT_EQ(artists["totalCount"], 10) << artists.toStyledString();
    EXPECT_EQ(artists["currIndex"], 0) << artists.toStyledString();
    const Json::Value zoe = EntryNamed(artists, "name", "Zoë");
    EXPECT_EQ(zoe["albumCount"], 1) << artists.toStyledString();
    EXPECT_EQ(zoe["trackCount"], 3) << artists.toStyledString();
    // The untagged and the unreadable file: one artist "".
    EXPECT_EQ(EntryNamed(artists, "name", "")["trackCount"], 2) << artists.toStyledString();
    // The compilation's artist holds both its tracks.
    EXPECT_EQ(EntryNamed(artists, "name", "Various Artists")["trackCount"], 2) << artists.toStyledString();

    const Json::Value genres = All("getGenresUSB");
    EXPECT_EQ(Texts(genres, "name"), (Names{"", "Ambient", "Jazz", "Pop", "Rock"})) << genres.toStyledString();
    const Json::Value pop = EntryNamed(genres, "name", "Pop");
    EXPECT_EQ(pop["albumCount"], 2) << genres.toStyledString();
    EXPECT_EQ(pop["trackCount"], 3) << genres.toStyledString();
    Json::Value byGenre(Json::objectValue);
    byGenre["genreID"] = pop["ID"];
    const Json::Value popAlbums = All("getAlbumsUSB", byGenre);
    EXPECT_EQ(Texts(popAlbums, "name"), (Names{"Greatest Hits", "Hits 2000"})) << popAlbums.toStyledString();
    const Json::Value popTracks = All("getTracksUSB", byGenre);
    EXPECT_EQ(Texts(popTracks, "title"), (Names{"Dancing", "First Hit", "Second Hit"})) << popTracks.toStyledString();
    // ID3v1's genre byte, read as a name.
    const Json::Value rock = TracksOf("genreID", EntryNamed(genres, "name", "Rock")["ID"]);
    EXPECT_EQ(Texts(rock, "title"), (Names{"Old Song", "Bohemian"})) << rock.toStyledString();
}

TEST_F(LibraryWireTest, ACompilationIsOneAlbumAndOneNameByTwoArtistsIsTwo)
{
    ASSERT_NO_FATAL_FAILURE(SetUpCorpus());
    const Json::Value albums = All("getAlbumsUSB");
    // "Été" sorts with "Ete", not after "Z".
    EXPECT_EQ(Texts(albums, "name"), kAlbums) << albums.toStyledString();
    EXPECT_EQ(albums["entries"][4]["artist"], "ABBA") << albums.toStyledString();
    EXPECT_EQ(albums["entries"][5]["artist"], "Queen") << albums.toStyledString();
    EXPECT_NE(albums["entries"][4]["ID"], albums["entries"][5]["ID"]) << albums.toStyledString();

    const Json::Value hits = Album("Hits 2000", "Various Artists");
    EXPECT_EQ(hits["trackCount"], 2) << hits.toStyledString();
    EXPECT_EQ(hits["year"], 2000) << hits.toStyledString();
    const Json::Value hitsTracks = TracksOf("albumID", hits["ID"]);
    EXPECT_EQ(Texts(hitsTracks, "title"), (Names{"First Hit", "Second Hit"})) << hitsTracks.toStyledString();
    EXPECT_EQ(Texts(hitsTracks, "artist"), (Names{"Alpha", "Beta"})) << hitsTracks.toStyledString();

    // Every track without an album name is on the one album "" of artist "".
    const Json::Value nameless = Album("", "");
    const Json::Value namelessTracks = TracksOf("albumID", nameless["ID"]);
    // The untagged and the unreadable file are kept, titled by their names.
    EXPECT_EQ(Texts(namelessTracks, "title"), (Names{"broken.wma", "none.mp3"})) << namelessTracks.toStyledString();

}

TEST_F(LibraryWireTest, EachFormOfTagIsReadIntoTheTracks)
{
    ASSERT_NO_FATAL_FAILURE(SetUpCorpus());
    const Json::Value tracks = All("getTracksUSB");
    EXPECT_EQ(tracks["totalCount"], 12) << tracks.toStyledString();

    // ID3v2.3 in Latin-1 and UTF-16, ID3v2.4 in UTF-8; two discs, "3/12".
    const Json::Value ete = TracksOf("albumID", Album("Été", "Zoë")["ID"]);
    EXPECT_EQ(Texts(ete, "title"), (Names{"Aube", "Café Noir", "Ünïcödé ☃"})) << ete.toStyledString();
    EXPECT_EQ(Texts(ete, "name"), (Names{"03.mp3", "01.mp3", "02.mp3"})) << ete.toStyledString();
    EXPECT_EQ(ete["entries"][1]["trackNumber"], 3) << ete.toStyledString();
    EXPECT_EQ(ete["entries"][2]["discNumber"], 2) << ete.toStyledString();
    EXPECT_EQ(ete["entries"][0]["album"], "Été") << ete.toStyledString();
    EXPECT_EQ(ete["entries"][0]["artist"], "Zoë") << ete.toStyledString();
    EXPECT_EQ(ete["entries"][0]["path"], Stick1() + "/Rock/Ete") << ete.toStyledString();
    EXPECT_GE(ete["entries"][0]["duration"].asUInt(), 1u) << ete.toStyledString();

    // ID3v1 only, WMA, WAV with RIFF INFO, no tag at all.
    const Json::Value old = EntryNamed(tracks, "title", "Old Song");
    EXPECT_EQ(old["artist"], "Vintage Band") << tracks.toStyledString();
    EXPECT_EQ(old["album"], "Classics") << tracks.toStyledString();
    EXPECT_EQ(old["trackNumber"], 4) << tracks.toStyledString();
    EXPECT_EQ(Album("Classics", "Vintage Band")["year"], 1999);
    const Json::Value wma = EntryNamed(tracks, "title", "Dancing");
    EXPECT_EQ(wma["name"], "abba.wma") << tracks.toStyledString();
    EXPECT_EQ(wma["trackNumber"], 5) << tracks.toStyledString();
    EXPECT_EQ(wma["discNumber"], 1) << tracks.toStyledString();
    const Json::Value wav = EntryNamed(tracks, "title", "Info Title");
    EXPECT_EQ(wav["name"], "info.wav") << tracks.toStyledString();
    EXPECT_EQ(wav["artist"], "Wave Artist") << tracks.toStyledString();
    EXPECT_EQ(wav["trackNumber"], 7) << tracks.toStyledString();
    const Json::Value none = EntryNamed(tracks, "name", "none.mp3");
    EXPECT_EQ(none["title"], "none.mp3") << tracks.toStyledString();
    EXPECT_EQ(none["artist"], "") << tracks.toStyledString();
    EXPECT_EQ(none["album"], "") << tracks.toStyledString();
}

TEST_F(LibraryWireTest, ATracksIdIsItsFileIdInTheFolderList)
{
    ASSERT_NO_FATAL_FAILURE(SetUpCorpus());
    const Json::Value tracks = All("getTracksUSB");
    ASSERT_EQ(tracks["entries"].size(), 12u) << tracks.toStyledString();
    for (const Json::Value& track : tracks["entries"]) {
        EXPECT_EQ(track["ID"].asUInt(), ListedId(track["path"].asString(), track["name"].asString()))
            << track.toStyledString();
    }
}

TEST_F(LibraryWireTest, SearchFindsCapitalsAndAccentsInEachList)
{
    ASSERT_NO_FATAL_FAILURE(SetUpCorpus());
    Json::Value params(Json::objectValue);
    params["text"] = "cafe";
    const Json::Value found = Page("searchLibraryUSB", 0, 10, params);
    EXPECT_EQ(Texts(found["artists"], "name"), (Names{"CAFÉ Society"})) << found.toStyledString();
    EXPECT_EQ(Texts(found["albums"], "name"), (Names{"CAFÉ Sessions"})) << found.toStyledString();
    EXPECT_EQ(found["albums"]["entries"][0]["artist"], "CAFÉ Society") << found.toStyledString();
    EXPECT_EQ(Texts(found["tracks"], "title"), (Names{"CAFÉ DEL MAR", "Café Noir"})) << found.toStyledString();
    EXPECT_EQ(found["tracks"]["entries"][1]["ID"].asUInt(), ListedId(Stick1() + "/Rock/Ete", "01.mp3"))
        << found.toStyledString();

    // Each list is paged on its own: one that fits in the page comes whole.
    const Json::Value second = Page("searchLibraryUSB", 1, 1, params);
    EXPECT_EQ(Texts(second["artists"], "name"), (Names{"CAFÉ Society"})) << second.toStyledString();
    EXPECT_EQ(second["artists"]["currIndex"], 0) << second.toStyledString();
    EXPECT_EQ(Texts(second["tracks"], "title"), (Names{"Café Noir"})) << second.toStyledString();
    EXPECT_EQ(second["tracks"]["currIndex"], 1) << second.toStyledString();
    EXPECT_EQ(second["tracks"]["totalCount"], 2) << second.toStyledString();

    params["text"] = "ZOE";
    const Json::Value zoe = Page("searchLibraryUSB", 0, 10, params);
    EXPECT_EQ(Texts(zoe["artists"], "name"), (Names{"Zoë"})) << zoe.toStyledString();
    EXPECT_EQ(zoe["tracks"]["entries"].size(), 0u) << zoe.toStyledString();
    params["text"] = "";
    const Json::Value nothing = Page("searchLibraryUSB", 0, 10, params);
    EXPECT_EQ(Compact(nothing), R"({"albums":{"currIndex":0,"entries":[],"totalCount":0},)"
                                 R"("artists":{"currIndex":0,"entries":[],"totalCount":0},)"
                                 R"("tracks":{"currIndex":0,"entries":[],"totalCount":0}})");
}

// Pages as getFileListUSB's: startIndex modulo the size, negative from the
// end; a list that fits in itemCount whole from 0; no entries for a count
// of 0 or less; the page stops at the end of the list.
TEST_F(LibraryWireTest, PagesLikeTheFolderLists)
{
    ASSERT_NO_FATAL_FAILURE(SetUpCorpus());
    struct SCase {
        int start;
        int count;
        int currIndex;
        Names names;
    };
    const std::vector<SCase> artistCases = {
        {3, 2, 3, {"Beta", "CAFÉ Society"}},
        {13, 2, 3, {"Beta", "CAFÉ Society"}},
        {-1, 2, 9, {"Zoë"}},
        {-10, 1, 0, {""}},
        {8, 5, 8, {"Wave Artist", "Zoë"}},
        {3, 0, 3, {}},
        {3, -4, 3, {}},
        {7, 10, 0, kArtists},
        {-2, 1000, 0, kArtists},
    };
    for (const SCase& page : artistCases) {
        const Json::Value artists = Page("getArtistsUSB", page.start, page.count);
        EXPECT_EQ(Texts(artists, "name"), page.names) << page.start << "/" << page.count << ": " << Compact(artists);
        EXPECT_EQ(artists["currIndex"], page.currIndex) << page.start << "/" << page.count << ": " << Compact(artists);
        EXPECT_EQ(artists["totalCount"], 10) << Compact(artists);
        EXPECT_TRUE(artists["entries"].isArray()) << Compact(artists);
    }
    const std::vector<SCase> albumCases = {
        {-3, 2, 5, {"Greatest Hits", "Hits 2000"}},
        {17, 3, 1, {"CAFÉ Sessions", "Classics", "Été"}},
        {0, 0, 0, {}},
        {5, 8, 0, kAlbums},
    };
    for (const SCase& page : albumCases) {
        const Json::Value albums = Page("getAlbumsUSB", page.start, page.count);
        EXPECT_EQ(Texts(albums, "name"), page.names) << page.start << "/" << page.count << ": " << Compact(albums);
        EXPECT_EQ(albums["currIndex"], page.currIndex) << page.start << "/" << page.count << ": " << Compact(albums);
        EXPECT_EQ(albums["totalCount"], 8) << Compact(albums);
    }
    // An empty list: no entries, and [] rather than null.
    Json::Value unknown(Json::objectValue);
    unknown["artistID"] = 12345;
    EXPECT_EQ(Compact(Page("getTracksUSB", 2, 5, unknown)), R"({"currIndex":0,"entries":[],"totalCount":0})");
}

TEST_F(LibraryWireTest, AlbumArtFromAnEmbeddedPictureOrTheFolderCover)
{
    // cover.jpg beside the WAV album's only track; Classics has no picture.
    testing_support::WriteFile(Stick1() + "/Wav/cover.jpg", ReadFile(device_test::CoverJpeg()));
    ASSERT_NO_FATAL_FAILURE(SetUpCorpus());

    const Json::Value embedded = Album("Été", "Zoë");
    const std::string embeddedPath = embedded["artFilePath"].asString();
    ASSERT_FALSE(embeddedPath.empty()) << embedded.toStyledString();
    EXPECT_EQ(ReadFile(embeddedPath), TaggerPng()) << embeddedPath;

    const Json::Value folder = Album("Wave Album", "Wave Artist");
    const std::string folderPath = folder["artFilePath"].asString();
    ASSERT_FALSE(folderPath.empty()) << folder.toStyledString();
    EXPECT_EQ(ReadFile(folderPath), ReadFile(device_test::CoverJpeg())) << folderPath;

    EXPECT_EQ(Album("Classics", "Vintage Band")["artFilePath"], "");
    // The same file again on the next ask, also through the search.
    EXPECT_EQ(Album("Été", "Zoë")["artFilePath"].asString(), embeddedPath);
    Json::Value search(Json::objectValue);
    search["text"] = "ete";
    const Json::Value found = Page("searchLibraryUSB", 0, 10, search);
    EXPECT_EQ(found["albums"]["entries"][0]["artFilePath"].asString(), embeddedPath) << found.toStyledString();
}

namespace {

// An album whose order (by title: no track numbers) is not the folder's.
class PlayTracksTest : public LibraryWireTest {
protected:
    void SetUp() override
    {
        const std::vector<std::pair<std::string, std::string>> files = {
            {"z.mp3", "A first"}, {"m.mp3", "B second"}, {"a.mp3", "C third"}};
        for (const auto& [name, title] : files) {
            device_test::TrackTags tags;
            tags.title = title;
            tags.artist = "Long Artist";
            tags.album = "Long Album";
            device_test::MakeMp3(Stick1() + "/Long/" + name, device_test::kLongTrackSeconds, tags);
        }
        StartLibraryDaemon();
        const Json::Value ready = IndexStickAndWaitUntilReady();
        ASSERT_EQ(ready["tracks"], 3) << ready.toStyledString();
        m_album = Album("Long Album", "Long Artist")["ID"];
    }

    Json::Value PlayAlbum(const Json::Value& startTrackId)
    {
        Json::Value params(Json::objectValue);
        params["albumID"] = m_album;
        if (!startTrackId.isNull()) {
            params["startTrackID"] = startTrackId;
        }
        return Call("playTracksUSB", params);
    }

    Json::Value m_album;
};

}  // namespace

TEST_F(PlayTracksTest, AnAlbumPlaysFromTheTrackAskedForAndNextFollowsTheAlbumOrder)
{
    const Json::Value tracks = TracksOf("albumID", m_album);
    ASSERT_EQ(Texts(tracks, "name"), (Names{"z.mp3", "m.mp3", "a.mp3"})) << tracks.toStyledString();
    {
        const Json::Value reply = PlayAlbum(tracks["entries"][1]["ID"]);
        ASSERT_EQ(Compact(reply["result"]), R"({"success":true})") << reply.toStyledString();
    }
    Json::Value info;
    ASSERT_TRUE(NextNotification(info, "trackInfoNotification"));
    EXPECT_EQ(info["params"]["trackInfo"]["fileName"], "m.mp3") << info.toStyledString();
    EXPECT_EQ(info["params"]["trackInfo"]["filePath"], Stick1() + "/Long") << info.toStyledString();
    ASSERT_TRUE(WaitForPlayingFile("m.mp3")) << Call("getCurrentTrackInfoUSB").toStyledString();

    // The next of the album, not of the folder (which would be z.mp3).
    {
        const Json::Value reply = Call("nextUSB");
        ASSERT_TRUE(reply.isMember("result")) << reply.toStyledString();
    }
    EXPECT_TRUE(WaitForPlayingFile("a.mp3")) << Call("getCurrentTrackInfoUSB").toStyledString();
}

TEST_F(PlayTracksTest, WithoutAStartTrackTheListPlaysFromItsFirst)
{
    const Json::Value reply = PlayAlbum(Json::Value());
    ASSERT_EQ(Compact(reply["result"]), R"({"success":true})") << reply.toStyledString();
    EXPECT_TRUE(WaitForPlayingFile("z.mp3")) << Call("getCurrentTrackInfoUSB").toStyledString();
}

TEST_F(PlayTracksTest, ATrackNotInTheListOrAnEmptyListIsRefused)
{
    const Json::Value notInList = PlayAlbum(12345);
    EXPECT_EQ(notInList["error"]["code"], -12) << notInList.toStyledString();
    EXPECT_EQ(notInList["error"]["message"], "E: Track not in this list") << notInList.toStyledString();

    Json::Value unknownAlbum(Json::objectValue);
    unknownAlbum["albumID"] = 12345;
    const Json::Value empty = Call("playTracksUSB", unknownAlbum);
    EXPECT_EQ(empty["error"]["code"], -3) << empty.toStyledString();
    EXPECT_EQ(empty["error"]["message"], "E: Playlist is empty") << empty.toStyledString();
    Json::Value unknownGenre(Json::objectValue);
    unknownGenre["genreID"] = 77;
    unknownGenre["startTrackID"] = 12345;
    const Json::Value emptyGenre = Call("playTracksUSB", unknownGenre);
    EXPECT_EQ(emptyGenre["error"]["code"], -3) << emptyGenre.toStyledString();
    EXPECT_EQ(device_test::DeviceTest::PlayerState(), testing_support::kStopped);
}
