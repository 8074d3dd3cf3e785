#pragma once

#include <json/value.h>

class CUsbMediaPlayer;

// Shared steps of every reply.

// "jsonrpc" "2.0" and the request's "id" as it came (null when absent).
void BeginReply(const Json::Value& request, Json::Value& response);

// The "error" member: the player's current status code and message
// ("Success" when the code is 0).
Json::Value PlayerErrorObject(CUsbMediaPlayer& player);

// The request's "params" (null when absent), for lenient reading.
const Json::Value& Params(const Json::Value& request);
