// Cover art of the current track: a client's request is served by a short
// worker thread that writes the held image to a file under the art directory
// and tells clients its path.
#include "player/UsbMediaPlayer.h"

#include "player/GstHandles.h"

#include "core/Environment.h"
#include "core/Logger.h"
#include "core/PosixHandles.h"

#include <sys/stat.h>

#include <cstdio>
#include <memory>
#include <system_error>
#include <thread>

namespace {
constexpr const char* kLogSource = "CUsbMediaPlayer";
using PlayerLock = CLockGuard<CMutex>;
constexpr mode_t kArtDirectoryMode = 0770;

bool PathExists(const std::string& path)
{
    struct stat info {};
    return stat(path.c_str(), &info) == 0;
}

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

// The first free name of art.dat, art0.dat, art1.dat, ... in `directory`.
// A missing directory is created and then art.dat is free by definition.
std::string NextArtFilePath(const std::string& directory)
{
    std::string path = directory + "/art.dat";
    if (!PathExists(directory)) {
        // chmod as well: the process umask must not narrow the mode.
        if (mkdir(directory.c_str(), kArtDirectoryMode) == 0) {
            chmod(directory.c_str(), kArtDirectoryMode);
        }
        return path;
    }
    for (int n = 0; PathExists(path); ++n) {
        path = directory + "/art" + std::to_string(n) + ".dat";
    }
    return path;
}

// Writes the image bytes to a new file and returns its path, or "" when the
// file cannot be opened. One writer at a time, so two workers never pick the
// same free name.
std::string WriteAlbumArtFile(const std::vector<uint8_t>& bytes)
{
    static CMutex writerMutex;
    const CLockGuard<CMutex> lock(writerMutex);
    const std::string path = NextArtFilePath(SystemPath("/home/root/art_dump"));
    FilePtr file(std::fopen(path.c_str(), "w"));
    if (!file) {
        return std::string();
    }
    if (!bytes.empty()) {
        std::fwrite(bytes.data(), 1, bytes.size(), file.get());
    }
    return path;
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

std::vector<uint8_t> CUsbMediaPlayer::GetAlbumArtBytes(uint64_t& generation)
{
    const CLockGuard<CMutex> artLock(m_albumArtMutex);
    generation = m_albumArtGeneration;
    if (!m_albumArtSample) {
        return {};
    }
    GstBuffer* buffer = gst_sample_get_buffer(m_albumArtSample.get());
    GstCaps* caps = gst_sample_get_caps(m_albumArtSample.get());
    const gsize size = buffer != nullptr ? gst_buffer_get_size(buffer) : 0;
    LOG(LOG_INFO, "image size is: %d\n", static_cast<int>(size));
    LOG(LOG_INFO, "image width is: %d\n", CapsDimension(caps, "width"));
    LOG(LOG_INFO, "image height is: %d\n", CapsDimension(caps, "height"));
    std::vector<uint8_t> bytes(size);
    if (size > 0) {
        bytes.resize(gst_buffer_extract(buffer, 0, bytes.data(), size));
    }
    return bytes;
}

// Body of one album-art worker: copy the image out, write it to a new file
// (outside the player lock, file I/O may be slow) and tell clients.
void CUsbMediaPlayer::RunAlbumArtWorker()
{
    uint64_t generation = 0;
    const std::vector<uint8_t> bytes = GetAlbumArtBytes(generation);
    const std::string path = WriteAlbumArtFile(bytes);
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
