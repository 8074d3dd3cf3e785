#pragma once

// Shared set-up of the library tests: a fake file system root with the
// first stick's mount point, small trees of "audio" files (their bytes do
// not matter to the library), and the daemon started on that root.

#include "library/FileId.h"
#include "tests/support/WireFixture.h"

#include <gtest/gtest.h>
#include <json/value.h>

#include <string>
#include <vector>

namespace library_test {

// The reply text with its numeric "id" value replaced by 0, for exact
// comparisons.
inline std::string WithIdZero(const std::string& raw)
{
    const std::string key = "\"id\":";
    const size_t start = raw.find(key);
    if (start == std::string::npos) {
        return raw;
    }
    const size_t digits = start + key.size();
    const size_t end = raw.find_first_not_of("0123456789", digits);
    if (end == digits) {
        return raw;
    }
    return raw.substr(0, digits) + "0" + raw.substr(end);
}

class LibraryTest : public testing_support::WireFixture {
protected:
    LibraryTest() { testing_support::MakeDirs(Stick()); }

    std::string Stick() const { return m_root / "mnt/usb-stick1"; }

    void Touch(const std::string& relative) { testing_support::WriteFile(Stick() + "/" + relative, "abc"); }
    void TouchAll(const std::vector<std::string>& relatives)
    {
        for (const std::string& relative : relatives) {
            Touch(relative);
        }
    }

    // Starts the daemon on the fake root, with `arguments`, and connects.
    void StartDaemon(const std::vector<std::string>& arguments = {})
    {
        testing_support::DaemonProcess::Options options;
        options.arguments = arguments;
        StartDaemonWith(options);
    }

    Json::Value ListGroup(uint32_t groupId, int itemCount, int startIndex)
    {
        Json::Value params(Json::objectValue);
        params["groupID"] = groupId;
        params["itemCount"] = itemCount;
        params["startIndex"] = startIndex;
        params["isMaxDepth"] = false;
        return Call("getFileListByGroupID", params);
    }

    // The "name" of each entry of a reply's page.
    static std::vector<std::string> PageNames(const Json::Value& reply)
    {
        std::vector<std::string> names;
        for (const Json::Value& entry : reply["result"]["filelist"]) {
            names.push_back(entry["name"].asString());
        }
        return names;
    }
};

}  // namespace library_test
