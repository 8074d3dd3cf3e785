// Cover art of the current track: a client's request is served by a short
// worker thread that writes the held image to a file in the art folder
// (player/AlbumArtFiles.h) and announces its path.
#include "player/AlbumArtStore.h"

#include "player/GstHandles.h"

#include "core/Logger.h"

#include <system_error>
#include <thread>
#include <utility>

namespace {
constexpr const char* kLogSource = "CUsbMediaPlayer";

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

CAlbumArtStore::CAlbumArtStore(std::string folder) : m_files(std::move(folder)) {}

CAlbumArtStore::~CAlbumArtStore()
{
    WaitForWorkers();
}

void CAlbumArtStore::Request()
{
    const CLockGuard<CMutex> lock(m_imageMutex);
    m_requested = true;
}

bool CAlbumArtStore::TakeServableRequest()
{
    const CLockGuard<CMutex> lock(m_imageMutex);
    if (!m_requested || !m_image) {
        return false;  // stays pending until an image arrives or the track stops
    }
    m_requested = false;
    return true;
}

void CAlbumArtStore::Hold(GstSamplePtr image)
{
    const CLockGuard<CMutex> lock(m_imageMutex);
    m_image.swap(image);  // the previous image goes with `image`, after the lock
}

void CAlbumArtStore::Release()
{
    GstSamplePtr released;  // unreferenced outside the lock
    const CLockGuard<CMutex> lock(m_imageMutex);
    released.swap(m_image);
    ++m_generation;
    m_requested = false;
    m_lastPath.clear();
}

std::string CAlbumArtStore::LastPath() const
{
    const CLockGuard<CMutex> lock(m_imageMutex);
    return m_lastPath;
}

bool CAlbumArtStore::StartWorker(std::function<void(const std::string& path)> announce)
{
    const CLockGuard<CMutex> lock(m_workersMutex);
    try {
        std::thread([this, announce = std::move(announce)] { RunWorker(announce); }).detach();
    } catch (const std::system_error&) {
        LOG(LOG_ERROR, "album art thread could not be started\n");
        return false;
    }
    ++m_workers;  // the worker waits for this lock before it can count down
    return true;
}

void CAlbumArtStore::WaitForWorkers()
{
    CUniqueLock lock(m_workersMutex);
    while (m_workers != 0) {
        m_workersDone.wait(lock.Native());
    }
}

// Copy the image out, write it (file I/O may be slow, no player lock is
// held), keep its path if its track still plays, announce it.
void CAlbumArtStore::RunWorker(const std::function<void(const std::string& path)>& announce)
{
    uint64_t generation = 0;
    std::vector<uint8_t> bytes;
    const bool fits = CopyImage(bytes, generation);
    const std::string path = fits ? m_files.Write(bytes) : std::string();
    KeepPathIfCurrent(generation, path);
    announce(path);
    const CLockGuard<CMutex> lock(m_workersMutex);
    --m_workers;
    m_workersDone.notify_all();
}

bool CAlbumArtStore::CopyImage(std::vector<uint8_t>& bytes, uint64_t& generation) const
{
    const CLockGuard<CMutex> lock(m_imageMutex);
    generation = m_generation;
    bytes.clear();
    if (!m_image) {
        return true;
    }
    GstBuffer* buffer = gst_sample_get_buffer(m_image.get());
    GstCaps* caps = gst_sample_get_caps(m_image.get());
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

// An image of a track that has meanwhile ended is not the current one's.
void CAlbumArtStore::KeepPathIfCurrent(uint64_t generation, const std::string& path)
{
    const CLockGuard<CMutex> lock(m_imageMutex);
    if (generation == m_generation && !path.empty()) {
        m_lastPath = path;
    }
}
