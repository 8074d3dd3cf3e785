// ls, index and crc: browsing the stick and its storage index.
#include "tools/Verbs.h"

#include "tools/Paths.h"
#include "tools/Replies.h"
#include "tools/Reports.h"

#include "core/TextConversion.h"

#include <sys/stat.h>

#include <climits>
#include <ostream>

namespace usbctl {

namespace {
constexpr long long kDefaultPageSize = 20;
constexpr int kNoItemsInGroup = -10;

struct Page {
    long long number = 1;
    long long size = kDefaultPageSize;

    long long StartIndex() const { return (number - 1) * size; }
};

Page PageFromOptions(const Invocation& invocation)
{
    Page page;
    page.size = NumberArgument(invocation.Option("--page-size").value_or(std::to_string(kDefaultPageSize)),
                               "--page-size", 1, INT_MAX);
    page.number = NumberArgument(invocation.Option("--page").value_or("1"), "--page", 1, INT_MAX);
    if (page.StartIndex() > INT_MAX) {
        throw UsageError("--page " + std::to_string(page.number) + " starts past the largest index");
    }
    return page;
}

// The request for one page: by group ID with --group, else by folder path.
std::pair<std::string, Json::Value> ListRequest(const VerbContext& context, const Page& page)
{
    Json::Value params(Json::objectValue);
    params["itemCount"] = static_cast<Json::Int>(page.size);
    params["startIndex"] = static_cast<Json::Int>(page.StartIndex());
    params["isMaxDepth"] = context.invocation.Has("--max-depth");
    const auto group = context.invocation.Option("--group");
    if (group) {
        if (!context.Arguments().empty()) {
            throw UsageError("ls takes either a PATH or --group, not both");
        }
        params["groupID"] = static_cast<Json::UInt>(NumberArgument(*group, "--group", 0, UINT_MAX));
        return {"getFileListByGroupID", params};
    }
    params["path"] = ToWireText(ResolvePath(context.ArgumentOr(0, DefaultStickRoot())));
    return {"getFileListUSB", params};
}

// Whether `path` (as sent, UTF-8) is a folder here; a name typed in UTF-8 may
// be stored in ISO8859-1.
bool IsLocalFolder(const std::string& path)
{
    struct stat info {};
    if (stat(path.c_str(), &info) == 0) {
        return S_ISDIR(info.st_mode);
    }
    const std::string latin1 = Utf8ToLatin1(path.c_str());
    return latin1 != path && stat(latin1.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool IsPastTheEnd(const Json::Value& result, const Page& page)
{
    const long long total = result["totalCount"].asInt64();
    return total > 0 && page.StartIndex() >= total;
}
}  // namespace

int RunList(const VerbContext& context)
{
    const Page page = PageFromOptions(context.invocation);
    const auto request = ListRequest(context, page);
    Connection connection = context.Connect();
    const RequestOutcome outcome = Request(connection, context, request.first, request.second);
    if (!outcome.ok) {
        const bool byPath = request.first == "getFileListUSB";
        const std::string folder = byPath ? request.second["path"].asString() : std::string();
        if (byPath && !IsLocalFolder(folder)) {
            ReportFailure(context, "(there is no folder " + folder + "; usb-media-ctl ls without PATH lists the stick root)");
        } else if (ErrorCode(outcome.reply) == kNoItemsInGroup) {
            ReportFailure(context, "(nothing listed: is the folder empty, or the stick not indexed yet? "
                                   "see usb-media-ctl index)");
        }
        return kExitFailure;
    }
    const Json::Value& result = outcome.Result();
    if (IsPastTheEnd(result, page)) {
        const long long total = result["totalCount"].asInt64();
        ReportFailure(context, "page " + std::to_string(page.number) + " is past the end: " +
                                   std::to_string(total) + " entries make " +
                                   std::to_string(PageCount(total, page.size)) + " page(s)");
        return kExitFailure;
    }
    if (!context.Json()) {
        context.out << FormatListing(result, page.size) << std::flush;
    }
    return kExitSuccess;
}

int RunIndex(const VerbContext& context)
{
    const std::string path = ResolvePath(context.ArgumentOr(0, DefaultStickRoot()));
    Json::Value params(Json::objectValue);
    params["usbStoragePath"] = ToWireText(path);
    return RunRequest(context, "indexUsbStorage", params,
                      [&](const Json::Value&) { context.out << "indexed " << path << "\n"; });
}

int RunCrc(const VerbContext& context)
{
    return RunRequest(context, "getUsbStorageCrc32", Json::Value(),
                      [&](const Json::Value& result) { context.out << result["crc32"].asString() << "\n"; });
}

}  // namespace usbctl
