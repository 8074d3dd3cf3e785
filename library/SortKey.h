#pragma once

#include <string>

// The key names are ordered and searched by: the UTF-8 text decomposed
// (NFKD), stripped of its combining marks and case-folded, so "été", "Ete"
// and "ETE" share one key and "ﬁ" reads as "fi". Text that is not valid
// UTF-8 is repaired first (each bad byte becomes U+FFFD), so every input has
// a key. Keys compare as plain bytes: UTF-8 byte order is code point order.
std::string SortKey(const std::string& utf8);
