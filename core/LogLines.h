#pragma once

// Line numbers of the log records that clients and tests look for: they are
// part of the service's output, so they stay fixed whatever the source
// layout (LOG_AT names them; other records carry their source line).
namespace LogLine {
// main
constexpr int kSigtermNotHandled = 123;
constexpr int kSigintNotHandled = 128;
// UsbMediaRequestServer
constexpr int kNetworkingInitFailed = 72;
constexpr int kBindFailed = 203;
constexpr int kListenFailed = 213;
constexpr int kServerStarted = 218;
// CUsbMediaPlayer notifications
constexpr int kNoTcpServer = 1863;
constexpr int kNoClientToNotify = 1873;
constexpr int kTrackAlbumArtSent = 1929;
constexpr int kPlayerStateChangedSent = 1946;
constexpr int kRepeatModeChangedSent = 1962;
constexpr int kShuffleModeChangedSent = 1978;
constexpr int kTrackTimeSent = 1994;
constexpr int kEndOfPlayListSent = 2010;
constexpr int kUsbConnectionSent = 2071;
}  // namespace LogLine
