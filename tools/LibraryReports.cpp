#include "tools/LibraryReports.h"

#include "tools/Formatting.h"
#include "tools/Reports.h"

#include <cstdio>

namespace usbctl {

namespace {
std::string Count(unsigned count, const std::string& noun)
{
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

// The ID in the column ls uses, so the two read alike.
std::string IdColumn(const Json::Value& entry)
{
    char id[16];
    std::snprintf(id, sizeof id, "%10u", entry["ID"].asUInt());
    return std::string(id) + "  ";
}

// A missing tag is an entry named "": say so instead of printing nothing.
std::string NameOr(const Json::Value& entry, const std::string& missing)
{
    const std::string name = entry["name"].asString();
    return name.empty() ? missing : name;
}

std::string ArtistOrGenreLine(const Json::Value& entry, const std::string& missing)
{
    return IdColumn(entry) + NameOr(entry, missing) + " (" + Count(entry["albumCount"].asUInt(), "album") +
           ", " + Count(entry["trackCount"].asUInt(), "track") + ")";
}

std::string AlbumLine(const Json::Value& entry)
{
    std::string line = IdColumn(entry) + NameOr(entry, "(no album)");
    const std::string artist = entry["artist"].asString();
    if (!artist.empty()) {
        line += " - " + artist;
    }
    const unsigned year = entry["year"].asUInt();
    return line + " (" + (year > 0 ? std::to_string(year) + ", " : "") +
           Count(entry["trackCount"].asUInt(), "track") + ")";
}

// "2-03 " for disc 2 track 3, "03 " for track 3 of a single disc, "" without a number.
std::string TrackNumber(const Json::Value& entry)
{
    const unsigned track = entry["trackNumber"].asUInt();
    if (track == 0) {
        return "";
    }
    const unsigned disc = entry["discNumber"].asUInt();
    return (disc > 1 ? std::to_string(disc) + "-" : "") + (track < 10 ? "0" : "") + std::to_string(track) + " ";
}

std::string TrackLine(const Json::Value& entry)
{
    std::string title = entry["title"].asString();
    if (title.empty()) {
        title = entry["name"].asString();
    }
    std::string line = IdColumn(entry) + TrackNumber(entry) + title;
    const std::string artist = entry["artist"].asString();
    if (!artist.empty()) {
        line += " - " + artist;
    }
    std::string details = entry["album"].asString();
    const unsigned duration = entry["duration"].asUInt();
    if (duration > 0) {
        details += (details.empty() ? "" : ", ") + FormatClock(duration);
    }
    return details.empty() ? line : line + " (" + details + ")";
}

std::string EntryLine(LibraryList list, const Json::Value& entry)
{
    switch (list) {
    case LibraryList::kArtists:
        return ArtistOrGenreLine(entry, "(no artist)");
    case LibraryList::kGenres:
        return ArtistOrGenreLine(entry, "(no genre)");
    case LibraryList::kAlbums:
        return AlbumLine(entry);
    case LibraryList::kTracks:
        return TrackLine(entry);
    }
    return IdColumn(entry);
}

Json::ArrayIndex EntryCount(const Json::Value& page)
{
    const Json::Value& entries = page["entries"];
    return entries.isArray() ? entries.size() : 0;
}

std::string PageSummary(const Json::Value& page)
{
    const long long total = page["totalCount"].asInt64();
    const long long count = EntryCount(page);
    if (count == 0) {
        return "no entries (" + std::to_string(total) + " in all)";
    }
    const long long first = page["currIndex"].asInt64();
    std::string text = "entries " + std::to_string(first + 1) + "-" + std::to_string(first + count) + " of " +
                       std::to_string(total);
    if (first + count < total) {
        text += ", more from START " + std::to_string(first + count);
    }
    return text;
}

std::string EntryLines(LibraryList list, const Json::Value& page)
{
    std::string text;
    for (Json::ArrayIndex i = 0; i < EntryCount(page); ++i) {
        text += EntryLine(list, page["entries"][i]) + "\n";
    }
    return text;
}
}  // namespace

std::string FormatLibraryStatus(const Json::Value& status)
{
    std::string text;
    text += ReportField("state", status["state"].asString());
    text += ReportField("scanned", std::to_string(status["scanned"].asUInt()) + " of " +
                                       Count(status["total"].asUInt(), "file"));
    text += ReportField("tracks", std::to_string(status["tracks"].asUInt()));
    text += ReportField("artists", std::to_string(status["artists"].asUInt()));
    text += ReportField("albums", std::to_string(status["albums"].asUInt()));
    text += ReportField("genres", std::to_string(status["genres"].asUInt()));
    return text;
}

std::string LibraryStatusLine(const Json::Value& status)
{
    const std::string state = status["state"].asString();
    const std::string progress =
        std::to_string(status["scanned"].asUInt()) + " of " + Count(status["total"].asUInt(), "file");
    if (state == "scanning") {
        return "library: scanning, " + progress;
    }
    if (state == "failed") {
        return "library: failed after " + progress;
    }
    if (state == "ready") {
        return "library: ready, " + Count(status["tracks"].asUInt(), "track") + ", " +
               Count(status["artists"].asUInt(), "artist") + ", " + Count(status["albums"].asUInt(), "album") +
               ", " + Count(status["genres"].asUInt(), "genre");
    }
    return "library: " + state;
}

std::string FormatLibraryPage(LibraryList list, const Json::Value& page)
{
    return EntryLines(list, page) + PageSummary(page) + "\n";
}

std::string FormatSearchResult(const Json::Value& result)
{
    const struct {
        const char* key;
        LibraryList list;
    } sections[] = {{"artists", LibraryList::kArtists},
                    {"albums", LibraryList::kAlbums},
                    {"tracks", LibraryList::kTracks}};
    std::string text;
    for (const auto& section : sections) {
        const Json::Value& page = result[section.key];
        text += std::string(section.key) + ": " + PageSummary(page) + "\n" + EntryLines(section.list, page);
    }
    return text;
}

}  // namespace usbctl
