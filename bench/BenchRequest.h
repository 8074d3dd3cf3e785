#pragma once

// A request written out once as wire text, so a benchmark's loop sends
// prepared bytes and times the daemon, not the client's JSON work.

#include "control/rpc/JsonText.h"

#include <json/value.h>

#include <string>

inline std::string RequestText(const std::string& method, const Json::Value& params)
{
    Json::Value request(Json::objectValue);
    request["jsonrpc"] = "2.0";
    request["method"] = method;
    request["id"] = 1;
    if (!params.isNull()) {
        request["params"] = params;
    }
    return Json::Rpc::ToWireText(request);
}
