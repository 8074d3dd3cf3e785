#include "tests/integration/TagLibraryFixture.h"

#include "tests/support/ChildProcess.h"
#include "tests/support/MediaFactory.h"
#include "tests/support/TempDir.h"

#include <algorithm>

using testing_support::kWireTimeoutMs;

namespace tag_library_test {

namespace {
// One tagged copy per folder, the folder's other files hard links to it: a
// stick of thousands of files is made in a second and takes no room.
constexpr const char* kCopyScript = R"(
import os, shutil, sys
from mutagen.id3 import ID3, TALB, TIT2, TPE1
source, root, count, per = sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4])
for i in range(count):
    number = i // per
    folder = os.path.join(root, "f%03d" % number)
    path = os.path.join(folder, "t%05d.mp3" % i)
    if i % per:
        os.link(os.path.join(folder, "t%05d.mp3" % (number * per)), path)
        continue
    os.makedirs(folder, exist_ok=True)
    shutil.copyfile(source, path)
    tag = ID3()
    tag.add(TIT2(encoding=3, text=["Song %03d" % number]))
    tag.add(TPE1(encoding=3, text=["Artist %d" % (number % 7)]))
    tag.add(TALB(encoding=3, text=["Album %03d" % number]))
    tag.save(path)
)";

constexpr const char* kIntegrityScript = R"(
import sqlite3, sys
connection = sqlite3.connect(sys.argv[1])
rows = connection.execute("PRAGMA integrity_check").fetchall()
with open(sys.argv[2], "w") as out:
    out.write("\n".join(str(row[0]) for row in rows))
)";
}  // namespace

void TagLibraryTest::StartLibraryDaemon()
{
    StartDaemon({"-l", "a"}, {{"STATE_DIRECTORY", StateFolder()}});
}

Json::Value TagLibraryTest::Status()
{
    return Call("getLibraryStatusUSB")["result"];
}

Json::Value TagLibraryTest::WaitForScan(const std::string& state, std::vector<SScanNotice>* seen)
{
    Json::Value notification;
    while (NextNotification(notification, "libraryScanNotification", kWireTimeoutMs)) {
        const Json::Value& status = notification["params"];
        if (seen != nullptr) {
            seen->push_back({status, std::chrono::steady_clock::now()});
        }
        if (status["state"] == state) {
            return status;
        }
    }
    return Json::Value();
}

Json::Value TagLibraryTest::IndexStickAndWaitUntilReady()
{
    const Json::Value reply = Index(Stick1());
    EXPECT_TRUE(reply["result"]["success"].asBool()) << reply.toStyledString();
    const Json::Value ready = WaitForScan("ready");
    EXPECT_FALSE(ready.isNull()) << "no \"ready\"; status " << Status().toStyledString();
    return ready;
}

Json::Value TagLibraryTest::Plug(const std::string& device, const std::string& uuid)
{
    Json::Value params;
    params["usbDevice"] = device;
    params["usbConnected"] = true;
    params["isSupported"] = true;
    params["isReadable"] = true;
    if (!uuid.empty()) {
        params["fsUUID"] = uuid;
    }
    return Call("usbConnectionEvent", params);
}

Json::Value TagLibraryTest::Unplug(const std::string& device)
{
    return UsbEvent(device, false);
}

Json::Value TagLibraryTest::Page(const std::string& method, int startIndex, int itemCount, Json::Value params)
{
    params["startIndex"] = startIndex;
    params["itemCount"] = itemCount;
    const Json::Value reply = Call(method, params);
    EXPECT_TRUE(reply.isMember("result")) << method << " " << testing_support::WireText(params) << ": "
                                          << reply.toStyledString();
    return reply["result"];
}

Json::Value TagLibraryTest::All(const std::string& method, Json::Value params)
{
    return Page(method, 0, 1000, std::move(params));
}

std::vector<std::string> TagLibraryTest::DatabaseFiles() const
{
    std::vector<std::string> databases;
    for (const std::string& name : testing_support::FolderNames(StateFolder())) {
        const std::string suffix = ".sqlite";
        if (name.rfind("tags-", 0) == 0 && name.size() > suffix.size() &&
            name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0) {
            databases.push_back(name);
        }
    }
    return databases;
}

std::string Compact(const Json::Value& value)
{
    std::string text = testing_support::WireText(value);
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
}

std::vector<std::string> Texts(const Json::Value& page, const std::string& member)
{
    std::vector<std::string> texts;
    for (const Json::Value& entry : page["entries"]) {
        texts.push_back(entry[member].asString());
    }
    return texts;
}

Json::Value EntryNamed(const Json::Value& page, const std::string& member, const std::string& value,
                       const std::string& artist)
{
    for (const Json::Value& entry : page["entries"]) {
        if (entry[member].asString() == value && (artist.empty() || entry["artist"].asString() == artist)) {
            return entry;
        }
    }
    return Json::Value();
}

void MakeTaggedCopies(const std::string& root, int count, int perFolder)
{
    const std::string source = testing_support::MediaFactory::Mp3(0.5);
    testing_support::MakeDirs(root);
    const auto run = testing_support::RunToEnd({"/usr/bin/python3", "-c", kCopyScript, source, root,
                                                std::to_string(count), std::to_string(perFolder)});
    ASSERT_TRUE(run.succeeded) << "python3 could not make " << count << " tagged copies below " << root;
}

std::string IntegrityCheck(const std::string& path)
{
    const testing_support::TempDir scratch;
    const std::string result = scratch / "integrity.txt";
    const auto run = testing_support::RunToEnd({"/usr/bin/python3", "-c", kIntegrityScript, path, result});
    if (!run.succeeded) {
        return "python3 could not open " + path;
    }
    return testing_support::ReadFile(result);
}

}  // namespace tag_library_test
