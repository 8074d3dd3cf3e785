#pragma once

#include "player/PlayerOutcome.h"

#include <json/value.h>

#include <string>

// Shared steps of every reply.

// "jsonrpc" "2.0" and the request's "id" as it came (null when absent).
void BeginReply(const Json::Value& request, Json::Value& response);

// The "error" member for a player status. The message may carry a path from
// the stick (ISO8859-1), so it goes out converted to UTF-8 like every name.
Json::Value ErrorObject(int code, const std::string& message);

// "error" from the status an operation left, when the operation failed.
template <typename Result>
void SetErrorIfFailed(const SPlayerOutcome<Result>& outcome, bool failed, Json::Value& response)
{
    if (failed) {
        response["error"] = ErrorObject(outcome.code, outcome.message);
    }
}

// {"success": bool}, with "error" from the operation's status on failure.
void ReplySuccess(const SPlayerOutcome<bool>& outcome, Json::Value& response);
