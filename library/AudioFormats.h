#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Which files the service takes as audio: a regular file whose name does not
// start with "." and ends in "." and one of a few extensions, in any case.
// The walk asks this for every name it reads (the storage index, the folder
// lists, the search and every play are built from the walk), so the set is
// a handful of integers compared without allocating.
//
// USBMEDIA_FORMATS sets the extensions, comma-separated ("mp3,wma,wav,flac");
// unset or empty it is "mp3,wma,wav". Spaces around an entry are dropped and
// case does not matter. An entry must be 1 to kMaxAudioFormatLength ASCII
// letters or digits (no dot); any other entry, and every distinct one past
// the first kMaxAudioFormats, is ignored. Empty entries and repeats are
// dropped silently. A setting that leaves no extension means the default.
// What was ignored is logged once, as one WARN line, at start-up.

constexpr size_t kMaxAudioFormats = 16;
constexpr size_t kMaxAudioFormatLength = 8;

class CAudioFormats {
public:
    // The extensions of a setting, in the order first given; ignored entries
    // are appended to `ignored` when it is given.
    static CAudioFormats Parse(const std::string& setting, std::vector<std::string>* ignored = nullptr);

    // True when `fileName` (a name, not a path) is an audio file's.
    bool Matches(const std::string& fileName) const;

    // The extensions as a comma list, lower case ("mp3,wma,wav").
    std::string List() const;
    size_t Count() const { return m_count; }

private:
    // One extension packed into an integer, first byte lowest; 0 when
    // `text` cannot be one (empty, too long, not a letter or digit).
    static uint64_t Key(const char* text, size_t length);
    bool Has(uint64_t key) const;
    bool Add(uint64_t key);  // false when full

    uint64_t m_keys[kMaxAudioFormats] = {};
    size_t m_count = 0;
};

// The extensions in force: USBMEDIA_FORMATS, read and parsed at the first
// call (the daemon makes it at start-up, before any other thread exists,
// so the WARN line about ignored entries comes then).
const CAudioFormats& AudioFormats();

// The one test of a file name the service makes: AudioFormats().Matches().
bool IsAudioFileName(const std::string& fileName);
