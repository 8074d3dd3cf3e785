#include "control/rpc/JsonText.h"

#include <json/reader.h>
#include <json/writer.h>

#include <memory>

namespace Json {
namespace Rpc {

std::string ToWireText(const Json::Value& value)
{
    // FastWriter's output is the protocol's reference format; it is
    // deprecated upstream but is the one writer that produces it exactly.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    Json::FastWriter writer;
    return writer.write(value);
#pragma GCC diagnostic pop
}

std::string ToCompactText(const Json::Value& value)
{
    std::string text = ToWireText(value);
    text.pop_back();
    return text;
}

bool ParseJson(const std::string& text, Json::Value& value)
{
    // A reader keeps parse state, so each thread has its own.
    thread_local const std::unique_ptr<Json::CharReader> reader = [] {
        Json::CharReaderBuilder builder;
        Json::CharReaderBuilder::strictMode(&builder.settings_);
        builder.settings_["strictRoot"] = false;
        builder.settings_["rejectDupKeys"] = false;
        return std::unique_ptr<Json::CharReader>(builder.newCharReader());
    }();
    try {
        return reader->parse(text.data(), text.data() + text.size(), &value, nullptr);
    } catch (const Json::Exception&) {
        return false;  // nesting deeper than the reader's stack limit
    }
}

}  // namespace Rpc
}  // namespace Json
