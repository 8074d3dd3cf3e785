#include "core/TextConversion.h"

#include "core/IconvHandle.h"
#include "core/Mutex.h"

#include <memory>
#include <vector>

namespace {
// The process's one ISO8859-1 to UTF-8 converter, opened at start
// (OpenTextConverters) and kept: opening loads iconv's module cache, which
// needs a descriptor, and a service short of descriptors must still say in
// its replies what went wrong. An open that failed is tried again at the
// next conversion. The mutex guards the descriptor's conversion state: one
// conversion at a time.
CMutex g_latin1Mutex;
std::unique_ptr<CIconvHandle> g_latin1Converter GUARDED_BY(g_latin1Mutex);

void OpenLatin1ConverterLocked() REQUIRES(g_latin1Mutex)
{
    if (!g_latin1Converter || !g_latin1Converter->IsOpen()) {
        g_latin1Converter = std::make_unique<CIconvHandle>("UTF-8", "ISO8859-1");
    }
}
}  // namespace

bool OpenTextConverters()
{
    const CLockGuard<CMutex> lock(g_latin1Mutex);
    OpenLatin1ConverterLocked();
    return g_latin1Converter->IsOpen();
}

std::string Latin1ToUtf8(const std::string& text)
{
    const CLockGuard<CMutex> lock(g_latin1Mutex);
    OpenLatin1ConverterLocked();
    const CIconvHandle& converter = *g_latin1Converter;
    if (!converter.IsOpen()) {
        return std::string();
    }
    const size_t length = text.size();
    if (length == 0) {
        return std::string();
    }
    // Every ISO8859-1 byte needs at most two UTF-8 bytes; 4n leaves room.
    std::vector<char> output(4 * length + 1, '\0');
    char* in = const_cast<char*>(text.data());
    size_t inLeft = length;
    char* out = output.data();
    size_t outLeft = 4 * length;
    size_t result = 0;
    iconv(converter.Get(), nullptr, nullptr, nullptr, nullptr);  // initial state
    while (result != static_cast<size_t>(-1) && inLeft > 0 && outLeft > 0) {
        result = iconv(converter.Get(), &in, &inLeft, &out, &outLeft);
    }
    *out = '\0';
    return std::string(output.data());
}

std::string Utf8ToLatin1(const char* text)
{
    std::string result;
    if (text == nullptr) {
        return result;
    }
    unsigned int codePoint = 0;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p != 0; ++p) {
        const unsigned char byte = *p;
        const bool continuation = (byte & 0xC0) == 0x80;
        if (byte < 0x80) {
            codePoint = byte;
        } else if (byte >= 0xC0) {
            codePoint = byte < 0xE0 ? (byte & 0x1F) : byte < 0xF0 ? (byte & 0x0F) : (byte & 0x07);
        } else {
            codePoint = (codePoint << 6) | (byte & 0x3F);
        }
        const bool nextContinues = (p[1] & 0xC0) == 0x80;
        if (nextContinues) {
            continue;
        }
        const bool keep = !continuation || (codePoint <= 0x10FFFF && codePoint <= 0xFF);
        if (keep && codePoint == 0) {
            // A lone lead byte (0xE0, 0xF0), an overlong form or a stray
            // continuation can decode to NUL. The text ends there, as the C
            // string it stands for would: a path with a NUL inside names
            // one folder to opendir and another to everything else.
            break;
        }
        if (keep) {
            result += static_cast<char>(codePoint);
        }
    }
    return result;
}
