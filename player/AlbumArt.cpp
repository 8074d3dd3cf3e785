// The player's side of cover art: a client's request, serving it once an
// image is held (player/AlbumArtStore.h writes it outside the player lock),
// and announcing the file written.
#include "player/UsbMediaPlayer.h"

namespace {
using PlayerLock = CLockGuard<CMutex>;
}  // namespace

void CUsbMediaPlayer::RequestAlbumArt()
{
    m_albumArt.Request();
}

// Costs no lock while nothing is pending.
void CUsbMediaPlayer::CheckAlbumArt()
{
    if (!m_albumArt.IsRequested() || !m_albumArt.TakeServableRequest()) {
        return;
    }
    m_albumArt.StartWorker([this](const std::string& path) { AnnounceAlbumArt(path); });
}

// The art file last written for the current track; "" before one was
// written (the store forgets it when the track ends).
std::string CUsbMediaPlayer::GetBufferedAlbumArt()
{
    return m_albumArt.LastPath();
}

// Run by a worker once the file is written (or found too large: "").
void CUsbMediaPlayer::AnnounceAlbumArt(const std::string& path)
{
    const PlayerLock lock(m_playerMutex);
    static_cast<void>(SendTrackAlbumArtNotificationLocked(path));  // the last step
}
