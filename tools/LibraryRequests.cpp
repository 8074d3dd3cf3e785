#include "tools/LibraryRequests.h"

#include "tools/Paths.h"
#include "tools/Verbs.h"

#include <climits>
#include <utility>
#include <vector>

namespace usbctl {

namespace {
// A verb option and the request key it sets.
using Selector = std::pair<const char*, const char*>;

Json::UInt IdArgument(const std::string& text, const std::string& what)
{
    return static_cast<Json::UInt>(NumberArgument(text, what, 0, UINT_MAX));
}

// START and COUNT from the positional arguments from `first` on. START may
// be negative: the service takes it modulo the list size (-1 is the last).
void AddPaging(Json::Value& params, const std::vector<std::string>& arguments, size_t first)
{
    const auto at = [&](size_t index, const std::string& fallback) {
        return index < arguments.size() ? arguments[index] : fallback;
    };
    params["startIndex"] = static_cast<Json::Int>(NumberArgument(at(first, "0"), "START", INT_MIN, INT_MAX));
    params["itemCount"] = static_cast<Json::Int>(
        NumberArgument(at(first + 1, std::to_string(kDefaultLibraryCount)), "COUNT", 0, INT_MAX));
}

// At most one of the selectors may be given; it narrows the list.
void AddSelector(Json::Value& params, const Invocation& invocation, const std::vector<Selector>& selectors)
{
    const char* chosen = nullptr;
    for (const Selector& selector : selectors) {
        const auto value = invocation.Option(selector.first);
        if (!value) {
            continue;
        }
        if (chosen != nullptr) {
            throw UsageError(std::string(chosen) + " and " + selector.first + " cannot be combined");
        }
        chosen = selector.first;
        params[selector.second] = IdArgument(*value, selector.first);
    }
}

LibraryRequest PageRequest(const std::string& method, const Invocation& invocation,
                           const std::vector<Selector>& selectors)
{
    LibraryRequest request{method, Json::Value(Json::objectValue)};
    AddSelector(request.params, invocation, selectors);
    AddPaging(request.params, invocation.arguments, 0);
    return request;
}

LibraryRequest SearchRequest(const Invocation& invocation)
{
    LibraryRequest request{"searchLibraryUSB", Json::Value(Json::objectValue)};
    request.params["text"] = ToWireText(invocation.arguments.at(0));
    AddPaging(request.params, invocation.arguments, 1);
    return request;
}

LibraryRequest PlayRequest(const Invocation& invocation, const std::string& key)
{
    LibraryRequest request{"playTracksUSB", Json::Value(Json::objectValue)};
    request.params[key] = IdArgument(invocation.arguments.at(0), "ID");
    if (invocation.arguments.size() > 1) {
        request.params["startTrackID"] = IdArgument(invocation.arguments[1], "TRACKID");
    }
    return request;
}
}  // namespace

LibraryRequest LibraryRequestFor(const Invocation& invocation)
{
    const std::string& verb = invocation.verb;
    if (verb == "library") {
        return {"getLibraryStatusUSB", Json::Value(Json::objectValue)};
    }
    if (verb == "artists") {
        return PageRequest("getArtistsUSB", invocation, {});
    }
    if (verb == "genres") {
        return PageRequest("getGenresUSB", invocation, {});
    }
    if (verb == "albums") {
        return PageRequest("getAlbumsUSB", invocation, {{"--artist", "artistID"}, {"--genre", "genreID"}});
    }
    if (verb == "tracks") {
        return PageRequest("getTracksUSB", invocation,
                           {{"--album", "albumID"}, {"--artist", "artistID"}, {"--genre", "genreID"}});
    }
    if (verb == "search") {
        return SearchRequest(invocation);
    }
    if (verb == "play-album") {
        return PlayRequest(invocation, "albumID");
    }
    if (verb == "play-artist") {
        return PlayRequest(invocation, "artistID");
    }
    if (verb == "play-genre") {
        return PlayRequest(invocation, "genreID");
    }
    throw UsageError("\"" + verb + "\" is not a tag library verb");
}

}  // namespace usbctl
