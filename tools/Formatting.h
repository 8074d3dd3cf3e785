#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace usbctl {

// Whole seconds as "m:ss" (minutes are not wrapped into hours).
std::string FormatClock(int64_t seconds);

// "[#####-----]" with `width` cells between the brackets; an unknown (zero)
// duration gives an empty bar, a time past the end a full one.
std::string ProgressBar(int64_t seconds, int64_t duration, int width);

// "0:42 / 3:15".
std::string FormatTimeOfDuration(int64_t seconds, int64_t duration);

// Player states by name: stopped, paused, playing, fast-forward, rewind;
// "unknown" for -1, the number for anything else.
std::string StateName(int state);

// Repeat modes: none (0), one (1), all (2); the number for anything else.
std::string RepeatModeName(int mode);
std::optional<int> ParseRepeatMode(const std::string& name);

// "on" / "off", and back.
std::string OnOff(bool on);
std::optional<bool> ParseOnOff(const std::string& word);

// A position as whole seconds ("90") or minutes and seconds ("1:30");
// seconds after a colon must be two digits below 60.
std::optional<long long> ParseClock(const std::string& text);

// Whole numbers without sign tricks: "12" yes, "12x", "" and out-of-range no.
std::optional<long long> ParseInteger(const std::string& text);

}  // namespace usbctl
