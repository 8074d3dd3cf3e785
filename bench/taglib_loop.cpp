// The floor under the tag library's first scan: a bare TagLib loop over the
// same tree, no database and no daemon. It walks the tree, opens each MP3,
// WMA and WAV file with one FileRef (average audio properties, as the tag
// reader asks for), reads the tag's properties and the duration, and drops
// them.
//
// Usage: taglib_loop TREE [RUNS (default 1)]
// Prints one line per run: "taglib-loop SECONDS FILES UNREADABLE".

#include <taglib/fileref.h>
#include <taglib/tpropertymap.h>

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

bool IsAudioName(const std::string& name)
{
    const size_t dot = name.rfind('.');
    if (dot == std::string::npos) {
        return false;
    }
    std::string extension = name.substr(dot + 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension == "mp3" || extension == "wma" || extension == "wav";
}

// Depth first, each folder's entries in the order the file system gives.
void Walk(const std::string& folder, std::vector<std::string>& files)
{
    DIR* directory = opendir(folder.c_str());
    if (directory == nullptr) {
        return;
    }
    std::vector<std::string> subfolders;
    while (const dirent* entry = readdir(directory)) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        const std::string path = folder + "/" + name;
        struct stat status {};
        if (lstat(path.c_str(), &status) != 0) {
            continue;
        }
        if (S_ISDIR(status.st_mode)) {
            subfolders.push_back(path);
        } else if (S_ISREG(status.st_mode) && IsAudioName(name)) {
            files.push_back(path);
        }
    }
    closedir(directory);
    for (const std::string& subfolder : subfolders) {
        Walk(subfolder, files);
    }
}

// What a reader keeps of a file, summed so the compiler cannot drop the reads.
size_t ReadOne(const std::string& path, bool& readable)
{
    const TagLib::FileRef ref(path.c_str(), true, TagLib::AudioProperties::Average);
    readable = !ref.isNull() && ref.audioProperties() != nullptr;
    if (!readable) {
        return 0;
    }
    const TagLib::PropertyMap properties = ref.file()->properties();
    size_t bytes = static_cast<size_t>(ref.audioProperties()->lengthInSeconds());
    for (const char* key : {"TITLE", "ARTIST", "ALBUMARTIST", "ALBUM", "GENRE", "DATE", "TRACKNUMBER",
                            "DISCNUMBER"}) {
        const auto found = properties.find(key);
        if (found != properties.end() && !found->second.isEmpty()) {
            bytes += found->second.front().to8Bit(true).size();
        }
    }
    return bytes;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: taglib_loop TREE [RUNS]\n");
        return 2;
    }
    const int runs = argc > 2 ? std::max(1, std::atoi(argv[2])) : 1;
    size_t kept = 0;
    for (int run = 0; run < runs; ++run) {
        const auto start = std::chrono::steady_clock::now();
        std::vector<std::string> files;
        Walk(argv[1], files);
        size_t unreadable = 0;
        for (const std::string& path : files) {
            bool readable = false;
            kept += ReadOne(path, readable);
            unreadable += readable ? 0 : 1;
        }
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        std::printf("taglib-loop %.3f %zu %zu\n", seconds, files.size(), unreadable);
    }
    return kept == 0 ? 1 : 0;
}
