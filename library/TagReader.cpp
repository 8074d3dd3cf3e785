#include "library/TagReader.h"

#include <taglib/asffile.h>
#include <taglib/audioproperties.h>
#include <taglib/fileref.h>
#include <taglib/flacfile.h>
#include <taglib/id3v2tag.h>
#include <taglib/infotag.h>
#include <taglib/mp4file.h>
#include <taglib/mpegfile.h>
#include <taglib/opusfile.h>
#include <taglib/tfilestream.h>
#include <taglib/tpropertymap.h>
#include <taglib/vorbisfile.h>
#include <taglib/wavfile.h>

#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <algorithm>

namespace {
// The first value of `key`, or "": a tag may hold several (two artists), the
// library shows one.
std::string First(const TagLib::PropertyMap& properties, const char* key)
{
    const auto found = properties.find(key);
    if (found == properties.end() || found->second.isEmpty()) {
        return std::string();
    }
    return found->second.front().to8Bit(true);
}

// Leading decimal digits of `text` from `at` on; 0 when there are none.
uint32_t LeadingNumber(const std::string& text, size_t at)
{
    uint32_t value = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        value = value * 10 + static_cast<uint32_t>(text[at] - '0');
        if (value > 100000000) {
            return 0;  // no real track, disc or year is that long
        }
    }
    return value;
}

std::string BaseName(const std::string& path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool IsTrue(const std::string& text)
{
    return !text.empty() && text != "0" && text != "false";
}

bool HasId3v2Picture(const TagLib::ID3v2::Tag* tag)
{
    if (tag == nullptr) {
        return false;
    }
    const auto found = tag->frameListMap().find("APIC");
    return found != tag->frameListMap().end() && !found->second.isEmpty();
}

// The picture is not a text property in TagLib 1.13: ask each format.
bool HasPicture(TagLib::File* file)
{
    if (auto* mpeg = dynamic_cast<TagLib::MPEG::File*>(file)) {
        return mpeg->hasID3v2Tag() && HasId3v2Picture(mpeg->ID3v2Tag());
    }
    if (auto* wav = dynamic_cast<TagLib::RIFF::WAV::File*>(file)) {
        return wav->hasID3v2Tag() && HasId3v2Picture(wav->ID3v2Tag());
    }
    if (auto* asf = dynamic_cast<TagLib::ASF::File*>(file)) {
        return asf->tag() != nullptr && asf->tag()->contains("WM/Picture");
    }
    return false;
}

// For WAV, properties() gives the ID3v2 chunk alone; the RIFF INFO chunk
// (INAM, IART, IPRD, IGNR, ICRD, IPRT) fills whatever that leaves out, as
// most WAV writers write INFO only.
TagLib::PropertyMap Properties(TagLib::File* file)
{
    TagLib::PropertyMap properties = file->properties();
    auto* wav = dynamic_cast<TagLib::RIFF::WAV::File*>(file);
    if (wav == nullptr || !wav->hasInfoTag()) {
        return properties;
    }
    const TagLib::PropertyMap info = wav->InfoTag()->properties();
    for (const auto& entry : info) {
        if (!properties.contains(entry.first) || properties[entry.first].isEmpty()) {
            properties.replace(entry.first, entry.second);
        }
    }
    return properties;
}

void FillFromProperties(const TagLib::PropertyMap& properties, STrackTags& tags)
{
    tags.title = First(properties, "TITLE");
    tags.artist = First(properties, "ARTIST");
    tags.albumArtist = First(properties, "ALBUMARTIST");
    tags.album = First(properties, "ALBUM");
    tags.genre = First(properties, "GENRE");
    tags.year = LeadingNumber(First(properties, "DATE"), 0);
    ParseNumberPair(First(properties, "TRACKNUMBER"), tags.trackNumber, tags.trackCount);
    ParseNumberPair(First(properties, "DISCNUMBER"), tags.discNumber, tags.discCount);
    tags.compilation = IsTrue(First(properties, "COMPILATION"));
}
}  // namespace

void ParseNumberPair(const std::string& text, uint32_t& number, uint32_t& count)
{
    number = LeadingNumber(text, 0);
    const size_t slash = text.find('/');
    count = slash == std::string::npos ? 0 : LeadingNumber(text, slash + 1);
}

