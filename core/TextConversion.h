#pragma once

#include <string>

// Names on the storage are ISO8859-1; clients speak UTF-8.

// Opens the iconv converter that Latin1ToUtf8 uses, once, at start; false
// when it cannot be opened (each conversion then tries again). The other
// direction, Utf8ToLatin1, is written out by hand and opens nothing.
bool OpenTextConverters();

// ISO8859-1 to UTF-8 through iconv, one converter for the process. Stops at
// the first NUL byte; gives "" when no converter can be opened.
std::string Latin1ToUtf8(const std::string& text);

// UTF-8 to ISO8859-1, byte for byte as clients' paths are matched against
// the storage: characters up to U+00FF become their single byte, characters
// above vanish, a lead byte without continuation yields its payload bits.
// The result ends before the first character that decodes to NUL.
std::string Utf8ToLatin1(const char* text);
