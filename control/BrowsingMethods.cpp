// Browsing: pages of a folder's records by path or by group ID, and the
// (unregistered) text search.
#include "control/UsbMediaRequestHandler.h"

#include "control/Paging.h"
#include "control/ParamReading.h"
#include "control/ReplyHelpers.h"
#include "core/Logger.h"
#include "core/TextConversion.h"
#include "player/UsbMediaPlayer.h"

#include <string>
#include <vector>

namespace {
constexpr const char* kLogSource = "UsbMediaRequestHandler";
const std::string kStarLine(96, '*');

// Appends one entry as clients see it, name and path converted to UTF-8.
void AppendEntry(const CFile& file, bool withId, Json::Value& filelist)
{
    Json::Value& entry = filelist.append(Json::Value(Json::objectValue));
    entry["name"] = Latin1ToUtf8(file.m_name);
    entry["path"] = Latin1ToUtf8(file.m_path);
    entry["isFolder"] = file.m_isFolder;
    if (withId) {
        entry["ID"] = Json::UInt(file.m_id);
    }
}

// Fills `result` for both browse methods; `emptyPage` is what a page
// without entries sends (null or []).
void FillBrowseResult(const std::vector<CFile>& files, const Json::Value& params, int itemCount,
                      Json::ValueType emptyPage, Json::Value& result)
{
    const SBrowsePage page = BrowsePage(files.size(), ReadInt(params, "startIndex"), itemCount);
    result = Json::Value(Json::objectValue);
    result["currIndex"] = Json::UInt(page.currIndex);
    Json::Value& filelist = result["filelist"];
    filelist = Json::Value(emptyPage);
    for (size_t i = page.begin; i < page.end; ++i) {
        AppendEntry(files[i], true, filelist);
    }
    result["totalCount"] = static_cast<int>(files.size());
}
}  // namespace

bool UsbMediaRequestHandler::getFileListUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    const Json::Value& params = Params(request);
    const std::string path = Utf8ToLatin1(ReadString(params, "path").c_str());
    const int itemCount = ReadInt(params, "itemCount");
    const bool isMaxDepth = ReadBool(params, "isMaxDepth");
    LOG(LOG_INFO, "%s\n", kStarLine.c_str());
    LOG(LOG_INFO, "Path to get index of %s\n", path.c_str());
    LOG(LOG_INFO, "Max number of files to send: %d\n", itemCount);

    const auto listed = m_pPlayer->RunWithStatus(&CUsbMediaPlayer::GetFileListByPathLocked, path, isMaxDepth);
    const std::vector<CFile>& files = listed.value;
    SetErrorIfFailed(listed, files.empty(), response);
    LOG(LOG_INFO, "Got the list of files. List size: %d\n", static_cast<int>(files.size()));
    FillBrowseResult(files, params, itemCount, Json::nullValue, response["result"]);
    LOG(LOG_INFO, "%s\n", kStarLine.c_str());
    return true;
}

bool UsbMediaRequestHandler::getFileListByGroupID(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    const Json::Value& params = Params(request);
    const uint32_t groupId = ReadUInt(params, "groupID");
    const int itemCount = ReadInt(params, "itemCount");
    const bool isMaxDepth = ReadBool(params, "isMaxDepth");

    const auto listed =
        m_pPlayer->RunWithStatus(&CUsbMediaPlayer::_getFileListByGroupIDLocked, groupId, isMaxDepth);
    const std::vector<CFile>& files = listed.value;
    SetErrorIfFailed(listed, files.empty(), response);
    FillBrowseResult(files, params, itemCount, Json::arrayValue, response["result"]);
    return true;
}

bool UsbMediaRequestHandler::searchFilesUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    const Json::Value& params = Params(request);
    const std::string searchText = ReadString(params, "searchText");
    const std::string path = ReadString(params, "path");
    const int itemCount = ReadInt(params, "itemCount");
    const int startIndex = ReadInt(params, "startIndex");

    const auto found = m_pPlayer->RunWithStatus(&CUsbMediaPlayer::SearchFilesLocked, path, searchText);
    const std::vector<CFile>& files = found.value;
    SetErrorIfFailed(found, files.empty(), response);
    const SSearchPage page = SearchPage(files.size(), startIndex, itemCount);
    Json::Value& result = response["result"];
    result = Json::Value(Json::objectValue);
    result["currIndex"] = Json::UInt(page.currIndex);
    Json::Value& filelist = result["filelist"];
    for (const size_t position : page.positions) {
        AppendEntry(files[position], false, filelist);
    }
    result["totalCount"] = Json::UInt(static_cast<uint32_t>(files.size()));
    return true;
}