namespace {
// What `ref` holds, for the file named `name`.
STrackTags TagsOf(const TagLib::FileRef& ref, const std::string& name)
{
    STrackTags tags;
    TagLib::File* file = ref.file();
    // TagLib takes any bytes named .mp3 for an MPEG stream that merely has no
    // frames: without a sample rate no audio was found, and the file is
    // unreadable like one TagLib refuses.
    if (ref.isNull() || !file->isValid() || ref.audioProperties() == nullptr ||
        ref.audioProperties()->sampleRate() <= 0) {
        tags.title = name;
        tags.unreadable = true;
        return tags;
    }
    FillFromProperties(Properties(file), tags);
    tags.durationSeconds = static_cast<uint32_t>(std::max(0, ref.audioProperties()->lengthInSeconds()));
    tags.hasPicture = HasPicture(file);
    return tags;
}

std::string LowerExtension(const std::string& name)
{
    const size_t dot = name.rfind('.');
    std::string extension = dot == std::string::npos ? std::string() : name.substr(dot + 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

// The format's File on `stream`, chosen by the name's extension as FileRef
// would; null for an extension it does not know here.
TagLib::File* FileForExtension(TagLib::IOStream* stream, const std::string& extension)
{
    constexpr auto kStyle = TagLib::AudioProperties::Average;
    if (extension == "mp3") {
        return new TagLib::MPEG::File(stream, TagLib::ID3v2::FrameFactory::instance(), true, kStyle);
    }
    if (extension == "wma" || extension == "asf") {
        return new TagLib::ASF::File(stream, true, kStyle);
    }
    if (extension == "wav") {
        return new TagLib::RIFF::WAV::File(stream, true, kStyle);
    }
    if (extension == "flac") {
        return new TagLib::FLAC::File(stream, TagLib::ID3v2::FrameFactory::instance(), true, kStyle);
    }
    if (extension == "m4a" || extension == "mp4" || extension == "aac") {
        return new TagLib::MP4::File(stream, true, kStyle);
    }
    if (extension == "ogg") {
        return new TagLib::Ogg::Vorbis::File(stream, true, kStyle);
    }
    if (extension == "opus") {
        return new TagLib::Ogg::Opus::File(stream, true, kStyle);
    }
    return nullptr;
}
}  // namespace

STrackTags ReadTags(const std::string& path)
{
    // The FileRef owns the format's File object and frees it with itself;
    // the pointers taken from it never outlive it.
    const TagLib::FileRef ref(path.c_str(), true, TagLib::AudioProperties::Average);
    return TagsOf(ref, BaseName(path));
}

namespace {
bool ReadAt(int fd, uint64_t offset, unsigned char* bytes, size_t count)
{
    return pread(fd, bytes, count, static_cast<off_t>(offset)) == static_cast<ssize_t>(count);
}

uint64_t LittleEndian(const unsigned char* bytes, size_t count)
{
    uint64_t value = 0;
    for (size_t i = count; i > 0; --i) {
        value = (value << 8) | bytes[i - 1];
    }
    return value;
}

// TagLib reads a tag whole, as large as its header says: a file claiming a
// tag of hundreds of MiB would make the scan allocate that much. The tag
// blocks of MP3 (ID3v2), WMA (the ASF header object) and WAV (its chunks)
// are measured first; a file with one over the bound is not read.
bool TagBlocksWithinBound(int fd, const std::string& extension)
{
    unsigned char head[30] = {};
    if (!ReadAt(fd, 0, head, sizeof head)) {
        return true;  // too short to hold a tag worth measuring
    }
    if (head[0] == 'I' && head[1] == 'D' && head[2] == '3') {
        const uint64_t size = (uint64_t{head[6]} & 0x7F) << 21 | (uint64_t{head[7]} & 0x7F) << 14 |
                              (uint64_t{head[8]} & 0x7F) << 7 | (uint64_t{head[9]} & 0x7F);
        return size <= kMaxTagBlockBytes;
    }
    static const unsigned char kAsfHeader[16] = {0x30, 0x26, 0xB2, 0x75, 0x8E, 0x66, 0xCF, 0x11,
                                                 0xA6, 0xD9, 0x00, 0xAA, 0x00, 0x62, 0xCE, 0x6C};
    if (std::equal(kAsfHeader, kAsfHeader + 16, head)) {
        return LittleEndian(head + 16, 8) <= kMaxTagBlockBytes;
    }
    if (extension != "wav" || std::string(reinterpret_cast<const char*>(head), 4) != "RIFF") {
        return true;
    }
    // The chunks TagLib reads whole: "LIST" (INFO) and "id3 "/"ID3 ".
    uint64_t offset = 12;
    for (int chunk = 0; chunk < 256; ++chunk) {
        unsigned char header[8];
        if (!ReadAt(fd, offset, header, sizeof header)) {
            return true;
        }
        const std::string id(reinterpret_cast<const char*>(header), 4);
        const uint64_t size = LittleEndian(header + 4, 4);
        if ((id == "LIST" || id == "id3 " || id == "ID3 ") && size > kMaxTagBlockBytes) {
            return false;
        }
        offset += 8 + size + (size & 1);
    }
    return true;
}
}  // namespace

STrackTags ReadTagsOfOpenFile(UniqueFd file, const std::string& name)
{
    const std::string extension = LowerExtension(name);
    if (!file.IsValid() || !TagBlocksWithinBound(file.Get(), extension)) {
        STrackTags tags;
        tags.title = name;
        tags.unreadable = true;
        return tags;
    }
    // The stream takes the descriptor over and closes it, unless it could
    // not open a stream on it at all; it outlives the File read from it.
    const int fd = file.Get();
    TagLib::FileStream stream(file.Release(), true);
    if (!stream.isOpen()) {
        close(fd);
    }
    TagLib::File* format = FileForExtension(&stream, extension);
    const TagLib::FileRef ref = format != nullptr ? TagLib::FileRef(format)
                                                  : TagLib::FileRef(&stream, true, TagLib::AudioProperties::Average);
    return TagsOf(ref, name);
}
