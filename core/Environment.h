#pragma once

#include <string>

// Built-in absolute paths, ports and elements, each overridable from the
// environment so the service can run on a desktop or under test:
//   USBMEDIA_ROOT        prefix put before every built-in absolute path
//   USBMEDIA_AUDIO_SINK  element description used instead of "alsasink"
//   USBMEDIA_PORT        TCP port instead of 8885
//   USBMEDIA_FORMATS     the audio file extensions instead of "mp3,wma,wav"
//                        (read once at start-up, see library/AudioFormats.h)
//   STATE_DIRECTORY      set by systemd (StateDirectory=): where state that
//                        must outlive the process is kept

// A built-in absolute path such as "/mnt/usb-stick1", with the prefix.
std::string SystemPath(const std::string& builtInPath);

// The sound output's element description ("alsasink" by default).
std::string AudioSinkDescription();

// The JSON-RPC port (8885 by default).
int RpcPort();

// The text of USBMEDIA_FORMATS as set, "" when unset or empty.
std::string AudioFormatsSetting();

// The folder for state kept across restarts: systemd's $STATE_DIRECTORY
// (its first entry when it lists several), else
// "/var/lib/usb-media-service" under the root prefix. Not created here.
std::string StateDirectory();

// Creates the state folder `path` and its missing parents; the last one
// private to the service (0700), as it is when systemd makes it.
bool MakeStateDirectory(const std::string& path);

// Built-in defaults.
constexpr const char* kDefaultRpcAddress = "127.0.0.1";
constexpr int kDefaultRpcPort = 8885;
constexpr const char* kDefaultAudioSink = "alsasink";
constexpr const char* kDefaultStateDirectory = "/var/lib/usb-media-service";
constexpr const char* kDefaultAudioFormats = "mp3,wma,wav";
