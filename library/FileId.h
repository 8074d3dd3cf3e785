#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// 32-bit MurmurHash2, computed byte for byte the same on every platform
// (unlike std::hash, whose width and algorithm differ between them).
uint32_t MurmurHash2(const void* data, size_t length, uint32_t seed);

// The identifier of the entry `name` in folder `path`: the hash of the two
// texts joined with no separator, seed 0xC70F6907.
uint32_t FileId(const std::string& path, const std::string& name);
