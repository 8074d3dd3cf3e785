#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

// Lenient reading of request parameters. A value the JSON library converts
// to the wanted type without complaint is converted (a number for a bool,
// true for an integer, a number for a text); anything else - a missing key,
// a text where a number belongs, a number out of range, an array, an
// object - reads as the missing value: 0, false or "". So no request is ever
// refused for its parameters, and the method runs and answers as usual.

// The request's "params", or null when it is absent or not an object.
const Json::Value& Params(const Json::Value& request);

// `object`'s member `key`, or null when `object` is not an object or has no
// such member (reading a key of an array or a text must not throw).
const Json::Value& Member(const Json::Value& object, const char* key);

int32_t ReadInt(const Json::Value& object, const char* key);
uint32_t ReadUInt(const Json::Value& object, const char* key);
bool ReadBool(const Json::Value& object, const char* key);
std::string ReadString(const Json::Value& object, const char* key);
