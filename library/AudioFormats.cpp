#include "library/AudioFormats.h"

#include "core/Environment.h"
#include "core/Logger.h"
#include "library/File.h"

#include <algorithm>

namespace {
constexpr const char* kLogSource = "AudioFormats";

// How much of the ignored entries the WARN line shows: a setting of any
// length still logs one short line.
constexpr size_t kIgnoredShown = 8;
constexpr size_t kIgnoredEntryShown = 16;

bool IsBlank(char c)
{
    return c == ' ' || c == '\t';
}

bool IsLetterOrDigit(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}

std::string Trimmed(const std::string& text, size_t begin, size_t end)
{
    while (begin < end && IsBlank(text[begin])) {
        ++begin;
    }
    while (end > begin && IsBlank(text[end - 1])) {
        --end;
    }
    return text.substr(begin, end - begin);
}

// One ignored entry as the log shows it: quoted, cut short, control bytes
// replaced, so a hostile setting cannot forge log lines.
std::string Shown(const std::string& entry)
{
    std::string shown = "\"";
    for (size_t i = 0; i < entry.size() && i < kIgnoredEntryShown; ++i) {
        const unsigned char c = static_cast<unsigned char>(entry[i]);
        shown += (c < 0x20 || c == 0x7f || c == '"') ? '?' : entry[i];
    }
    shown += entry.size() > kIgnoredEntryShown ? "...\"" : "\"";
    return shown;
}

std::string ShownList(const std::vector<std::string>& entries)
{
    std::string text;
    for (size_t i = 0; i < entries.size() && i < kIgnoredShown; ++i) {
        text += (i == 0 ? "" : ", ") + Shown(entries[i]);
    }
    if (entries.size() > kIgnoredShown) {
        text += " and " + std::to_string(entries.size() - kIgnoredShown) + " more";
    }
    return text;
}

CAudioFormats LoadFromEnvironment()
{
    const std::string setting = AudioFormatsSetting();
    if (setting.empty()) {
        return CAudioFormats::Parse(kDefaultAudioFormats);
    }
    std::vector<std::string> ignored;
    CAudioFormats formats = CAudioFormats::Parse(setting, &ignored);
    if (!ignored.empty()) {
        LOG(LOG_WARN,
            "USBMEDIA_FORMATS: ignored %s (up to %zu extensions of 1 to %zu letters or digits); audio files: %s\n",
            ShownList(ignored).c_str(), kMaxAudioFormats, kMaxAudioFormatLength, formats.List().c_str());
    } else {
        LOG(LOG_INFO, "Audio files: %s\n", formats.List().c_str());
    }
    return formats;
}
}  // namespace

uint64_t CAudioFormats::Key(const char* text, size_t length)
{
    if (length == 0 || length > kMaxAudioFormatLength) {
        return 0;
    }
    uint64_t key = 0;
    for (size_t i = 0; i < length; ++i) {
        const char c = ToLowerAscii(text[i]);
        if (!IsLetterOrDigit(c)) {
            return 0;
        }
        key |= static_cast<uint64_t>(static_cast<unsigned char>(c)) << (8 * i);
    }
    return key;
}

bool CAudioFormats::Has(uint64_t key) const
{
    const uint64_t* end = m_keys + m_count;
    return std::find(static_cast<const uint64_t*>(m_keys), end, key) != end;
}

bool CAudioFormats::Add(uint64_t key)
{
    if (Has(key)) {
        return true;
    }
    if (m_count == kMaxAudioFormats) {
        return false;
    }
    m_keys[m_count++] = key;
    return true;
}

CAudioFormats CAudioFormats::Parse(const std::string& setting, std::vector<std::string>* ignored)
{
    CAudioFormats formats;
    size_t begin = 0;
    while (begin <= setting.size()) {
        const size_t comma = setting.find(',', begin);
        const size_t end = comma == std::string::npos ? setting.size() : comma;
        const std::string entry = Trimmed(setting, begin, end);
        begin = end + 1;
        if (entry.empty()) {
            continue;
        }
        const uint64_t key = Key(entry.data(), entry.size());
        if ((key == 0 || !formats.Add(key)) && ignored != nullptr) {
            ignored->push_back(entry);
        }
    }
    if (formats.m_count == 0) {
        return Parse(kDefaultAudioFormats);
    }
    return formats;
}

bool CAudioFormats::Matches(const std::string& fileName) const
{
    if (fileName.empty() || fileName[0] == '.') {
        return false;
    }
    const size_t dot = fileName.rfind('.');
    if (dot == std::string::npos) {
        return false;
    }
    const uint64_t key = Key(fileName.data() + dot + 1, fileName.size() - dot - 1);
    return key != 0 && Has(key);
}

std::string CAudioFormats::List() const
{
    std::string list;
    for (size_t i = 0; i < m_count; ++i) {
        if (i > 0) {
            list += ',';
        }
        for (uint64_t key = m_keys[i]; key != 0; key >>= 8) {
            list += static_cast<char>(key & 0xff);
        }
    }
    return list;
}

const CAudioFormats& AudioFormats()
{
    static const CAudioFormats formats = LoadFromEnvironment();
    return formats;
}

bool IsAudioFileName(const std::string& fileName)
{
    return AudioFormats().Matches(fileName);
}
