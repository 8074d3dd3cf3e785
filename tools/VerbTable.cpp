#include "tools/Verbs.h"

#include "tools/LibraryRequests.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace usbctl {

namespace {
const std::string kPlaybackNote =
    "The service plays only while a client is connected: keep `usb-media-ctl watch`\n"
    "running in another terminal, or playback stops at the next notification.\n";

const std::string kLibraryPageNote =
    "START is the index of the first entry (default 0; -1 is the last), COUNT how many\n"
    "to show (default " + std::to_string(kDefaultLibraryCount) + ").\n";
const std::string kLibraryIdNote = "The number before each entry is its ID, for the next verb:\n";
const std::string kPlayTracksNote =
    "Plays the tracks that tracks --album ID (--artist, --genre) lists, from the first,\n"
    "or from TRACKID, a track ID of that list.\n";

std::vector<Verb> MakeVerbs()
{
    return {
        {"status", "", "player state, track, time, repeat, shuffle, USB",
         "getCurrentPlayerState, getCurrentTrackInfoUSB, getRepeatModeUSB,\n"
         "  isShuffleEnabledUSB, isUSBconnected",
         "", {}, 0, 0, RunStatus},
        {"ls", "[PATH]", "list a folder of the stick, page by page", "getFileListUSB, getFileListByGroupID",
         "PATH defaults to the stick root, $USBMEDIA_ROOT/mnt/usb-stick1. Folders end in \"/\".\n"
         "The number before each entry is its ID: a folder's ID is the group for --group,\n"
         "and any ID can be played with play-index. The service lists what its storage\n"
         "index holds, so index the stick first (usb-media-ctl index).\n",
         {{"--group", true, "ID", "list the folder with this ID (0: the stick root)"},
          {"--page", true, "N", "page to show, from 1 (default 1)"},
          {"--page-size", true, "K", "entries per page (default 20)"},
          {"--max-depth", false, "", "this is the deepest level shown: play takes subfolders"}},
         0, 1, RunList},
        {"play", "PATH", "play a file, or every song below a folder", "playFileUSB",
         "Whether PATH is a folder is decided by looking at it on this machine.\n" + kPlaybackNote, {}, 1,
         1, RunPlay},
        {"play-all", "[ROOT]", "play the stick from the first folder of its index", "playAllSongsUSB",
         "ROOT defaults to the stick root, $USBMEDIA_ROOT/mnt/usb-stick1. The service plays the\n"
         "first entry of its storage index: on a stick with folders, the first folder (by\n"
         "name) with everything below it, as one playlist that next and repeat stay within;\n"
         "other folders are played with play. Index the stick first (usb-media-ctl index).\n" +
             kPlaybackNote,
         {}, 0, 1, RunPlayAll},
        {"play-index", "ID", "play the entry with this ID (see ls)", "playFileIndex", kPlaybackNote, {}, 1,
         1, RunPlayIndex},
        {"pause", "", "pause playback", "pauseUSB", "", {}, 0, 0, RunPause},
        {"resume", "", "play or resume the current playlist", "playUSB", kPlaybackNote, {}, 0, 0, RunResume},
        {"stop", "", "stop playback", "stopPlayingUSB", "", {}, 0, 0, RunStop},
        {"next", "", "go to the next track", "nextUSB", "", {}, 0, 0, RunNext},
        {"prev", "", "go to the previous track", "previousUSB", "", {}, 0, 0, RunPrevious},
        {"restart", "", "play the current track from its start", "restartSongUSB", "", {}, 0, 0, RunRestart},
        {"seek", "SECONDS", "jump to a position of the current track", "seek",
         "SECONDS may also be written as M:SS, e.g. 1:30.\n", {}, 1, 1, RunSeek},
        {"ff", "on|off", "fast forward in 15 s steps, or stop it", "seekForward", "", {}, 1, 1,
         RunFastForward},
        {"rew", "on|off", "rewind in 15 s steps, or stop it", "seekBackward", "", {}, 1, 1, RunRewind},
        {"repeat", "[none|one|all]", "set the repeat mode, or show it", "setRepeatModeUSB, getRepeatModeUSB",
         "", {}, 0, 1, RunRepeat},
        {"shuffle", "[on|off]", "switch shuffle, or show it", "enableShuffleUSB, isShuffleEnabledUSB", "",
         {}, 0, 1, RunShuffle},
        {"art", "", "print the current track's album art file", "getTrackAlbumArt",
         "The service writes the image under $USBMEDIA_ROOT/home/root/art_dump (keeping the 16\n"
         "newest files; an image over 16 MiB is not written) and announces it; this waits for that\n"
         "announcement. A track without a cover image sends none.\n",
         {{"--wait", true, "SECONDS", "how long to wait for the image (default 5)"}}, 0, 0, RunAlbumArt},
        {"library", "", "state of the stick's tag library and what it holds", "getLibraryStatusUSB",
         "The service reads the tags of the stick's audio files in the background and keeps\n"
         "them per stick in its state folder. States: idle (no stick library), scanning\n"
         "(\"scanned\" of \"total\" files so far), ready, failed (20 read errors in a row).\n",
         {}, 0, 0, RunLibrary},
        {"artists", "[START [COUNT]]", "list the artists of the tag library", "getArtistsUSB",
         kLibraryPageNote + kLibraryIdNote + "albums --artist ID and tracks --artist ID take an artist's ID.\n", {}, 0,
         2, RunArtists},
        {"genres", "[START [COUNT]]", "list the genres of the tag library", "getGenresUSB",
         kLibraryPageNote + kLibraryIdNote + "albums --genre ID and tracks --genre ID take a genre's ID.\n", {}, 0, 2,
         RunGenres},
        {"albums", "[START [COUNT]]", "list the albums, of an artist or a genre", "getAlbumsUSB",
         kLibraryPageNote + kLibraryIdNote + "tracks --album ID and play-album ID take an album's ID.\n"
         "The album's cover file is in the reply (--json).\n",
         {{"--artist", true, "ID", "the albums of this artist"}, {"--genre", true, "ID", "the albums of this genre"}},
         0, 2, RunAlbums},
        {"tracks", "[START [COUNT]]", "list the tracks, of an album, an artist or a genre", "getTracksUSB",
         kLibraryPageNote +
             "A track's ID is its file's ID as ls shows it; play-album ID TRACKID (play-artist,\n"
             "play-genre) starts that list from the track.\n",
         {{"--album", true, "ID", "the tracks of this album"},
          {"--artist", true, "ID", "the tracks of this artist"},
          {"--genre", true, "ID", "the tracks of this genre"}},
         0, 2, RunTracks},
        {"search", "TEXT [START [COUNT]]", "find artists, albums and tracks by name", "searchLibraryUSB",
         "Case and accents do not count: \"cafe\" finds \"Café\". START and COUNT page each\n"
         "of the three lists alike.\n" + kLibraryPageNote,
         {}, 1, 3, RunSearch},
        {"play-album", "ID [TRACKID]", "play an album, from its first track or TRACKID", "playTracksUSB",
         kPlayTracksNote + kPlaybackNote, {}, 1, 2, RunPlayTracks},
        {"play-artist", "ID [TRACKID]", "play an artist's tracks, from the first or TRACKID", "playTracksUSB",
         kPlayTracksNote + kPlaybackNote, {}, 1, 2, RunPlayTracks},
        {"play-genre", "ID [TRACKID]", "play a genre's tracks, from the first or TRACKID", "playTracksUSB",
         kPlayTracksNote + kPlaybackNote, {}, 1, 2, RunPlayTracks},
        {"index", "[PATH]", "build the storage index of a stick", "indexUsbStorage",
         "PATH defaults to the stick root, $USBMEDIA_ROOT/mnt/usb-stick1.\n", {}, 0, 1, RunIndex},
        {"crc", "", "CRC-32 of the storage index, in decimal", "getUsbStorageCrc32", "", {}, 0, 0, RunCrc},
        {"usb", "usb1|usb2 plugged|unplugged", "report a USB stick event", "usbConnectionEvent",
         "The stick is reported as supported and readable unless told otherwise.\n",
         {{"--not-supported", false, "", "report the stick as not supported"},
          {"--unreadable", false, "", "report the stick as unreadable"},
          {"--fs-uuid", true, "UUID", "the stick's file system UUID, which its tag library is kept by"}},
         2, 2, RunUsb},
        {"mount-event", "[MOUNTPOINT [mounted|unmounted]]", "report a stick mounted or unmounted (for udev)",
         "usbConnectionEvent",
         "Maps /mnt/usb-stick1 to usb1 and /mnt/usb-stick2 to usb2 and reports the stick as\n"
         "plugged (mounted) or unplugged (unmounted). On a device the units\n"
         "usb-media-stick@.service and usb-media-stick-unsupported@.service run it with\n"
         "arguments. Without them it reads what a udev environment sets: the mount point\n"
         "from USBMEDIA_MOUNT_POINT, the event from ACTION (add or remove), and the file\n"
         "system from ID_FS_TYPE (one the service cannot read is reported as not\n"
         "supported). MOUNTPOINT may carry the $USBMEDIA_ROOT prefix. A mounted stick is\n"
         "reported with its file system's UUID (the service keeps its tag library by it):\n"
         "--fs-uuid, else ID_FS_UUID, else the /dev/disk/by-uuid link to the device\n"
         "mounted there, when one is found.\n",
         {{"--not-supported", false, "", "report the stick as not supported"},
          {"--unreadable", false, "", "report the stick as unreadable"},
          {"--fs-uuid", true, "UUID", "the stick's file system UUID (default $ID_FS_UUID)"}},
         0, 2, RunMountEvent},
        {"power", "off|on", "soft power-off, or wake up again", "setSoftPowerOff",
         "\"off\" keeps a snapshot of the track when paused or playing; \"on\" makes it\n"
         "available to resume-info.\n",
         {}, 1, 1, RunPower},
        {"resume-info", "", "the track kept at the last soft power-off", "popSuspendedTrackInfo",
         "The service hands the snapshot out once.\n", {}, 0, 0, RunResumeInfo},
        {"watch", "", "print notifications as they arrive", "getLibraryStatusUSB, then it listens",
         "One line per notification: the track, the time (redrawn in place with a progress\n"
         "bar on a terminal), the player state, repeat, shuffle, USB, end of playlist,\n"
         "album art and the tag library's scan (it asks for the library's status once, as\n"
         "the service tells of scans only the clients that use the library). With --json\n"
         "the notifications are printed exactly as received.\n"
         "Ends on Ctrl-C (SIGINT), SIGTERM or when the service closes the connection.\n"
         "While it runs the service keeps playing (it stops when nobody listens).\n",
         {}, 0, 0, RunWatch},
        {"call", "METHOD [PARAMS]", "send any method and print the reply", "METHOD",
         "PARAMS is JSON, e.g. usb-media-ctl call setRepeatModeUSB '{\"mode\":2}'.\n"
         "The reply is printed indented, or as received with --json. A method that\n"
         "sends no reply (such as \"notify\") prints nothing.\n",
         {}, 1, 2, RunCall},
        {"help", "[VERB]", "this overview, or the help of one verb", "(none)", "", {}, 0, 1, RunHelp},
    };
}

std::string Capitalized(std::string text)
{
    if (!text.empty()) {
        text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    }
    return text;
}

std::string Synopsis(const Verb& verb)
{
    std::string text = verb.name;
    if (!verb.arguments.empty()) {
        text += " " + verb.arguments;
    }
    return text;
}

void WriteOptions(std::ostream& out, const std::vector<OptionRule>& options)
{
    for (const OptionRule& option : options) {
        std::string left = option.name + (option.takesValue ? " " + option.valueName : "");
        left.resize(std::max<size_t>(left.size() + 2, 22), ' ');
        out << "  " << left << option.help << "\n";
    }
}
}  // namespace

