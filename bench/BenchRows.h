#pragma once

// The rows every benchmark prints, which bench/run gathers into one table:
// "| figure | value | reference | ratio | target |" (bench/run re-spaces them).

#include <cstdio>
#include <string>

inline std::string Fixed(const char* format, double value)
{
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

inline std::string Ms(double seconds)
{
    return Fixed("%.3f ms", seconds * 1000.0);
}

inline void Row(const std::string& figure, const std::string& value, const std::string& reference,
                const std::string& ratio, const std::string& target)
{
    std::printf("| %-44s | %-14s | %-30s | %-12s | %-10s |\n", figure.c_str(), value.c_str(), reference.c_str(),
                ratio.c_str(), target.c_str());
    std::fflush(stdout);
}
