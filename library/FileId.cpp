#include "library/FileId.h"

#include <cstring>
#include <vector>

namespace {
constexpr uint32_t kMultiplier = 0x5bd1e995;
constexpr uint32_t kFileIdSeed = 0xC70F6907;

// Four bytes as a little-endian word, whatever the host byte order.
uint32_t LoadLittleEndian(const unsigned char* bytes)
{
    return static_cast<uint32_t>(bytes[0]) | (static_cast<uint32_t>(bytes[1]) << 8) |
           (static_cast<uint32_t>(bytes[2]) << 16) | (static_cast<uint32_t>(bytes[3]) << 24);
}

uint32_t MixBlock(uint32_t hash, uint32_t block)
{
    block *= kMultiplier;
    block ^= block >> 24;
    block *= kMultiplier;
    hash *= kMultiplier;
    return hash ^ block;
}

uint32_t MixTail(uint32_t hash, const unsigned char* tail, size_t length)
{
    switch (length) {
    case 3:
        hash ^= static_cast<uint32_t>(tail[2]) << 16;
        [[fallthrough]];
    case 2:
        hash ^= static_cast<uint32_t>(tail[1]) << 8;
        [[fallthrough]];
    case 1:
        hash ^= tail[0];
        hash *= kMultiplier;
        break;
    default:
        break;
    }
    return hash;
}

uint32_t Finish(uint32_t hash)
{
    hash ^= hash >> 13;
    hash *= kMultiplier;
    hash ^= hash >> 15;
    return hash;
}
}  // namespace

uint32_t MurmurHash2(const void* data, size_t length, uint32_t seed)
{
    const auto* bytes = static_cast<const unsigned char*>(data);
    // The length enters as a 32-bit word, as on the 32-bit targets.
    uint32_t hash = seed ^ static_cast<uint32_t>(length);
    for (; length >= 4; bytes += 4, length -= 4) {
        hash = MixBlock(hash, LoadLittleEndian(bytes));
    }
    return Finish(MixTail(hash, bytes, length));
}

uint32_t FileId(const std::string& path, const std::string& name)
{
    // Joined in a stack buffer for the usual short paths; no separator.
    constexpr size_t kStackBytes = 512;
    const size_t length = path.size() + name.size();
    if (length <= kStackBytes) {
        unsigned char joined[kStackBytes];
        std::memcpy(joined, path.data(), path.size());
        std::memcpy(joined + path.size(), name.data(), name.size());
        return MurmurHash2(joined, length, kFileIdSeed);
    }
    std::vector<unsigned char> joined(path.begin(), path.end());
    joined.insert(joined.end(), name.begin(), name.end());
    return MurmurHash2(joined.data(), length, kFileIdSeed);
}
