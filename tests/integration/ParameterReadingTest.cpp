// Parameters of the running daemon's methods are read leniently: a value
// the JSON library converts without complaint is converted, any other value
// reads as the missing value (0, false, ""), and the method answers as usual.
// Never an error of the JSON-RPC layer: a method that threw on a parameter
// would be answered -32603 "Internal error".

#include "control/rpc/JsonText.h"
#include "tests/integration/DeviceFixture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using device_test::DeviceTest;

namespace {
enum class Kind { Int, UInt, Bool, String };

struct SParam {
    const char* key;
    Kind kind;
};

struct SMethod {
    const char* name;
    std::vector<SParam> params;
    Json::Value base;   // well-typed values; each key in turn gets an ill-typed one
    Json::Value reset;  // params of a call of the same method before each call, or null
};

Json::Value ArrayOf(const Json::Value& element)
{
    Json::Value array(Json::arrayValue);
    array.append(element);
    return array;
}

// What each ill-typed value reads as, by the type the method wants.
struct SBadValue {
    Json::Value sent;
    Json::Value asInt;
    Json::Value asUInt;
    Json::Value asBool;
    Json::Value asString;
};

std::vector<SBadValue> BadValues()
{
    return {
        {Json::Value("5"), 0, 0u, false, "5"},
        {Json::Value(1e300), 0, 0u, true, "1.0000000000000001e+300"},  // the library's own digits
        {Json::Value(Json::UInt64(4294967296ull)), 0, 0u, true, "4294967296"},
        {Json::Value(-1), -1, 0u, true, "-1"},
        {ArrayOf(1), 0, 0u, false, ""},
        {[] {
             Json::Value object;
             object["a"] = 1;
             return object;
         }(),
         0, 0u, false, ""},
        {Json::Value(), 0, 0u, false, ""},
        {Json::Value(true), 1, 1u, true, "true"},
    };
}

const Json::Value& ReadAs(const SBadValue& value, Kind kind)
{
    switch (kind) {
    case Kind::Int: return value.asInt;
    case Kind::UInt: return value.asUInt;
    case Kind::Bool: return value.asBool;
    case Kind::String: break;
    }
    return value.asString;
}

Json::Value WithoutId(Json::Value reply)
{
    reply.removeMember("id");
    return reply;
}

void ExpectNormalReply(const Json::Value& reply, const std::string& what)
{
    ASSERT_TRUE(reply.isObject()) << what << ": " << reply.toStyledString();
    if (reply.isMember("error")) {
        EXPECT_GT(reply["error"]["code"].asInt(), -32000) << what << ": " << reply.toStyledString();
    }
}

class ParameterReadingTest : public DeviceTest {
protected:
    void SetUp() override
    {
        device_test::MakeMp3(Stick1() + "/music/a.mp3", 1.0);
        StartDaemon();
    }

    // The methods and their parameters, with well-typed values that make
    // each reply depend on the parameters where the stopped player lets it.
    // Nothing here starts playback, so the replies stay comparable.
    std::vector<SMethod> Methods() const
    {
        const std::string music = Stick1() + "/music";
        const std::string missing = Stick1() + "/\xC3\x9Cnknown";
        Json::Value browse;
        browse["path"] = music;
        browse["itemCount"] = 10;
        browse["isMaxDepth"] = true;
        browse["startIndex"] = 0;
        Json::Value group = browse;
        group.removeMember("path");
        group["groupID"] = 0u;
        Json::Value event;
        event["usbDevice"] = "usb2";  // leaves the first stick as it is
        event["usbConnected"] = true;
        event["isSupported"] = true;
        event["isReadable"] = true;
        const Json::Value none;
        return {
            {"getFileListUSB",
             {{"path", Kind::String}, {"itemCount", Kind::Int}, {"isMaxDepth", Kind::Bool},
              {"startIndex", Kind::Int}},
             browse, none},
            {"getFileListByGroupID",
             {{"groupID", Kind::UInt}, {"itemCount", Kind::Int}, {"isMaxDepth", Kind::Bool},
              {"startIndex", Kind::Int}},
             group, none},
            {"isUSBconnected", {{"deviceName", Kind::String}}, Single("deviceName", "usb1"), none},
            {"setRepeatModeUSB", {{"mode", Kind::Int}}, Single("mode", 2), none},
            {"enableShuffleUSB", {{"enable", Kind::Bool}}, Single("enable", true), none},
            {"playAllSongsUSB", {{"usbRootPath", Kind::String}}, Single("usbRootPath", missing), none},
            {"playFileIndex", {{"index", Kind::UInt}}, Single("index", 7u), none},
            {"setSoftPowerOff", {{"softPowerOff", Kind::Bool}}, Single("softPowerOff", true), none},
            {"seek", {{"timeSec", Kind::Int}}, Single("timeSec", 3), none},
            {"usbConnectionEvent",
             {{"usbDevice", Kind::String}, {"usbConnected", Kind::Bool}, {"isSupported", Kind::Bool},
              {"isReadable", Kind::Bool}},
             event, none},
            {"indexUsbStorage", {{"usbStoragePath", Kind::String}}, Single("usbStoragePath", missing), none},
            // Leaving fast forward or rewind sets the state to playing; each
            // call starts from there, so a second "enable" is not refused.
            {"seekForward", {{"enable", Kind::Bool}}, Single("enable", true), Single("enable", false)},
            {"seekBackward", {{"enable", Kind::Bool}}, Single("enable", true), Single("enable", false)},
        };
    }

