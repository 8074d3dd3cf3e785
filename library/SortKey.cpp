#include "library/SortKey.h"

#include "library/File.h"

#include <glib.h>

#include <algorithm>
#include <memory>

namespace {
struct SGFree {
    void operator()(gchar* text) const { g_free(text); }
};
using GText = std::unique_ptr<gchar, SGFree>;

// A mark that only modifies the letter before it (the accents NFKD splits off).
bool IsCombiningMark(gunichar character)
{
    switch (g_unichar_type(character)) {
    case G_UNICODE_NON_SPACING_MARK:
    case G_UNICODE_SPACING_MARK:
    case G_UNICODE_ENCLOSING_MARK:
        return true;
    default:
        return false;
    }
}

std::string WithoutMarks(const gchar* text)
{
    std::string kept;
    for (const gchar* at = text; *at != '\0'; at = g_utf8_next_char(at)) {
        const gunichar character = g_utf8_get_char(at);
        if (IsCombiningMark(character)) {
            continue;
        }
        kept.append(at, static_cast<size_t>(g_utf8_next_char(at) - at));
    }
    return kept;
}
}  // namespace

std::string SortKey(const std::string& utf8)
{
    // Plain ASCII has no decomposition, no mark and folds to its lower case:
    // the common case costs no conversion.
    if (std::all_of(utf8.begin(), utf8.end(), [](char c) {
            const auto byte = static_cast<unsigned char>(c);  // char is unsigned on ARM
            return byte != 0 && byte < 0x80;
        })) {
        std::string key = utf8;
        std::transform(key.begin(), key.end(), key.begin(), ToLowerAscii);
        return key;
    }
    const GText valid(g_utf8_make_valid(utf8.data(), static_cast<gssize>(utf8.size())));
    const GText decomposed(g_utf8_normalize(valid.get(), -1, G_NORMALIZE_NFKD));
    if (!decomposed) {
        return std::string();
    }
    const std::string bare = WithoutMarks(decomposed.get());
    // Folding may compose again ("ß" to "ss" does not, but some folds give
    // precomposed letters): strip once more after it.
    const GText folded(g_utf8_casefold(bare.data(), static_cast<gssize>(bare.size())));
    const GText again(g_utf8_normalize(folded.get(), -1, G_NORMALIZE_NFKD));
    return again ? WithoutMarks(again.get()) : std::string();
}
