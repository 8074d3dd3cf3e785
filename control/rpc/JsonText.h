#pragma once

#include <json/value.h>

#include <string>

namespace Json {
namespace Rpc {

// Compact JSON, object members in ascending key order, non-ASCII escaped as
// \uXXXX, followed by one "\n": the exact text of every reply and
// notification on the wire.
std::string ToWireText(const Json::Value& value);

// The same text without the newline: a member of a larger text.
std::string ToCompactText(const Json::Value& value);

// Parses one complete JSON document (strict: no comments, nothing after the
// value). Returns false when the text is not JSON.
bool ParseJson(const std::string& text, Json::Value& value);

}  // namespace Rpc
}  // namespace Json