const std::vector<Verb>& AllVerbs()
{
    static const std::vector<Verb> verbs = MakeVerbs();
    return verbs;
}

const Verb* FindVerb(const std::string& name)
{
    for (const Verb& verb : AllVerbs()) {
        if (verb.name == name) {
            return &verb;
        }
    }
    return nullptr;
}

std::string OverallHelp()
{
    std::ostringstream out;
    out << "usage: usb-media-ctl [OPTIONS] VERB [ARGUMENTS]\n\n"
           "Drives the USB media service over its JSON-RPC port and shows what it pushes.\n\n"
           "Options (before or after the verb):\n";
    WriteOptions(out, GlobalOptionRules());
    out << "\nVerbs:\n";
    for (const Verb& verb : AllVerbs()) {
        std::string left = Synopsis(verb);
        left.resize(std::max<size_t>(left.size() + 2, 30), ' ');
        out << "  " << left << verb.summary << "\n";
    }
    out << "\nPaths:\n"
           "  Paths of the service's own, those starting with /mnt such as\n"
           "  /mnt/usb-stick1/Jazz, get $USBMEDIA_ROOT put in front when that variable is\n"
           "  set and the path does not already start with it, so the same commands work\n"
           "  on a device and with a demo stick. Relative paths are taken from the\n"
           "  current directory.\n"
           "\nExit status: 0 success, 1 the service reported a failure (its message goes\n"
           "to standard error), 2 a usage or connection error.\n"
           "\n" + kPlaybackNote;
    return out.str();
}

std::string VerbHelp(const Verb& verb)
{
    std::ostringstream out;
    out << "usage: usb-media-ctl [OPTIONS] " << Synopsis(verb) << (verb.options.empty() ? "" : " [VERB OPTIONS]")
        << "\n\n"
        << Capitalized(verb.summary) << ".\nSends: " << verb.methods << "\n";
    if (!verb.details.empty()) {
        out << "\n" << verb.details;
    }
    if (!verb.options.empty()) {
        out << "\nVerb options:\n";
        WriteOptions(out, verb.options);
    }
    out << "\nOptions:\n";
    WriteOptions(out, GlobalOptionRules());
    return out.str();
}

int RunHelp(const VerbContext& context)
{
    if (context.Arguments().empty()) {
        context.out << OverallHelp();
        return kExitSuccess;
    }
    const Verb* verb = FindVerb(context.Arguments()[0]);
    if (verb == nullptr) {
        throw UsageError("unknown verb \"" + context.Arguments()[0] + "\"");
    }
    context.out << VerbHelp(*verb);
    return kExitSuccess;
}

}  // namespace usbctl
