#pragma once

// The names the service gives the album-art files it writes, for tests that
// count and compare what its art folder holds.

#include <set>
#include <string>

namespace testing_support {

// "art<number>.dat".
inline std::string ArtName(int number)
{
    return "art" + std::to_string(number) + ".dat";
}

// The names of "art<first>.dat" to "art<last>.dat".
inline std::set<std::string> ArtNames(int first, int last)
{
    std::set<std::string> names;
    for (int n = first; n <= last; ++n) {
        names.insert(ArtName(n));
    }
    return names;
}

// The names on one line, for a failure message.
inline std::string Describe(const std::set<std::string>& names)
{
    std::string text;
    for (const std::string& name : names) {
        text += name + " ";
    }
    return text.empty() ? "<none>" : text;
}

}  // namespace testing_support
