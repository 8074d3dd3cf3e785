#include "tests/support/TagCorpus.h"

#include "tests/support/ChildProcess.h"
#include "tests/support/MediaFactory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

using testing_support::MediaFactory;

namespace testing_support {

namespace {
constexpr double kSeconds = 2.0;

std::string JsonText(const std::string& text)
{
    std::string quoted = "\"";
    for (const char character : text) {
        if (character == '"' || character == '\\') {
            quoted += '\\';
        }
        quoted += character;
    }
    return quoted + "\"";
}

std::string JsonEntry(const std::string& path, const STaggedFile& file)
{
    std::string tags;
    for (const auto& [key, value] : file.tags) {
        tags += (tags.empty() ? "" : ", ") + JsonText(key) + ": " +
                (value == "true" ? std::string("true") : JsonText(value));
    }
    return "{\"path\": " + JsonText(path) + ", \"format\": " + JsonText(file.format) +
           ", \"encoding\": " + JsonText(file.encoding.empty() ? "utf8" : file.encoding) + ", \"tags\": {" + tags +
           "}}";
}

std::string Extension(const std::string& path)
{
    const size_t dot = path.rfind('.');
    return dot == std::string::npos ? std::string() : path.substr(dot);
}

std::string Source(const std::string& extension)
{
    if (extension == ".wma") {
        return MediaFactory::Wma(kSeconds);
    }
    if (extension == ".wav") {
        return MediaFactory::Wav(kSeconds);
    }
    return MediaFactory::Mp3(kSeconds);
}
}  // namespace

const std::vector<STaggedFile>& Corpus()
{
    static const std::vector<STaggedFile> corpus = {
        {"Rock/v1.mp3", "id3v1", "",
         {{"title", "Old Song"}, {"artist", "Vintage Band"}, {"album", "Classics"}, {"year", "1999"},
          {"track", "4"}, {"genre", "Rock"}}},
        {"Rock/Ete/01.mp3", "id3v23", "latin1",
         {{"title", "Café Noir"}, {"artist", "Zoë"}, {"album", "Été"}, {"genre", "Jazz"}, {"year", "2001"},
          {"track", "3/12"}, {"disc", "1/2"}}},
        {"Rock/Ete/02.mp3", "id3v23", "utf16",
         {{"title", "Ünïcödé ☃"}, {"artist", "Zoë"}, {"album", "Été"}, {"genre", "Jazz"}, {"year", "2001"},
          {"track", "1/12"}, {"disc", "2/2"}}},
        {"Rock/Ete/03.mp3", "id3v24", "utf8",
         {{"title", "Aube"}, {"artist", "Zoë"}, {"album", "Été"}, {"genre", "Jazz"}, {"year", "2001"},
          {"track", "1/12"}, {"disc", "1/2"}, {"picture", "true"}}},
        {"Comp/a.mp3", "id3v24", "utf8",
         {{"title", "First Hit"}, {"artist", "Alpha"}, {"albumartist", "Various Artists"}, {"album", "Hits 2000"},
          {"genre", "Pop"}, {"year", "2000"}, {"track", "1"}}},
        {"Comp/b.mp3", "id3v24", "utf8",
         {{"title", "Second Hit"}, {"artist", "Beta"}, {"album", "Hits 2000"}, {"genre", "Pop"}, {"year", "2000"},
          {"track", "2"}, {"compilation", "true"}}},
        {"Two/queen.mp3", "id3v24", "utf8",
         {{"title", "Bohemian"}, {"artist", "Queen"}, {"album", "Greatest Hits"}, {"genre", "Rock"},
          {"year", "1981"}, {"track", "1"}}},
        {"Two/abba.wma", "asf", "",
         {{"title", "Dancing"}, {"artist", "ABBA"}, {"albumartist", "ABBA"}, {"album", "Greatest Hits"},
          {"genre", "Pop"}, {"year", "1975"}, {"track", "5/14"}, {"disc", "1/1"}, {"picture", "true"}}},
        {"Wav/info.wav", "riff-info", "",
         {{"title", "Info Title"}, {"artist", "Wave Artist"}, {"album", "Wave Album"}, {"genre", "Ambient"},
          {"year", "2010"}, {"track", "7"}}},
        {"Plain/none.mp3", "", "", {}},
        {"Plain/broken.wma", "corrupt", "", {}},
    };
    return corpus;
}

void MakeTaggedFiles(const std::string& root, const std::vector<STaggedFile>& files)
{
    std::string manifest;
    for (const STaggedFile& file : files) {
        const std::string path = root + "/" + file.relativePath;
        if (file.format == "corrupt") {
            testing_support::WriteFile(path, std::string(4096, '\x5a'));
            continue;
        }
        MediaFactory::Place(Source(Extension(path)), path, true);
        if (!file.format.empty()) {
            manifest += (manifest.empty() ? "[" : ",\n") + JsonEntry(path, file);
        }
    }
    if (manifest.empty()) {
        return;
    }
    const std::string manifestPath = root + "/../tags.json";
    testing_support::WriteFile(manifestPath, manifest + "]\n");
    const auto run = testing_support::RunToEnd(
        {"/usr/bin/python3", std::string(USBMEDIA_SOURCE_DIR) + "/tests/support/tag_files.py", manifestPath});
    ASSERT_TRUE(run.succeeded) << "tag_files.py failed on " << manifestPath << ":\n" << manifest;
}

std::vector<std::string> AudioFilesBelow(const std::string& root)
{
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
        const std::string extension = Extension(entry.path().filename().string());
        if (entry.is_regular_file() && (extension == ".mp3" || extension == ".wma" || extension == ".wav")) {
            files.push_back(entry.path().string());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace testing_support
