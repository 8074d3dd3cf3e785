#pragma once

#include "library/File.h"
#include "player/UsbDeviceStatus.h"

#include <cstdint>

class CUsbMediaPlayer;

// What was playing when the device went into soft power-off, kept so that a
// client can resume there once power returns. A plain value.
struct SSuspensionData {
    // An empty snapshot: default track, no stick, time 0, no shuffle, repeat
    // 0, state -1; filled field by field when read back from storage.
    SSuspensionData() = default;
    // A snapshot of the player's current track, first stick record, position,
    // shuffle, repeat mode and state.
    explicit SSuspensionData(CUsbMediaPlayer& player);

    CTrackInfo m_track;
    CUsbDeviceStatus m_usbDevice;
    uint32_t m_trackTime = 0;
    bool m_isShuffle = false;
    int32_t m_repeatMode = 0;
    int32_t m_playerState = -1;
};
