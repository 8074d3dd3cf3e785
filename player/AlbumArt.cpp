// Cover art of the current track: a client's request is served by a short
// worker thread that writes the held image to a file in the art folder
// (player/AlbumArtFiles.h) and tells clients its path.
#include "player/UsbMediaPlayer.h"

#include "player/GstHandles.h"

#include "core/Logger.h"

#include <memory>
#include <system_error>
#include <thread>

namespace {
constexpr const char* kLogSource = "CUsbMediaPlayer";
using PlayerLock = CLockGuard<CMutex>;

// "width" or "height" of the image's caps; 0 when the caps do not say
// (PNG caps carry neither).
int CapsDimension(GstCaps* caps, const char* field)
{
    int value = 0;
    if (caps == nullptr || gst_caps_get_size(caps) == 0) {
        return value;
    }
    gst_structure_get_int(gst_caps_get_structure(caps, 0), field, &value);
    return value;
}
}  // namespace

void CUsbMediaPlayer::RequestAlbumArt()
{
    const PlayerLock lock(m_playerMutex);
    m_albumArtRequested = true;
}

void CUsbMediaPlayer::CheckAlbumArt()
{
    if (!m_albumArtRequested) {
        return;
    }
    const CLockGuard<CMutex> lock(m_playerMutex);
    if (!m_albumArtRequested) {
        return;
    }
    {
        const CLockGuard<CMutex> artLock(m_albumArtMutex);
        if (!m_albumArtSample) {
            return;  // stays pending until an image arrives or the track stops
        }
    }
    m_albumArtRequested = false;
    const CLockGuard<CMutex> workersLock(m_artWorkersMutex);
    try {
        std::thread(&CUsbMediaPlayer::RunAlbumArtWorker, this).detach();
        ++m_artWorkers;  // the worker waits for this lock before it can count down
    } catch (const std::system_error&) {
        LOG(LOG_ERROR, "album art thread could not be started\n");
    }
}

// The art file last written for the current track; "" before one was
// written (ReleaseAlbumArtLocked forgets it when the track ends).
std::string CUsbMediaPlayer::GetBufferedAlbumArt()
{
    const PlayerLock lock(m_playerMutex);
    return m_lastArtFilePath;
}

void CUsbMediaPlayer::ReleaseAlbumArtLocked()
{
    GstSamplePtr released;  // unreferenced outside the art lock
    {
        const CLockGuard<CMutex> artLock(m_albumArtMutex);
        released.swap(m_albumArtSample);
        ++m_albumArtGeneration;
    }
    m_albumArtRequested = false;
    m_lastArtFilePath.clear();
}

void CUsbMediaPlayer::WaitForAlbumArtWorkers()
{
    CUniqueLock lock(m_artWorkersMutex);
    while (m_artWorkers != 0) {
        m_artWorkersDone.wait(lock.Native());
    }
}

bool CUsbMediaPlayer::GetAlbumArtBytes(std::vector<uint8_t>& bytes, uint64_t& generation)
{
    const CLockGuard<CMutex> artLock(m_albumArtMutex);
    generation = m_albumArtGeneration;
    bytes.clear();
    if (!m_albumArtSample) {
        return true;
    }
    GstBuffer* buffer = gst_sample_get_buffer(m_albumArtSample.get());
    GstCaps* caps = gst_sample_get_caps(m_albumArtSample.get());
    const gsize size = buffer != nullptr ? gst_buffer_get_size(buffer) : 0;
    LOG(LOG_INFO, "image size is: %d\n", static_cast<int>(size));
    LOG(LOG_INFO, "image width is: %d\n", CapsDimension(caps, "width"));
    LOG(LOG_INFO, "image height is: %d\n", CapsDimension(caps, "height"));
    if (size > CAlbumArtFiles::kMaxImageBytes) {
        return false;  // not even copied: it will not be written
    }
    bytes.resize(size);
    if (size > 0) {
        bytes.resize(gst_buffer_extract(buffer, 0, bytes.data(), size));
    }
    return true;
}

// Body of one album-art worker: copy the image out, write it to a new file
// (outside the player lock, file I/O may be slow) and tell clients. An image
// too large for the folder is announced with the path "".
void CUsbMediaPlayer::RunAlbumArtWorker()
{
    uint64_t generation = 0;
    std::vector<uint8_t> bytes;
    const bool fits = GetAlbumArtBytes(bytes, generation);
    const std::string path = fits ? m_artFiles.Write(bytes) : std::string();
    {
        const CLockGuard<CMutex> lock(m_playerMutex);
        bool sameTrack = false;
        {
            const CLockGuard<CMutex> artLock(m_albumArtMutex);
            sameTrack = generation == m_albumArtGeneration;
        }
        // An image of a track that has meanwhile ended is not the current one's.
        if (sameTrack && !path.empty()) {
            m_lastArtFilePath = path;
        }
        SendTrackAlbumArtNotificationLocked(path);
    }
    const CLockGuard<CMutex> workersLock(m_artWorkersMutex);
    --m_artWorkers;
    m_artWorkersDone.notify_all();
}
