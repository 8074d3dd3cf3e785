#include "control/ParamReading.h"

#include <gtest/gtest.h>

namespace {
Json::Value With(const char* key, const Json::Value& value)
{
    Json::Value object(Json::objectValue);
    object[key] = value;
    return object;
}
}  // namespace

TEST(ParamReadingTest, ConvertibleValuesAreConverted)
{
    EXPECT_EQ(ReadInt(With("n", -1), "n"), -1);
    EXPECT_EQ(ReadInt(With("n", true), "n"), 1);
    EXPECT_EQ(ReadInt(With("n", 2.9), "n"), 2);
    EXPECT_EQ(ReadUInt(With("n", 4294967295u), "n"), 4294967295u);
    EXPECT_TRUE(ReadBool(With("b", 0.5), "b"));
    EXPECT_TRUE(ReadBool(With("b", -1), "b"));
    EXPECT_EQ(ReadString(With("s", 12), "s"), "12");
    EXPECT_EQ(ReadString(With("s", false), "s"), "false");
}

TEST(ParamReadingTest, OtherValuesReadAsMissing)
{
    Json::Value array(Json::arrayValue);
    array.append(1);
    const Json::Value object = With("a", 1);
    for (const Json::Value& value : {Json::Value("7"), Json::Value(1e300), Json::Value(Json::UInt64(4294967296ull)),
                                     array, object}) {
        EXPECT_EQ(ReadInt(With("k", value), "k"), 0) << value.toStyledString();
        EXPECT_EQ(ReadUInt(With("k", value), "k"), 0u) << value.toStyledString();
    }
    EXPECT_EQ(ReadUInt(With("k", -1), "k"), 0u);
    for (const Json::Value& value : {Json::Value("true"), array, object}) {
        EXPECT_FALSE(ReadBool(With("k", value), "k")) << value.toStyledString();
    }
    EXPECT_EQ(ReadString(With("k", array), "k"), "");
    EXPECT_EQ(ReadString(With("k", object), "k"), "");
}

TEST(ParamReadingTest, MembersOfWhatIsNoObjectAreMissing)
{
    Json::Value array(Json::arrayValue);
    array.append("x");
    for (const Json::Value& container : {Json::Value(), Json::Value("x"), Json::Value(3), array}) {
        EXPECT_TRUE(Member(container, "k").isNull());
        EXPECT_EQ(ReadString(container, "k"), "");
        EXPECT_EQ(ReadInt(container, "k"), 0);
    }
}

TEST(ParamReadingTest, ParamsOnlyWhenAnObject)
{
    Json::Value request(Json::objectValue);
    request["params"] = "text";
    EXPECT_TRUE(Params(request).isNull());
    request["params"] = With("mode", 2);
    EXPECT_EQ(ReadInt(Params(request), "mode"), 2);
    EXPECT_TRUE(Params(Json::Value("not a request")).isNull());
}
