#include "tests/support/MediaFactory.h"

#include "tests/support/ChildProcess.h"
#include "tests/support/TempDir.h"

#include "core/Mutex.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace testing_support {

namespace {
// Buffers of 441 samples at 44.1 kHz: 100 buffers a second.
constexpr int kSamplesPerBuffer = 441;
constexpr int kBuffersPerSecond = 100;

// Guards the cache directory's files: two test threads asking for the same
// file make it once.
CMutex g_cacheMutex;

bool Exists(const std::string& path)
{
    struct stat info {};
    return stat(path.c_str(), &info) == 0;
}

// The cache directory, removed with its files when the test process ends.
class CacheDirectoryOwner {
public:
    CacheDirectoryOwner()
    {
        char pattern[] = "/tmp/usbmedia-media-XXXXXX";
        if (mkdtemp(pattern) == nullptr) {
            throw std::runtime_error("mkdtemp failed for the media cache");
        }
        m_path = pattern;
    }
    ~CacheDirectoryOwner() { RemoveTree(m_path); }
    CacheDirectoryOwner(const CacheDirectoryOwner&) = delete;
    CacheDirectoryOwner& operator=(const CacheDirectoryOwner&) = delete;

    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
};

// Runs gst-launch-1.0 with `arguments`; true when it exits with 0.
bool RunLaunch(const std::vector<std::string>& arguments)
{
    std::vector<std::string> argv{"gst-launch-1.0", "-q"};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    return RunToEnd(std::move(argv)).succeeded;
}

std::string SecondsKey(double seconds)
{
    return std::to_string(static_cast<long>(std::lround(seconds * kBuffersPerSecond)));
}

// One "key=\"value\"" member of a taginject tag list, or "" for an empty value.
std::string TagMember(const char* key, const std::string& value)
{
    return value.empty() ? std::string() : std::string(key) + "=\\\"" + value + "\\\"";
}

std::string TagList(const std::string& title, const std::string& artist, const std::string& album)
{
    std::string list;
    for (const std::string& member :
         {TagMember("title", title), TagMember("artist", artist), TagMember("album", album)}) {
        if (!member.empty()) {
            list += (list.empty() ? "" : ",") + member;
        }
    }
    return list;
}
}  // namespace

const std::string& MediaFactory::CacheDirectory()
{
    static const CacheDirectoryOwner owner;
    return owner.Path();
}

std::string MediaFactory::Launch(const std::string& fileName, const std::vector<std::string>& description)
{
    const CLockGuard<CMutex> lock(g_cacheMutex);
    const std::string path = CacheDirectory() + "/" + fileName;
    if (Exists(path)) {
        return path;
    }
    const std::string partial = path + ".partial";
    std::vector<std::string> arguments = description;
    arguments.push_back("location=" + partial);
    if (!RunLaunch(arguments) || rename(partial.c_str(), path.c_str()) != 0) {
        throw std::runtime_error("gst-launch-1.0 could not make " + fileName);
    }
    return path;
}

std::string MediaFactory::Encode(const std::string& fileName, double seconds,
                                 const std::vector<std::string>& encoder)
{
    std::vector<std::string> description{
        "audiotestsrc", "wave=sine", "volume=0.2",
        "num-buffers=" + std::to_string(std::lround(seconds * kBuffersPerSecond)),
        "samplesperbuffer=" + std::to_string(kSamplesPerBuffer), "!",
        "audio/x-raw,rate=44100,channels=2", "!", "audioconvert", "!"};
    description.insert(description.end(), encoder.begin(), encoder.end());
    description.insert(description.end(), {"!", "filesink"});
    return Launch(fileName, description);
}

std::string MediaFactory::Mp3(double seconds, const std::string& title, const std::string& artist,
                              const std::string& album)
{
    const std::string tags = TagList(title, artist, album);
    std::vector<std::string> encoder{"lamemp3enc", "target=bitrate", "cbr=true", "bitrate=64"};
    if (!tags.empty()) {
        encoder.insert(encoder.end(), {"!", "taginject", "tags=\"" + tags + "\""});
    }
    encoder.insert(encoder.end(), {"!", "id3v2mux"});
    const std::string name = "mp3-" + SecondsKey(seconds) + "-" +
                             std::to_string(std::hash<std::string>()(title + '\n' + artist + '\n' + album)) +
                             ".mp3";
    return Encode(name, seconds, encoder);
}

std::string MediaFactory::Wma(double seconds)
{
    return Encode("wma-" + SecondsKey(seconds) + ".wma", seconds, {"avenc_wmav2", "!", "avmux_asf"});
}

std::string MediaFactory::Wav(double seconds)
{
    return Encode("wav-" + SecondsKey(seconds) + ".wav", seconds, {"wavenc"});
}

std::string MediaFactory::Flac(double seconds, const std::string& title)
{
    std::vector<std::string> encoder{"flacenc"};
    if (!title.empty()) {
        encoder = {"taginject", "tags=\"" + TagList(title, "", "") + "\"", "!", "flacenc"};
    }
    const std::string name =
        "flac-" + SecondsKey(seconds) + "-" + std::to_string(std::hash<std::string>()(title)) + ".flac";
    return Encode(name, seconds, encoder);
}

void MediaFactory::Place(const std::string& source, const std::string& destinationPath, bool privateCopy)
{
    const size_t slash = destinationPath.rfind('/');
    if (slash != std::string::npos && slash > 0) {
        MakeDirs(destinationPath.substr(0, slash));
    }
    if (!privateCopy && link(source.c_str(), destinationPath.c_str()) == 0) {
        return;
    }
    std::ifstream in(source, std::ios::binary);
    std::ofstream out(destinationPath, std::ios::binary);
    out << in.rdbuf();
    if (!out) {
        throw std::runtime_error("could not place " + destinationPath);
    }
}

}  // namespace testing_support
