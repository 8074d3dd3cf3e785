// The tag library's replies as the verbs print them; replies written by
// hand in the shape the service sends.
#include "tools/LibraryReports.h"

#include "control/rpc/JsonText.h"

#include <gtest/gtest.h>

using usbctl::FormatLibraryPage;
using usbctl::FormatLibraryStatus;
using usbctl::FormatSearchResult;
using usbctl::LibraryList;
using usbctl::LibraryStatusLine;

namespace {
Json::Value Parse(const std::string& text)
{
    Json::Value value;
    EXPECT_TRUE(Json::Rpc::ParseJson(text, value)) << text;
    return value;
}

const char* kArtists =
    R"({"currIndex":0,"entries":[)"
    R"({"ID":660045541,"albumCount":2,"name":"The Demo Trio","trackCount":5},)"
    R"({"ID":7,"albumCount":1,"name":"","trackCount":1}],"totalCount":2})";
const char* kAlbums =
    R"({"currIndex":0,"entries":[)"
    R"({"ID":3141592653,"artFilePath":"","artist":"The Demo Trio","name":"Late Set","trackCount":3,"year":2019},)"
    R"({"ID":12,"artFilePath":"","artist":"","name":"","trackCount":1,"year":0}],"totalCount":2})";
const char* kTracks =
    R"({"currIndex":20,"entries":[)"
    R"({"ID":1,"album":"Late Set","artist":"The Demo Trio","discNumber":1,"duration":195,)"
    R"("name":"01 Blue Hour.mp3","path":"/mnt/usb-stick1/Jazz","title":"Blue Hour","trackNumber":1},)"
    R"({"ID":22,"album":"Late Set","artist":"The Demo Trio","discNumber":2,"duration":61,)"
    R"("name":"b.mp3","path":"/mnt/usb-stick1/Jazz","title":"Encore","trackNumber":12},)"
    R"({"ID":333,"album":"","artist":"","discNumber":0,"duration":0,)"
    R"("name":"noise.wav","path":"/mnt/usb-stick1","title":"","trackNumber":0}],"totalCount":57})";
}  // namespace

TEST(LibraryReportsTest, StatusAsFields)
{
    EXPECT_EQ(FormatLibraryStatus(Parse(R"({"albums":3,"artists":2,"genres":1,"scanned":4,"state":"scanning",)"
                                        R"("total":9,"tracks":4})")),
              "state:    scanning\n"
              "scanned:  4 of 9 files\n"
              "tracks:   4\n"
              "artists:  2\n"
              "albums:   3\n"
              "genres:   1\n");
}

TEST(LibraryReportsTest, StatusLinePerState)
{
    const std::string counts = R"("albums":3,"artists":2,"genres":1,"scanned":9,"total":9,"tracks":9)";
    EXPECT_EQ(LibraryStatusLine(Parse(R"({"state":"ready",)" + counts + "}")),
              "library: ready, 9 tracks, 2 artists, 3 albums, 1 genre");
    EXPECT_EQ(LibraryStatusLine(Parse(R"({"state":"scanning","scanned":1,"total":1})")),
              "library: scanning, 1 of 1 file");
    EXPECT_EQ(LibraryStatusLine(Parse(R"({"state":"failed","scanned":25,"total":300})")),
              "library: failed after 25 of 300 files");
    EXPECT_EQ(LibraryStatusLine(Parse(R"({"state":"idle",)" + counts + "}")), "library: idle");
}

TEST(LibraryReportsTest, ArtistsIdFirstWithTheirCounts)
{
    EXPECT_EQ(FormatLibraryPage(LibraryList::kArtists, Parse(kArtists)),
              " 660045541  The Demo Trio (2 albums, 5 tracks)\n"
              "         7  (no artist) (1 album, 1 track)\n"
              "entries 1-2 of 2\n");
}

TEST(LibraryReportsTest, GenreWithoutName)
{
    EXPECT_EQ(FormatLibraryPage(LibraryList::kGenres, Parse(kArtists)),
              " 660045541  The Demo Trio (2 albums, 5 tracks)\n"
              "         7  (no genre) (1 album, 1 track)\n"
              "entries 1-2 of 2\n");
}

TEST(LibraryReportsTest, AlbumsWithArtistAndYear)
{
    EXPECT_EQ(FormatLibraryPage(LibraryList::kAlbums, Parse(kAlbums)),
              "3141592653  Late Set - The Demo Trio (2019, 3 tracks)\n"
              "        12  (no album) (1 track)\n"
              "entries 1-2 of 2\n");
}

TEST(LibraryReportsTest, TracksWithNumberTitleArtistAlbumAndLength)
{
    EXPECT_EQ(FormatLibraryPage(LibraryList::kTracks, Parse(kTracks)),
              "         1  01 Blue Hour - The Demo Trio (Late Set, 3:15)\n"
              "        22  2-12 Encore - The Demo Trio (Late Set, 1:01)\n"
              "       333  noise.wav\n"
              "entries 21-23 of 57, more from START 23\n");
}

TEST(LibraryReportsTest, EmptyPage)
{
    EXPECT_EQ(FormatLibraryPage(LibraryList::kAlbums, Parse(R"({"currIndex":0,"entries":[],"totalCount":0})")),
              "no entries (0 in all)\n");
    EXPECT_EQ(FormatLibraryPage(LibraryList::kTracks, Parse(R"({"currIndex":0,"entries":[],"totalCount":8})")),
              "no entries (8 in all)\n");
}

TEST(LibraryReportsTest, SearchShowsTheThreeListsUnderTheirHeadings)
{
    const Json::Value result = Parse(std::string(R"({"albums":{"currIndex":0,"entries":[],"totalCount":0},)") +
                                     R"("artists":)" + kArtists + R"(,"tracks":)" + kTracks + "}");
    EXPECT_EQ(FormatSearchResult(result),
              "artists: entries 1-2 of 2\n"
              " 660045541  The Demo Trio (2 albums, 5 tracks)\n"
              "         7  (no artist) (1 album, 1 track)\n"
              "albums: no entries (0 in all)\n"
              "tracks: entries 21-23 of 57, more from START 23\n"
              "         1  01 Blue Hour - The Demo Trio (Late Set, 3:15)\n"
              "        22  2-12 Encore - The Demo Trio (Late Set, 1:01)\n"
              "       333  noise.wav\n");
}
