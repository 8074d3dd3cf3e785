#pragma once

#include <json/value.h>

#include <string>

namespace usbctl {

// One readable line (without newline) for a notification the service pushed.
std::string NotificationLine(const Json::Value& notification);

// "time 0:42 / 3:15", with a progress bar when `withBar`.
std::string TimeLine(int64_t seconds, int64_t duration, bool withBar);

// Turns the stream of notifications into the text `watch` writes. On a
// terminal the time line is redrawn in place with a carriage return and a
// progress bar; the next other line first ends it. Elsewhere every
// notification is one plain line.
class WatchFormatter {
public:
    explicit WatchFormatter(bool terminal) : m_terminal(terminal) {}

    // The text to write for one notification.
    std::string Format(const Json::Value& notification);

    // The text to write when watching ends (ends an open time line).
    std::string Finish();

private:
    std::string FormatTimeInPlace(const Json::Value& params);

    bool m_terminal;
    bool m_timeLineOpen = false;
    size_t m_timeLineWidth = 0;
};

}  // namespace usbctl
