// The tag library verbs' command lines turned into their requests.
#include "tools/LibraryRequests.h"

#include "tools/Replies.h"
#include "tools/Verbs.h"

#include <gtest/gtest.h>

using usbctl::Invocation;
using usbctl::LibraryRequest;
using usbctl::LibraryRequestFor;
using usbctl::UsageError;

namespace {
const std::vector<usbctl::OptionRule>* OptionsOfVerb(const std::string& name)
{
    const usbctl::Verb* verb = usbctl::FindVerb(name);
    return verb != nullptr ? &verb->options : nullptr;
}

LibraryRequest RequestOf(const std::vector<std::string>& args)
{
    return LibraryRequestFor(usbctl::ParseCommandLine(args, 8885, OptionsOfVerb));
}

// The method and the params as compact JSON, members in key order.
std::string Text(const std::vector<std::string>& args)
{
    const LibraryRequest request = RequestOf(args);
    return request.method + " " + usbctl::CompactJson(request.params);
}
}  // namespace

TEST(LibraryRequestsTest, StatusHasNoParams)
{
    EXPECT_EQ(Text({"library"}), "getLibraryStatusUSB {}");
}

TEST(LibraryRequestsTest, PagesStartAtZeroWithTwentyEntries)
{
    EXPECT_EQ(Text({"artists"}), R"(getArtistsUSB {"itemCount":20,"startIndex":0})");
    EXPECT_EQ(Text({"genres"}), R"(getGenresUSB {"itemCount":20,"startIndex":0})");
    EXPECT_EQ(Text({"albums"}), R"(getAlbumsUSB {"itemCount":20,"startIndex":0})");
    EXPECT_EQ(Text({"tracks"}), R"(getTracksUSB {"itemCount":20,"startIndex":0})");
}

TEST(LibraryRequestsTest, StartAndCount)
{
    EXPECT_EQ(Text({"artists", "40"}), R"(getArtistsUSB {"itemCount":20,"startIndex":40})");
    EXPECT_EQ(Text({"genres", "5", "3"}), R"(getGenresUSB {"itemCount":3,"startIndex":5})");
    EXPECT_EQ(Text({"tracks", "-1", "1"}), R"(getTracksUSB {"itemCount":1,"startIndex":-1})");
    EXPECT_EQ(Text({"albums", "0", "0"}), R"(getAlbumsUSB {"itemCount":0,"startIndex":0})");
}

TEST(LibraryRequestsTest, AlbumsOfAnArtistOrAGenre)
{
    EXPECT_EQ(Text({"albums", "--artist", "4294967295"}),
              R"(getAlbumsUSB {"artistID":4294967295,"itemCount":20,"startIndex":0})");
    EXPECT_EQ(Text({"albums", "--genre=7", "10", "5"}),
              R"(getAlbumsUSB {"genreID":7,"itemCount":5,"startIndex":10})");
}

TEST(LibraryRequestsTest, TracksOfAnAlbumAnArtistOrAGenre)
{
    EXPECT_EQ(Text({"tracks", "--album", "12"}), R"(getTracksUSB {"albumID":12,"itemCount":20,"startIndex":0})");
    EXPECT_EQ(Text({"tracks", "2", "--artist", "0"}),
              R"(getTracksUSB {"artistID":0,"itemCount":20,"startIndex":2})");
    EXPECT_EQ(Text({"tracks", "--genre", "99", "0", "50"}),
              R"(getTracksUSB {"genreID":99,"itemCount":50,"startIndex":0})");
}

TEST(LibraryRequestsTest, SearchTakesTheTextThenThePage)
{
    EXPECT_EQ(Text({"search", "blue hour"}), R"(searchLibraryUSB {"itemCount":20,"startIndex":0,"text":"blue hour"})");
    EXPECT_EQ(Text({"search", "Cafe", "3", "4"}), R"(searchLibraryUSB {"itemCount":4,"startIndex":3,"text":"Cafe"})");
    EXPECT_EQ(RequestOf({"search", "Caf\xc3\xa9"}).params["text"].asString(), "Caf\xc3\xa9");
    // A Latin-1 terminal's text goes out as UTF-8.
    EXPECT_EQ(RequestOf({"search", "Caf\xe9"}).params["text"].asString(), "Caf\xc3\xa9");
}

TEST(LibraryRequestsTest, PlayVerbsNameTheirListAndTheFirstTrack)
{
    EXPECT_EQ(Text({"play-album", "12"}), R"(playTracksUSB {"albumID":12})");
    EXPECT_EQ(Text({"play-artist", "34", "56"}), R"(playTracksUSB {"artistID":34,"startTrackID":56})");
    EXPECT_EQ(Text({"play-genre", "4294967295", "0"}), R"(playTracksUSB {"genreID":4294967295,"startTrackID":0})");
}

TEST(LibraryRequestsTest, WrongArgumentsAreUsageErrors)
{
    const std::vector<std::vector<std::string>> wrong{
        {"artists", "x"},
        {"artists", "0", "-1"},
        {"genres", "2147483648"},
        {"albums", "--artist", "-1"},
        {"albums", "--artist", "1", "--genre", "2"},
        {"tracks", "--album", "4294967296"},
        {"tracks", "--genre", "1", "--album", "2"},
        {"search", "x", "y"},
        {"play-album", "first"},
        {"play-genre", "1", "2x"},
    };
    for (const auto& args : wrong) {
        EXPECT_THROW(RequestOf(args), UsageError) << args[0] << " " << args[1];
    }
}

TEST(LibraryRequestsTest, CombinedSelectorsAreNamed)
{
    try {
        RequestOf({"tracks", "--artist", "1", "--album", "2"});
        FAIL() << "no usage error";
    } catch (const UsageError& error) {
        EXPECT_STREQ(error.what(), "--album and --artist cannot be combined");
    }
}
