#pragma once

#include <json/value.h>

#include <string>

namespace usbctl {

// What a reply says about the request's outcome.
struct ReplyOutcome {
    bool failed = false;
    std::string message;  // why it failed, for standard error
};

// A reply failed when it carries "error" (its message and code are
// reported), when its "result" is {"success": false}, or when "result" is a
// bare false.
ReplyOutcome CheckReply(const Json::Value& reply);

// The "code" of the reply's "error", 0 when it has none.
int ErrorCode(const Json::Value& reply);

// Pretty JSON for people: indented, members sorted, UTF-8 kept as is.
std::string PrettyJson(const Json::Value& value);

// Compact JSON without the trailing newline.
std::string CompactJson(const Json::Value& value);

}  // namespace usbctl
