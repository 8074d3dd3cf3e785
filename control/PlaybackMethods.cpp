// Playback and transport methods: each forwards to the player and answers
// with what the player did, "error" beside "result" when it failed.
#include "control/UsbMediaRequestHandler.h"

#include "player/NotificationBuilders.h"
#include "control/ParamReading.h"
#include "control/ReplyHelpers.h"
#include "core/TextConversion.h"
#include "library/File.h"
#include "player/UsbMediaPlayer.h"

namespace {
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
    m_pPlayer->SetRepeatMode(ReadInt(Params(request), "mode"));
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
    m_pPlayer->EnableShuffle(ReadBool(Params(request), "enable"));
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
    const Json::Value& file = Member(Params(request), "file");
    const std::string name = Utf8ToLatin1(ReadString(file, "name").c_str());
    const std::string path = Utf8ToLatin1(ReadString(file, "path").c_str());
    const CFile record(kNoEntryId, name, path, ReadBool(file, "isFolder"));
    ReplySuccess(m_pPlayer->RunWithStatus(&CUsbMediaPlayer::PlayListLocked, record, false), response);
    return true;
}

bool UsbMediaRequestHandler::getCurrentTrackInfoUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    const auto check = m_pPlayer->RunWithStatus(&CUsbMediaPlayer::ValidateCurrentTrackLocked);
    SetErrorIfFailed(check, !check.value, response);
    response["result"] = SingleMember("trackInfo", CurrentTrackInfo(*m_pPlayer));
    return true;
}

bool UsbMediaRequestHandler::playUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    ReplySuccess(m_pPlayer->RunWithStatus(&CUsbMediaPlayer::PlayLocked), response);
    return true;
}

bool UsbMediaRequestHandler::pauseUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    ReplySuccess(m_pPlayer->RunWithStatus(&CUsbMediaPlayer::PauseLocked), response);
    return true;
}

bool UsbMediaRequestHandler::nextUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    ReplySuccess(m_pPlayer->RunWithStatus(&CUsbMediaPlayer::_nextUSBLocked), response);
    return true;
}

bool UsbMediaRequestHandler::previousUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    ReplySuccess(m_pPlayer->RunWithStatus(&CUsbMediaPlayer::PreviousTrackLocked), response);
    return true;
}

bool UsbMediaRequestHandler::stopPlayingUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    ReplySuccess(m_pPlayer->RunWithStatus(&CUsbMediaPlayer::StopLocked), response);
    return true;
}

bool UsbMediaRequestHandler::restartSongUSB(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    ReplySuccess(m_pPlayer->RunWithStatus(&CUsbMediaPlayer::RestartTrackLocked), response);
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
    const std::string rootPath = ReadString(Params(request), "usbRootPath");
    ReplySuccess(m_pPlayer->RunWithStatus(&CUsbMediaPlayer::PlayAllSongsLocked, rootPath), response);
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
    response["result"] = m_pPlayer->SeekForward(ReadBool(Params(request), "enable"));
    return true;
}

bool UsbMediaRequestHandler::seekBackward(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    response["result"] = m_pPlayer->SeekBackward(ReadBool(Params(request), "enable"));
    return true;
}

// "index" is the record's id in the storage index.
bool UsbMediaRequestHandler::playFileIndex(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    const uint32_t id = ReadUInt(Params(request), "index");
    ReplySuccess(m_pPlayer->RunWithStatus(&CUsbMediaPlayer::PlayFileByIdLocked, id, false), response);
    return true;
}

bool UsbMediaRequestHandler::seek(const Json::Value& request, Json::Value& response)
{
    BeginReply(request, response);
    const int64_t seconds = ReadInt(Params(request), "timeSec");
    response["result"] = m_pPlayer->SeekToTime(seconds);
    return true;
}
