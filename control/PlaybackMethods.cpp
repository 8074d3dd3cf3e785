// Playback and transport methods: each forwards to the player and answers
// with what the player did, "error" beside "result" when it failed.
#include "control/UsbMediaRequestHandler.h"

#include "control/NotificationBuilders.h"
#include "control/ReplyHelpers.h"
#include "core/TextConversion.h"
#include "library/File.h"
#include "player/UsbMediaPlayer.h"

namespace {
// {"success": bool}, with the player's status as "error" on failure.
void ReplySuccess(CUsbMediaPlayer& player, bool success, Json::Value& response)
{
    if (!success) {
        response["error"] = PlayerErrorObject(player);
    }
    Json::Value result(Json::objectValue);
    result["success"] = success;
    response["result"] = result;
}

Json::Value SingleMember(const char* key, const Json::Value& value)
{
    Json::Value object(Json::objectValue);
    object[key] = value;
    return object;
}

// Built by the player, as for trackInfoNotification, so the two agree.
Json::Value CurrentTrackInfo(CUsbMediaPlayer& player)
{
    return BuildTrackInfoObject(player.GetTrackInfoValues());
}
}  // namespace

bool UsbMediaRequestHandler::setRepeatModeUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    m_pPlayer->SetRepeatMode(Params(request)["mode"].asInt());
    response["result"] = SingleMember("mode", m_pPlayer->GetRepeatMode());
    return true;
}

bool UsbMediaRequestHandler::getRepeatModeUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    response["result"] = SingleMember("mode", m_pPlayer->GetRepeatMode());
    return true;
}

bool UsbMediaRequestHandler::enableShuffleUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    m_pPlayer->EnableShuffle(Params(request)["enable"].asBool());
    response["result"] = SingleMember("enabled", m_pPlayer->IsShuffle());
    return true;
}

bool UsbMediaRequestHandler::isShuffleEnabledUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    response["result"] = SingleMember("enabled", m_pPlayer->IsShuffle());
    return true;
}

// Names and paths come in UTF-8 and are matched against the storage's
// single-byte names.
bool UsbMediaRequestHandler::playFileUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    const Json::Value file = Params(request)["file"];
    const std::string name = Utf8ToLatin1(file["name"].asString().c_str());
    const std::string path = Utf8ToLatin1(file["path"].asString().c_str());
    const CFile record(kNoEntryId, name, path, file["isFolder"].asBool());
    ReplySuccess(*m_pPlayer, m_pPlayer->PlayList(record, false), response);
    return true;
}

bool UsbMediaRequestHandler::getCurrentTrackInfoUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    if (!m_pPlayer->ValidateCurrentTrack()) {
        response["error"] = PlayerErrorObject(*m_pPlayer);
    }
    response["result"] = SingleMember("trackInfo", CurrentTrackInfo(*m_pPlayer));
    return true;
}

bool UsbMediaRequestHandler::playUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    ReplySuccess(*m_pPlayer, m_pPlayer->Play(), response);
    return true;
}

bool UsbMediaRequestHandler::pauseUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    ReplySuccess(*m_pPlayer, m_pPlayer->Pause(), response);
    return true;
}

bool UsbMediaRequestHandler::nextUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    ReplySuccess(*m_pPlayer, m_pPlayer->_nextUSB(), response);
    return true;
}

bool UsbMediaRequestHandler::previousUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    ReplySuccess(*m_pPlayer, m_pPlayer->PreviousTrack(), response);
    return true;
}

bool UsbMediaRequestHandler::stopPlayingUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    ReplySuccess(*m_pPlayer, m_pPlayer->Stop(), response);
    return true;
}

bool UsbMediaRequestHandler::restartSongUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    ReplySuccess(*m_pPlayer, m_pPlayer->RestartTrack(), response);
    return true;
}

// The art itself comes later, in a trackAlbumArtNotification.
bool UsbMediaRequestHandler::getTrackAlbumArt(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    m_pPlayer->RequestAlbumArt();
    response["result"] = true;
    return true;
}

bool UsbMediaRequestHandler::getBufferedAlbumArt(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    response["result"] = SingleMember("albumArt", m_pPlayer->GetBufferedAlbumArt());
    return true;
}

bool UsbMediaRequestHandler::playAllSongsUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    const bool success = m_pPlayer->PlayAllSongs(Params(request)["usbRootPath"].asString());
    ReplySuccess(*m_pPlayer, success, response);
    return true;
}

bool UsbMediaRequestHandler::getCurrentPlayerState(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    response["result"] = SingleMember("playerState", m_pPlayer->GetPlayerState());
    return true;
}

bool UsbMediaRequestHandler::seekForward(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    response["result"] = m_pPlayer->SeekForward(Params(request)["enable"].asBool());
    return true;
}

bool UsbMediaRequestHandler::seekBackward(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    response["result"] = m_pPlayer->SeekBackward(Params(request)["enable"].asBool());
    return true;
}

// "index" is the record's id in the storage index.
bool UsbMediaRequestHandler::playFileIndex(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    ReplySuccess(*m_pPlayer, m_pPlayer->PlayFileById(Params(request)["index"].asUInt(), false), response);
    return true;
}

bool UsbMediaRequestHandler::seek(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    const int64_t seconds = Params(request)["timeSec"].asInt();
    response["result"] = m_pPlayer->SeekToTime(seconds);
    return true;
}
