// library, artists, genres, albums, tracks, search and play-album/-artist/
// -genre: browsing and playing the stick by its tags.
#include "tools/Verbs.h"

#include "tools/LibraryReports.h"
#include "tools/LibraryRequests.h"
#include "tools/Replies.h"

#include <ostream>

namespace usbctl {

namespace {
constexpr int kPlaylistEmpty = -3;
constexpr int kTrackNotInList = -12;

int RunPage(const VerbContext& context, LibraryList list)
{
    const LibraryRequest request = LibraryRequestFor(context.invocation);
    return RunRequest(context, request.method, request.params, [&](const Json::Value& result) {
        context.out << FormatLibraryPage(list, result);
    });
}

// "album", "artist" or "genre": what a play verb plays.
std::string PlayedKind(const VerbContext& context)
{
    return context.invocation.verb.substr(std::string("play-").size());
}

// What the failure of a play verb means, beyond the service's message.
std::string PlayFailureHint(const VerbContext& context, const Json::Value& params, int code)
{
    const std::string kind = PlayedKind(context);
    const std::string id = std::to_string(params[kind + "ID"].asUInt());
    if (code == kPlaylistEmpty) {
        return "(no tracks: is " + id + " an ID that usb-media-ctl " + kind +
               "s lists, and the library ready? see usb-media-ctl library)";
    }
    if (code == kTrackNotInList && params.isMember("startTrackID")) {
        return "(track " + std::to_string(params["startTrackID"].asUInt()) + " is not one of this " + kind +
               "'s; usb-media-ctl tracks --" + kind + " " + id + " lists them)";
    }
    return "";
}
}  // namespace

int RunLibrary(const VerbContext& context)
{
    const LibraryRequest request = LibraryRequestFor(context.invocation);
    return RunRequest(context, request.method, request.params,
                      [&](const Json::Value& result) { context.out << FormatLibraryStatus(result); });
}

int RunArtists(const VerbContext& context)
{
    return RunPage(context, LibraryList::kArtists);
}

int RunGenres(const VerbContext& context)
{
    return RunPage(context, LibraryList::kGenres);
}

int RunAlbums(const VerbContext& context)
{
    return RunPage(context, LibraryList::kAlbums);
}

int RunTracks(const VerbContext& context)
{
    return RunPage(context, LibraryList::kTracks);
}

int RunSearch(const VerbContext& context)
{
    const LibraryRequest request = LibraryRequestFor(context.invocation);
    return RunRequest(context, request.method, request.params,
                      [&](const Json::Value& result) { context.out << FormatSearchResult(result); });
}

int RunPlayTracks(const VerbContext& context)
{
    const LibraryRequest request = LibraryRequestFor(context.invocation);
    Connection connection = context.Connect();
    const RequestOutcome outcome = Request(connection, context, request.method, request.params);
    if (!outcome.ok) {
        const std::string hint = PlayFailureHint(context, request.params, ErrorCode(outcome.reply));
        if (!hint.empty()) {
            ReportFailure(context, hint);
        }
        return kExitFailure;
    }
    if (!context.Json()) {
        const std::string kind = PlayedKind(context);
        context.out << "playing " << kind << " " << request.params[kind + "ID"].asUInt();
        if (request.params.isMember("startTrackID")) {
            context.out << " from track " << request.params["startTrackID"].asUInt();
        }
        context.out << "\n" << std::flush;
    }
    return kExitSuccess;
}

}  // namespace usbctl