    static Json::Value Single(const char* key, const Json::Value& value)
    {
        Json::Value params(Json::objectValue);
        params[key] = value;
        return params;
    }

    Json::Value CallAfterReset(const SMethod& method, const Json::Value& params)
    {
        if (!method.reset.isNull()) {
            Call(method.name, method.reset);
        }
        return Call(method.name, params);
    }

    // The ill-typed request and the same request with the value it reads
    // as, back to back, answer alike.
    void ExpectReadAs(const SMethod& method, const SParam& param, const SBadValue& value)
    {
        Json::Value bad = method.base;
        bad[param.key] = value.sent;
        Json::Value good = method.base;
        good[param.key] = ReadAs(value, param.kind);
        const std::string what = std::string(method.name) + " " + param.key + "=" + Json::Rpc::ToWireText(value.sent);

        const Json::Value badReply = CallAfterReset(method, bad);
        ExpectNormalReply(badReply, what);
        const Json::Value goodReply = CallAfterReset(method, good);
        if (std::string(method.name) != "usbConnectionEvent") {
            EXPECT_TRUE(badReply.isMember("result")) << what << ": " << badReply.toStyledString();
        }
        Json::Value badCompared = WithoutId(badReply);
        Json::Value goodCompared = WithoutId(goodReply);
        if (std::string(method.name).rfind("getFileList", 0) == 0) {
            // A folder asked for again is answered from the cache, with a
            // status of its own; the list is what must agree.
            badCompared.removeMember("error");
            goodCompared.removeMember("error");
        }
        EXPECT_EQ(badCompared.toStyledString(), goodCompared.toStyledString()) << what;
    }
};
}  // namespace

TEST_F(ParameterReadingTest, IllTypedValuesReadAsTheirConversionOrAsMissing)
{
    for (const SMethod& method : Methods()) {
        for (const SParam& param : method.params) {
            for (const SBadValue& value : BadValues()) {
                ExpectReadAs(method, param, value);
            }
        }
    }
}

TEST_F(ParameterReadingTest, ConvertedValuesReachThePlayer)
{
    Json::Value params;
    params["mode"] = true;
    {
        const Json::Value reply = Call("setRepeatModeUSB", params);
        EXPECT_EQ(reply["result"]["mode"], 1) << reply.toStyledString();
    }
    params["mode"] = 4294967296.0;
    {
        const Json::Value reply = Call("setRepeatModeUSB", params);
        EXPECT_EQ(reply["result"]["mode"], 0) << reply.toStyledString();
    }
    params["mode"] = 2.9;
    {
        const Json::Value reply = Call("setRepeatModeUSB", params);
        EXPECT_EQ(reply["result"]["mode"], 2) << reply.toStyledString();
    }

    Json::Value shuffle;
    shuffle["enable"] = 7;
    {
        const Json::Value reply = Call("enableShuffleUSB", shuffle);
        EXPECT_EQ(reply["result"]["enabled"], true) << reply.toStyledString();
    }
    shuffle["enable"] = "true";
    {
        const Json::Value reply = Call("enableShuffleUSB", shuffle);
        EXPECT_EQ(reply["result"]["enabled"], false) << reply.toStyledString();
    }
}

TEST_F(ParameterReadingTest, ParamsThatAreNoObjectReadAsMissing)
{
    for (const Json::Value& params : {Json::Value("text"), Json::Value(3), ArrayOf(1),
                                      Json::Value(true)}) {
        const std::string what = params.toStyledString();
        const Json::Value mode = Call("setRepeatModeUSB", params);
        ExpectNormalReply(mode, what);
        EXPECT_EQ(mode["result"]["mode"], 0) << what << ": " << mode.toStyledString();
        const Json::Value list = Call("getFileListByGroupID", params);
        ExpectNormalReply(list, what);
        EXPECT_EQ(list["result"]["currIndex"].asUInt(), 0u) << what << ": " << list.toStyledString();
        const Json::Value play = Call("playFileUSB", params);
        ExpectNormalReply(play, what);
        EXPECT_EQ(play["result"]["success"], false) << what << ": " << play.toStyledString();
    }
}

TEST_F(ParameterReadingTest, FileThatIsNoObjectReadsAsAnEmptyRecord)
{
    for (const Json::Value& file : {Json::Value("a.mp3"), Json::Value(1e300), ArrayOf("a.mp3"),
                                    Json::Value()}) {
        Json::Value params;
        params["file"] = file;
        const Json::Value reply = Call("playFileUSB", params);
        ExpectNormalReply(reply, file.toStyledString());
        EXPECT_EQ(reply["result"]["success"], false) << file.toStyledString();
    }
}

TEST_F(ParameterReadingTest, IllTypedFileMembersReadLeniently)
{
    Json::Value params;
    params["file"]["name"] = Json::Value(Json::objectValue);
    params["file"]["path"] = Json::Value(Json::arrayValue);
    params["file"]["isFolder"] = "yes";
    const Json::Value nothing = Call("playFileUSB", params);
    ExpectNormalReply(nothing, "all ill-typed");
    EXPECT_EQ(nothing["result"]["success"], false) << nothing.toStyledString();

    // "isFolder" as a text reads as false: the file itself is played.
    params["file"]["name"] = "a.mp3";
    params["file"]["path"] = Stick1() + "/music";
    const Json::Value played = Call("playFileUSB", params);
    ExpectNormalReply(played, "isFolder text");
    EXPECT_EQ(played["result"]["success"], true) << played.toStyledString();
    EXPECT_TRUE(WaitForPlayingFile("a.mp3"));
}
