// Verbs that start playback or steer it.
#include "tools/Verbs.h"

#include "core/TextConversion.h"
#include "tools/Formatting.h"
#include "tools/Paths.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <ostream>

namespace usbctl {

namespace {
// Looks the path up on this machine. A name typed in UTF-8 is also tried in
// ISO8859-1, the storage's encoding. Returns the form that exists.
std::string ExistingLocalPath(const std::string& path, struct stat& info)
{
    if (stat(path.c_str(), &info) == 0) {
        return path;
    }
    const int error = errno;
    if (IsValidUtf8(path)) {
        const std::string latin1 = Utf8ToLatin1(path.c_str());
        if (latin1 != path && stat(latin1.c_str(), &info) == 0) {
            return latin1;
        }
    }
    throw UsageError("cannot play " + path + ": " + std::strerror(error));
}

int SimpleRequest(const VerbContext& context, const std::string& method, const std::string& doneText)
{
    return RunRequest(context, method, Json::Value(),
                      [&](const Json::Value&) { context.out << doneText << "\n"; });
}

int SeekMode(const VerbContext& context, const std::string& method, const std::string& modeName,
             const std::string& stateName)
{
    const bool enable = OnOffArgument(context.Arguments()[0], modeName);
    Json::Value params(Json::objectValue);
    params["enable"] = enable;
    const std::string refused =
        modeName + " refused: the player is not playing, or is already in " + stateName;
    return RunRequest(
        context, method, params,
        [&](const Json::Value&) { context.out << modeName << " " << OnOff(enable) << "\n"; }, refused);
}
}  // namespace

int RunPlay(const VerbContext& context)
{
    const std::string path = ResolvePath(context.Arguments()[0]);
    struct stat info {};
    const std::string local = ExistingLocalPath(path, info);
    const SplitPathResult parts = SplitPath(local);
    Json::Value file(Json::objectValue);
    file["name"] = ToWireText(parts.name);
    file["path"] = ToWireText(parts.folder);
    file["isFolder"] = S_ISDIR(info.st_mode);
    Json::Value params(Json::objectValue);
    params["file"] = file;
    return RunRequest(context, "playFileUSB", params,
                      [&](const Json::Value&) { context.out << "playing " << path << "\n"; });
}

int RunPlayAll(const VerbContext& context)
{
    const std::string root = ResolvePath(context.ArgumentOr(0, DefaultStickRoot()));
    Json::Value params(Json::objectValue);
    params["usbRootPath"] = ToWireText(root);
    return RunRequest(context, "playAllSongsUSB", params,
                      [&](const Json::Value&) { context.out << "playing from the first folder of the index of " << root << "\n"; });
}

int RunPlayIndex(const VerbContext& context)
{
    const long long id = NumberArgument(context.Arguments()[0], "ID", 0, UINT_MAX);
    Json::Value params(Json::objectValue);
    params["index"] = static_cast<Json::UInt>(id);
    return RunRequest(context, "playFileIndex", params,
                      [&](const Json::Value&) { context.out << "playing entry " << id << "\n"; });
}

int RunPause(const VerbContext& context)
{
    return SimpleRequest(context, "pauseUSB", "paused");
}

int RunResume(const VerbContext& context)
{
    return SimpleRequest(context, "playUSB", "playing");
}

int RunStop(const VerbContext& context)
{
    return SimpleRequest(context, "stopPlayingUSB", "stopped");
}

int RunNext(const VerbContext& context)
{
    return SimpleRequest(context, "nextUSB", "next track");
}

int RunPrevious(const VerbContext& context)
{
    return SimpleRequest(context, "previousUSB", "previous track");
}

int RunRestart(const VerbContext& context)
{
    return SimpleRequest(context, "restartSongUSB", "track restarted");
}

int RunSeek(const VerbContext& context)
{
    const std::string& text = context.Arguments()[0];
    const auto seconds = ParseClock(text);
    if (!seconds || *seconds > INT_MAX) {
        throw UsageError("seek takes SECONDS or M:SS, not \"" + text + "\"");
    }
    Json::Value params(Json::objectValue);
    params["timeSec"] = static_cast<Json::Int>(*seconds);
    return RunRequest(
        context, "seek", params,
        [&](const Json::Value&) { context.out << "seeked to " << FormatClock(*seconds) << "\n"; },
        "seek refused");
}

int RunFastForward(const VerbContext& context)
{
    return SeekMode(context, "seekForward", "fast forward", "fast-forward");
}

int RunRewind(const VerbContext& context)
{
    return SeekMode(context, "seekBackward", "rewind", "rewind");
}

int RunRepeat(const VerbContext& context)
{
    const auto printMode = [&](const Json::Value& result) {
        context.out << "repeat: " << RepeatModeName(result["mode"].asInt()) << "\n";
    };
    if (context.Arguments().empty()) {
        return RunRequest(context, "getRepeatModeUSB", Json::Value(), printMode);
    }
    const std::string& name = context.Arguments()[0];
    const auto mode = ParseRepeatMode(name);
    if (!mode) {
        throw UsageError("repeat takes none, one or all, not \"" + name + "\"");
    }
    Json::Value params(Json::objectValue);
    params["mode"] = *mode;
    return RunRequest(context, "setRepeatModeUSB", params, printMode);
}

int RunShuffle(const VerbContext& context)
{
    const auto printShuffle = [&](const Json::Value& result) {
        context.out << "shuffle: " << OnOff(result["enabled"].asBool()) << "\n";
    };
    if (context.Arguments().empty()) {
        return RunRequest(context, "isShuffleEnabledUSB", Json::Value(), printShuffle);
    }
    Json::Value params(Json::objectValue);
    params["enable"] = OnOffArgument(context.Arguments()[0], "shuffle");
    return RunRequest(context, "enableShuffleUSB", params, printShuffle);
}

}  // namespace usbctl
