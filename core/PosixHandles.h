#pragma once

// Owning handles for C library streams and directory streams, closed on
// every path.

#include <dirent.h>

#include <cstdio>
#include <memory>

struct FileClose {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileClose>;

struct DirClose {
    void operator()(DIR* dir) const { closedir(dir); }
};
using DirPtr = std::unique_ptr<DIR, DirClose>;
