#pragma once

#include <string>
#include <vector>

namespace testing_support {

// Real audio files made at test time with gst-launch-1.0 from a test tone.
// Each distinct file is encoded once per test process into a private cache
// directory (removed at exit); Place() links or copies it into a test tree.
class MediaFactory {
public:
    // MP3 (constant bit rate) with an ID3v2 tag holding the texts given
    // (empty texts are left out; no texts at all means no tag).
    static std::string Mp3(double seconds, const std::string& title = "", const std::string& artist = "",
                           const std::string& album = "");
    // WMA (wmav2 in ASF).
    static std::string Wma(double seconds);
    // WAV (16-bit PCM).
    static std::string Wav(double seconds);
    // FLAC, with a Vorbis comment holding the title when one is given.
    static std::string Flac(double seconds, const std::string& title = "");

    // A file of `seconds` of stereo 44.1 kHz tone encoded by `encoder`, the
    // gst-launch-1.0 arguments between the raw audio and the file sink, e.g.
    // {"lamemp3enc", "!", "id3v2mux"}. `fileName` names the cached file and
    // must be unique per distinct encoding.
    static std::string Encode(const std::string& fileName, double seconds, const std::vector<std::string>& encoder);

    // Any gst-launch-1.0 description whose last element is a "filesink"
    // without a location; the factory adds the location of the cached file.
    static std::string Launch(const std::string& fileName, const std::vector<std::string>& description);

    // Hard-links (or copies) `source` to `destinationPath`, making parents.
    // A link shares its bytes with the cache: a test that will change the
    // placed file's content asks for a private copy.
    static void Place(const std::string& source, const std::string& destinationPath, bool privateCopy = false);

    static const std::string& CacheDirectory();
};

}  // namespace testing_support
