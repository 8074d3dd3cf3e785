#include "control/ParamReading.h"

// isConvertibleTo answers exactly for the values the matching as...()
// accessor converts without throwing, so each reader asks it first.

const Json::Value& Params(const Json::Value& request)
{
    const Json::Value& params = Member(request, "params");
    return params.isObject() ? params : Json::Value::nullSingleton();
}

const Json::Value& Member(const Json::Value& object, const char* key)
{
    if (!object.isObject()) {
        return Json::Value::nullSingleton();
    }
    return object[key];
}

int32_t ReadInt(const Json::Value& object, const char* key)
{
    const Json::Value& value = Member(object, key);
    return value.isConvertibleTo(Json::intValue) ? value.asInt() : 0;
}

uint32_t ReadUInt(const Json::Value& object, const char* key)
{
    const Json::Value& value = Member(object, key);
    return value.isConvertibleTo(Json::uintValue) ? value.asUInt() : 0;
}

bool ReadBool(const Json::Value& object, const char* key)
{
    const Json::Value& value = Member(object, key);
    return value.isConvertibleTo(Json::booleanValue) ? value.asBool() : false;
}

std::string ReadString(const Json::Value& object, const char* key)
{
    const Json::Value& value = Member(object, key);
    return value.isConvertibleTo(Json::stringValue) ? value.asString() : std::string();
}
