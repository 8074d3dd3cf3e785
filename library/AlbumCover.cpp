#include "library/AlbumCover.h"

#include "core/PosixHandles.h"
#include "library/StickPaths.h"

#include <taglib/asffile.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/fileref.h>
#include <taglib/flacfile.h>
#include <taglib/id3v2tag.h>
#include <taglib/mp4file.h>
#include <taglib/mpegfile.h>
#include <taglib/wavfile.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>

namespace {
std::vector<uint8_t> Bytes(const TagLib::ByteVector& data, size_t maxBytes)
{
    if (data.isEmpty() || data.size() > maxBytes) {
        return {};
    }
    return std::vector<uint8_t>(data.data(), data.data() + data.size());
}

// The front cover when one is marked so, else the first picture.
TagLib::ByteVector Id3v2Picture(TagLib::ID3v2::Tag* tag)
{
    if (tag == nullptr) {
        return {};
    }
    TagLib::ByteVector first;
    for (TagLib::ID3v2::Frame* frame : tag->frameList("APIC")) {
        const auto* picture = dynamic_cast<TagLib::ID3v2::AttachedPictureFrame*>(frame);
        if (picture == nullptr) {
            continue;
        }
        if (picture->type() == TagLib::ID3v2::AttachedPictureFrame::FrontCover) {
            return picture->picture();
        }
        if (first.isEmpty()) {
            first = picture->picture();
        }
    }
    return first;
}

TagLib::ByteVector AsfPicture(TagLib::ASF::Tag* tag)
{
    if (tag == nullptr || !tag->contains("WM/Picture")) {
        return {};
    }
    const TagLib::ASF::AttributeList pictures = tag->attribute("WM/Picture");
    return pictures.isEmpty() ? TagLib::ByteVector() : pictures.front().toPicture().picture();
}

TagLib::ByteVector Picture(TagLib::File* file)
{
    if (auto* mpeg = dynamic_cast<TagLib::MPEG::File*>(file)) {
        return mpeg->hasID3v2Tag() ? Id3v2Picture(mpeg->ID3v2Tag()) : TagLib::ByteVector();
    }
    if (auto* wav = dynamic_cast<TagLib::RIFF::WAV::File*>(file)) {
        return wav->hasID3v2Tag() ? Id3v2Picture(wav->ID3v2Tag()) : TagLib::ByteVector();
    }
    if (auto* asf = dynamic_cast<TagLib::ASF::File*>(file)) {
        return AsfPicture(asf->tag());
    }
    if (auto* flac = dynamic_cast<TagLib::FLAC::File*>(file)) {
        const auto pictures = flac->pictureList();
        return pictures.isEmpty() ? TagLib::ByteVector() : pictures.front()->data();
    }
    if (auto* mp4 = dynamic_cast<TagLib::MP4::File*>(file)) {
        if (mp4->tag() == nullptr || !mp4->tag()->contains("covr")) {
            return {};
        }
        const auto covers = mp4->tag()->item("covr").toCoverArtList();
        return covers.isEmpty() ? TagLib::ByteVector() : covers.front().data();
    }
    return {};
}

std::vector<uint8_t> ReadWholeFile(const std::string& path, size_t maxBytes)
{
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    struct stat info {};
    if (!file.IsValid() || fstat(file.Get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size <= 0 ||
        static_cast<uint64_t>(info.st_size) > maxBytes) {
        return {};
    }
    std::vector<uint8_t> bytes(static_cast<size_t>(info.st_size));
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t got = read(file.Get(), bytes.data() + done, bytes.size() - done);
        if (got <= 0) {
            return {};
        }
        done += static_cast<size_t>(got);
    }
    return bytes;
}
}  // namespace

std::vector<uint8_t> ReadEmbeddedCover(const std::string& folder, const std::string& name, size_t maxBytes)
{
    const std::optional<std::string> location = TrackLocation(folder, name);
    if (!location) {
        return {};
    }
    const TagLib::FileRef ref(location->c_str(), false);
    if (ref.isNull() || !ref.file()->isValid()) {
        return {};
    }
    return Bytes(Picture(ref.file()), maxBytes);
}

std::vector<uint8_t> ReadFolderCover(const std::string& folder, size_t maxBytes)
{
    for (const char* name : {"cover.jpg", "folder.jpg", "Cover.jpg", "Folder.jpg"}) {
        const std::optional<std::string> location = TrackLocation(folder, name);
        if (!location) {
            continue;
        }
        std::vector<uint8_t> bytes = ReadWholeFile(*location, maxBytes);
        if (!bytes.empty()) {
            return bytes;
        }
    }
    return {};
}
