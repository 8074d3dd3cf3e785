#include "tools/Formatting.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>

namespace usbctl {

std::string FormatClock(int64_t seconds)
{
    if (seconds < 0) {
        return "-" + FormatClock(-seconds);
    }
    const int64_t minutes = seconds / 60;
    const int64_t rest = seconds % 60;
    return std::to_string(minutes) + ":" + (rest < 10 ? "0" : "") + std::to_string(rest);
}

std::string ProgressBar(int64_t seconds, int64_t duration, int width)
{
    int filled = 0;
    if (duration > 0 && seconds > 0) {
        filled = seconds >= duration ? width : static_cast<int>(seconds * width / duration);
    }
    return "[" + std::string(static_cast<size_t>(filled), '#') +
           std::string(static_cast<size_t>(width - filled), '-') + "]";
}

std::string FormatTimeOfDuration(int64_t seconds, int64_t duration)
{
    return FormatClock(seconds) + " / " + FormatClock(duration);
}

std::string StateName(int state)
{
    switch (state) {
    case -1:
        return "unknown";
    case 0:
        return "stopped";
    case 3:
        return "paused";
    case 4:
        return "playing";
    case 5:
        return "fast-forward";
    case 6:
        return "rewind";
    default:
        return std::to_string(state);
    }
}

std::string RepeatModeName(int mode)
{
    switch (mode) {
    case 0:
        return "none";
    case 1:
        return "one";
    case 2:
        return "all";
    default:
        return std::to_string(mode);
    }
}

std::optional<int> ParseRepeatMode(const std::string& name)
{
    if (name == "none") {
        return 0;
    }
    if (name == "one") {
        return 1;
    }
    if (name == "all") {
        return 2;
    }
    return std::nullopt;
}

std::string OnOff(bool on)
{
    return on ? "on" : "off";
}

std::optional<bool> ParseOnOff(const std::string& word)
{
    if (word == "on") {
        return true;
    }
    if (word == "off") {
        return false;
    }
    return std::nullopt;
}

std::optional<long long> ParseClock(const std::string& text)
{
    const size_t colon = text.find(':');
    if (colon == std::string::npos) {
        const auto seconds = ParseInteger(text);
        return seconds && *seconds >= 0 ? seconds : std::nullopt;
    }
    const std::string minutesText = text.substr(0, colon);
    const std::string secondsText = text.substr(colon + 1);
    const auto minutes = ParseInteger(minutesText);
    const auto seconds = ParseInteger(secondsText);
    if (!minutes || !seconds || minutesText[0] == '-' || *minutes > 1000000 || secondsText.size() != 2 ||
        *seconds < 0 || *seconds >= 60) {
        return std::nullopt;
    }
    return *minutes * 60 + *seconds;
}

std::optional<long long> ParseInteger(const std::string& text)
{
    if (text.empty()) {
        return std::nullopt;
    }
    errno = 0;
    char* end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    const bool startsWell = std::isdigit(static_cast<unsigned char>(text[0])) || text[0] == '-';
    if (!startsWell || errno != 0 || *end != '\0') {
        return std::nullopt;
    }
    return value;
}

}  // namespace usbctl
