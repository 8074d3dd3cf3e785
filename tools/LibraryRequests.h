#pragma once

#include "tools/Arguments.h"

#include <json/value.h>

#include <string>

namespace usbctl {

// Entries a browse verb asks for when COUNT is not given (as ls pages).
constexpr long long kDefaultLibraryCount = 20;

// The one request a tag library verb sends.
struct LibraryRequest {
    std::string method;
    Json::Value params;
};

// The request of `library`, `artists`, `genres`, `albums`, `tracks`,
// `search`, `play-album`, `play-artist` or `play-genre`, from the verb's
// arguments and options. Throws UsageError.
LibraryRequest LibraryRequestFor(const Invocation& invocation);

}  // namespace usbctl
