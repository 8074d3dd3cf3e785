#pragma once

#include <json/value.h>

#include <string>

namespace usbctl {

// What a page of the tag library holds; each prints its entries its own way.
enum class LibraryList { kArtists, kGenres, kAlbums, kTracks };

// The getLibraryStatusUSB result as "label:   value" lines.
std::string FormatLibraryStatus(const Json::Value& status);

// The same in one line, for watch: "library: scanning, 3 of 9 files".
std::string LibraryStatusLine(const Json::Value& status);

// One page: a line per entry, its ID first (what the next verb takes), then
// "entries a-b of total" (with where the next page starts when there is more).
std::string FormatLibraryPage(LibraryList list, const Json::Value& page);

// searchLibraryUSB's result: the artists, albums and tracks found, each
// under a heading that says how many.
std::string FormatSearchResult(const Json::Value& result);

}  // namespace usbctl
